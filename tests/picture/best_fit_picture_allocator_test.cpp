#include "vidorra/picture/best_fit_picture_allocator.h"

#include <gtest/gtest.h>

#include <cstring>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "picture/region.h"
#include "support/throw_text.h"
#include "vidorra/core/av_ptr.h"
#include "vidorra/core/enum_text.h"
#include "vidorra/core/ffmpeg_error.h"

extern "C" {
#include <libavutil/buffer.h>
#include <libavutil/frame.h>
}

namespace vidorra::test {
namespace {

using MemBlock = BestFitPictureAllocator::MemBlock;

constexpr const char* kFreed =
    "BestFitPictureAllocator: corrupted structure or picture buffer is already freed.";
constexpr const char* kBadAlignment = "BestFitPictureAllocator: blockAlignment must be power of two";
constexpr const char* kBadSize =
    "BestFitPictureAllocator: failed to calculate buffer size for the picture FFmpeg AV_ERROR: #-22: Invalid "
    "argument";

// An allocator without alignments, in which a gray picture of one row is as long as it is wide.
class Units {
public:
    explicit Units(std::size_t size) : mRegion(size), mAllocator(mRegion.data(), size, 1, 1, false) {}

    // The offset of a new block for a picture.
    std::uint64_t take(int width, int height = 1) { return offset(takeBlock(width, height)); }
    MemBlock takeBlock(int width, int height = 1) {
        return mAllocator.findFreeBlock({width, height}, AV_PIX_FMT_GRAY8);
    }
    void give(std::uint64_t at) { mAllocator.deallocate(mRegion.data() + at); }
    [[nodiscard]] std::uint64_t offset(const MemBlock& block) const {
        return static_cast<std::uint64_t>(block.data - mRegion.data());
    }
    BestFitPictureAllocator& allocator() { return mAllocator; }

private:
    Region mRegion;
    BestFitPictureAllocator mAllocator;
};

Picture allocateGray(BestFitPictureAllocator& allocator, int width, int height = 1) {
    return allocator.allocate({width, height}, AV_PIX_FMT_GRAY8, AVCOL_RANGE_JPEG);
}

// The size of a picture's buffer.
std::size_t bufferSize(const Picture& picture) {
    const AvPtr<AVFrame> frame = makeAvPtr<AVFrame>();
    picture.fillAVFrame(frame.get());
    return frame->buf[0]->size;
}

// ---- construction

TEST(BestFitPictureAllocator, ANullBufferIsRefused) {
    EXPECT_THROW_TEXT(std::invalid_argument, "BestFitPictureAllocator: buffer must not be null",
                      BestFitPictureAllocator(nullptr, 4096, 24, 16, false));
}

TEST(BestFitPictureAllocator, TheLargerAlignmentMustBeAPowerOfTwo) {
    struct Row {
        std::size_t line;
        std::size_t block;
        bool accepted;
    };
    std::uint8_t byte = 0;
    for (const Row& row : {Row{0, 0, false}, Row{24, 16, false}, Row{32, 24, true}, Row{32, 0, true},
                           Row{24, 32, true}, Row{16, 48, false}, Row{1, 1, true}, Row{64, 4096, true}}) {
        SCOPED_TRACE(testing::Message() << row.line << " " << row.block);
        if (row.accepted) {
            EXPECT_NO_THROW(BestFitPictureAllocator(&byte, 1, row.line, row.block, false));
        } else {
            EXPECT_THROW_TEXT(std::invalid_argument, kBadAlignment,
                              BestFitPictureAllocator(&byte, 1, row.line, row.block, false));
        }
    }
}

TEST(BestFitPictureAllocator, ALargerLineAlignmentAlignsBlocksToo) {
    const Region region(4096);
    BestFitPictureAllocator allocator(region.data(), region.size(), 128, 32, false);
    const Picture first = allocateGray(allocator, 1);
    const Picture second = allocateGray(allocator, 1);
    EXPECT_EQ(first.linesize()[0], 128);
    EXPECT_EQ(second.data()[0] - first.data()[0], 128);
}

TEST(BestFitPictureAllocator, ARegionSmallerThanABlockHasNoRoom) {
    const Region region(4096);
    for (const std::size_t size : {0, 1, 31}) {
        BestFitPictureAllocator allocator(region.data(), size, 16, 32, false);
        EXPECT_THROW(allocateGray(allocator, 1), std::bad_alloc);
        EXPECT_THROW(allocateGray(allocator, 1), std::bad_alloc);
    }
    BestFitPictureAllocator allocator(region.data(), 32, 16, 32, false);
    EXPECT_EQ(allocateGray(allocator, 1).data()[0], region.data());
}

TEST(BestFitPictureAllocator, AnUnalignedRegionLosesItsFirstBytes) {
    const Region region(4096);
    BestFitPictureAllocator allocator(region.data() + 1, 3 * 64, 32, 64, false);
    const Picture first = allocateGray(allocator, 64);
    const Picture second = allocateGray(allocator, 64);
    EXPECT_EQ(first.data()[0], region.data() + 64);
    EXPECT_EQ(second.data()[0], region.data() + 128);
    EXPECT_THROW(allocateGray(allocator, 64), std::bad_alloc);
}

TEST(BestFitPictureAllocator, PaddingThatLeavesNoBlockLeavesNoRoom) {
    const Region region(4096);
    // 63 bytes of padding: one block fits into 127 bytes, none into 126.
    BestFitPictureAllocator enough(region.data() + 1, 127, 32, 64, false);
    EXPECT_EQ(allocateGray(enough, 1).data()[0], region.data() + 64);
    BestFitPictureAllocator tooSmall(region.data() + 1, 126, 32, 64, false);
    EXPECT_THROW(allocateGray(tooSmall, 1), std::bad_alloc);
}

TEST(BestFitPictureAllocator, ARegionAtTheEndOfTheAddressesHasNoRoom) {
    // Rounding its address up gives 0. Nothing is read there.
    auto* const buffer = reinterpret_cast<std::uint8_t*>(~std::uintptr_t{0} - 30);
    BestFitPictureAllocator allocator(buffer, ~std::size_t{0}, 16, 64, false);
    EXPECT_THROW((void)allocator.findFreeBlock({1, 1}, AV_PIX_FMT_GRAY8), std::bad_alloc);
}

// ---- pictures

TEST(BestFitPictureAllocator, APictureLiesInTheRegionWithAlignedLines) {
    const Region region(1 << 20);
    BestFitPictureAllocator allocator(region.data(), region.size(), 64, 4096, false);
    const Picture picture = allocator.allocate({100, 50}, AV_PIX_FMT_YUV420P, AVCOL_RANGE_MPEG);
    EXPECT_EQ(picture.frameSize(), (Size{100, 50}));
    EXPECT_EQ(picture.pixelFormat(), AV_PIX_FMT_YUV420P);
    EXPECT_EQ(picture.colorRange(), AVCOL_RANGE_MPEG);
    EXPECT_EQ(picture.linesize(), (Picture::Linesizes{128, 64, 64, 0}));
    EXPECT_EQ(picture.data()[0], region.data());
    EXPECT_EQ(picture.data()[1], region.data() + 128 * 50);
    EXPECT_EQ(picture.data()[2], region.data() + 128 * 50 + 64 * 25);
    EXPECT_EQ(picture.data()[3], nullptr);
    EXPECT_TRUE(picture.editable());
}

TEST(BestFitPictureAllocator, PicturesWithTheirOwnAlphaPlaneAreMade) {
    const Region region(1 << 20);
    BestFitPictureAllocator allocator(region.data(), region.size(), 32, 32, false);
    const Picture picture = allocator.allocate({64, 32}, NVA12, AVCOL_RANGE_MPEG);
    EXPECT_EQ(picture.data()[3], region.data() + 64 * 32 * 3 / 2);
    EXPECT_EQ(bufferSize(picture), 64u * 32 * 5 / 2);
}

TEST(BestFitPictureAllocator, ContentIsWhatTheMemoryHeld) {
    const Region region(4096);
    std::memset(region.data(), 0x5A, region.size());
    BestFitPictureAllocator allocator(region.data(), region.size(), 1, 1, false);
    const Picture picture = allocateGray(allocator, 3, 3);
    EXPECT_EQ(std::vector(picture.data()[0], picture.data()[0] + 9), std::vector<std::uint8_t>(9, 0x5A));
}

TEST(BestFitPictureAllocator, TheBufferIsTheWholeBlockWithoutSpareBytes) {
    const Region region(8192);
    BestFitPictureAllocator allocator(region.data(), region.size(), 1, 1024, false);
    EXPECT_EQ(bufferSize(allocateGray(allocator, 1024)), 1024u);
    EXPECT_EQ(bufferSize(allocateGray(allocator, 1025)), 2048u);
}

TEST(BestFitPictureAllocator, TheBufferOfABlockTakenWholeIsLargerThanThePicture) {
    const Region region(222);
    BestFitPictureAllocator allocator(region.data(), region.size(), 1, 1, false);
    std::optional<Picture> first = allocateGray(allocator, 110);
    const Picture between = allocateGray(allocator, 1);
    std::optional<Picture> second = allocateGray(allocator, 110);
    const Picture last = allocateGray(allocator, 1);
    first.reset();
    second.reset();
    const Picture picture = allocateGray(allocator, 100);
    EXPECT_EQ(picture.data()[0], region.data());
    EXPECT_EQ(bufferSize(picture), 110u);
}

TEST(BestFitPictureAllocator, TheDmaFlagMarksItsPictures) {
    const Region region(4096);
    for (const bool dma : {false, true}) {
        BestFitPictureAllocator allocator(region.data(), region.size(), 1, 1, dma);
        Picture picture = allocateGray(allocator, 16);
        EXPECT_EQ(picture.isBufferDMA(), dma);
        EXPECT_EQ(Picture(picture).isBufferDMA(), dma);
    }
}

TEST(BestFitPictureAllocator, MakingASharedPictureEditableMovesItToTheHeap) {
    const Region region(4096);
    BestFitPictureAllocator allocator(region.data(), region.size(), 1, 1, true);
    const Picture picture = allocateGray(allocator, 16);
    std::memset(picture.data()[0], 7, 16);
    Picture copy = picture;
    copy.makeEditable();
    EXPECT_FALSE(copy.isBufferDMA());
    EXPECT_TRUE(picture.isBufferDMA());
    EXPECT_NE(copy.data()[0], picture.data()[0]);
    EXPECT_EQ(std::memcmp(copy.data()[0], picture.data()[0], 16), 0);
}

TEST(BestFitPictureAllocator, ABlockStaysUsedUntilTheLastReferenceGoes) {
    const Region region(16);
    BestFitPictureAllocator allocator(region.data(), region.size(), 1, 1, false);
    std::optional<Picture> picture = allocateGray(allocator, 16);
    std::optional<Picture> view = picture->crop({4, 0, 4, 1});
    picture.reset();
    EXPECT_THROW(allocateGray(allocator, 16), std::bad_alloc);
    view.reset();
    EXPECT_EQ(allocateGray(allocator, 16).data()[0], region.data());
}

class RecordingAllocator : public BestFitPictureAllocator {
public:
    using BestFitPictureAllocator::BestFitPictureAllocator;
    void flush(std::uint8_t* data, int size) override { flushes.emplace_back(data, size); }
    std::vector<std::pair<std::uint8_t*, int>> flushes;
};

TEST(BestFitPictureAllocator, FlushingAPictureFlushesItsWholeBlock) {
    const Region region(8192);
    RecordingAllocator allocator(region.data(), region.size(), 1, 1024, false);
    const Picture first = allocateGray(allocator, 100);
    const Picture second = allocateGray(allocator, 1025);
    second.crop({1000, 0, 8, 1}).flush();
    EXPECT_EQ(allocator.flushes, (std::vector{std::pair{region.data() + 1024, 2048}}));
}

TEST(BestFitPictureAllocator, FlushDoesNothingByItself) {
    const Region region(64);
    std::memset(region.data(), 1, region.size());
    BestFitPictureAllocator allocator(region.data(), region.size(), 1, 1, true);
    const Picture picture = allocateGray(allocator, 64);
    picture.flush();
    EXPECT_EQ(std::vector(region.data(), region.data() + 64), std::vector<std::uint8_t>(64, 1));
}

// ---- errors

TEST(BestFitPictureAllocator, ASizeOrFormatThatFFmpegRefusesIsReported) {
    struct Row {
        Size size;
        AVPixelFormat format;
    };
    const Region region(4096);
    BestFitPictureAllocator allocator(region.data(), region.size(), 1, 1, false);
    for (const Row& row : {Row{{16, 16}, AV_PIX_FMT_NONE}, Row{{0, 16}, AV_PIX_FMT_GRAY8},
                           Row{{16, 0}, AV_PIX_FMT_GRAY8}, Row{{-1, 16}, AV_PIX_FMT_GRAY8},
                           Row{{1 << 20, 1 << 20}, AV_PIX_FMT_GRAY8}, Row{{16, 16}, AV_PIX_FMT_VAAPI}}) {
        SCOPED_TRACE(testing::Message() << row.size << " " << row.format);
        EXPECT_THROW_TEXT(FFmpegError, kBadSize,
                          (void)allocator.allocate(row.size, row.format, AVCOL_RANGE_MPEG));
    }
    EXPECT_EQ(allocateGray(allocator, 4096).data()[0], region.data());
}

TEST(BestFitPictureAllocator, AnExhaustedRegionThrowsAndWorksAgainAfterARelease) {
    const Region region(100);
    BestFitPictureAllocator allocator(region.data(), region.size(), 1, 1, false);
    std::optional<Picture> first = allocateGray(allocator, 60);
    const Picture second = allocateGray(allocator, 40);
    EXPECT_THROW(allocateGray(allocator, 1), std::bad_alloc);
    first.reset();
    EXPECT_THROW(allocateGray(allocator, 61), std::bad_alloc);
    EXPECT_EQ(allocateGray(allocator, 60).data()[0], region.data());
}

TEST(BestFitPictureAllocator, ARequestThatExactlyFillsTheRestGetsIt) {
    Units units(100);
    units.take(60);
    EXPECT_THROW(units.take(41), std::bad_alloc);
    EXPECT_EQ(units.take(40), 60u);
}

TEST(BestFitPictureAllocator, ASecondReleaseIsReportedAndChangesNothing) {
    Units units(100);
    units.take(10);
    units.take(20);
    units.give(0);
    EXPECT_THROW_TEXT(std::runtime_error, kFreed, units.give(0));
    EXPECT_EQ(units.take(10), 0u);
    EXPECT_EQ(units.take(70), 30u);
    units.give(30);
    EXPECT_THROW_TEXT(std::runtime_error, kFreed, units.give(30));
    EXPECT_EQ(units.take(70), 30u);
}

TEST(BestFitPictureAllocator, TheReleaseOfAnAddressWithoutABlockIsReportedAndChangesNothing) {
    Units units(100);
    EXPECT_THROW_TEXT(std::runtime_error, kFreed, units.give(0));
    units.take(10);
    EXPECT_THROW_TEXT(std::runtime_error, kFreed, units.give(1));
    EXPECT_THROW_TEXT(std::runtime_error, kFreed, units.give(10));
    EXPECT_THROW_TEXT(std::runtime_error, kFreed, units.allocator().deallocate(nullptr));
    EXPECT_EQ(units.take(90), 10u);
}

TEST(BestFitPictureAllocatorDeathTest, ASecondReleaseBelowAPictureEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const Region region(4096);
    const auto releaseTwice = [&region] {
        BestFitPictureAllocator allocator(region.data(), region.size(), 1, 1, false);
        const Picture picture = allocateGray(allocator, 16);
        allocator.deallocate(picture.data()[0]);
    };
    EXPECT_EXIT(releaseTwice(), testing::KilledBySignal(SIGABRT), "picture buffer is already freed");
}

// ---- the choice of a block

TEST(BestFitPictureAllocator, TheSameShapeGetsTheSameBlockAgain) {
    const Region region(1 << 20);
    BestFitPictureAllocator allocator(region.data(), region.size(), 32, 4096, false);
    const auto allocate = [&] { return allocator.allocate({64, 48}, AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG); };
    const Picture a = allocate();
    std::optional<Picture> b = allocate();
    const Picture c = allocate();
    const std::uint8_t* const address = b->data()[0];
    b.reset();
    EXPECT_EQ(allocate().data()[0], address);
}

TEST(BestFitPictureAllocator, AReleaseAtTheTopGivesTheSpaceBack) {
    Units units(100);
    units.take(30);
    EXPECT_EQ(units.take(20), 30u);
    units.give(30);
    EXPECT_EQ(units.take(70), 30u);
}

TEST(BestFitPictureAllocator, AReleaseAtTheTopGivesBackTheFreeBlocksBelowToo) {
    Units units(100);
    units.take(30);
    units.take(20);
    units.take(10);
    units.give(50);
    units.give(30);
    // One block in place of two.
    EXPECT_EQ(units.take(70), 30u);
    units.give(30);
    units.give(0);
    EXPECT_EQ(units.take(100), 0u);
}

TEST(BestFitPictureAllocator, AReleaseInTheMiddleWaitsForTheTop) {
    Units units(100);
    units.take(30);
    units.take(20);
    units.take(10);
    units.give(30);
    units.give(0);
    // Only 40 are free in one piece at the end, so these would fail if the middle had been given back.
    EXPECT_EQ(units.take(40), 60u);
    units.give(60);
    units.give(50);
    EXPECT_EQ(units.take(100), 0u);
}

TEST(BestFitPictureAllocator, ABlockGivenBackAtTheTopLosesItsShape) {
    Units units(100);
    units.take(30);
    units.take(20);
    units.give(30);
    units.take(25);
    // Nothing remembers the 20.
    EXPECT_EQ(units.take(20), 55u);
}

TEST(BestFitPictureAllocator, FreeNeighboursKeepTheirShapesUntilTheRegionRunsOut) {
    Units units(200);
    units.take(100);
    units.take(50);
    units.take(10);
    units.give(0);
    units.give(100);
    EXPECT_EQ(units.take(50), 100u);
    units.give(100);
    EXPECT_EQ(units.take(100), 0u);
    units.give(0);
    // 40 are left at the end.
    EXPECT_EQ(units.take(40), 160u);
    EXPECT_EQ(units.take(140), 0u);
}

TEST(BestFitPictureAllocator, JoinedBlocksHaveLostTheirShapesEvenWhenNothingFits) {
    Units units(160);
    units.take(100);
    units.take(50);
    units.take(10);
    units.give(0);
    units.give(100);
    EXPECT_THROW(units.take(151), std::bad_alloc);
    // Cut from the front of the joined block; the block of this shape was the second.
    EXPECT_EQ(units.take(50), 0u);
    EXPECT_EQ(units.take(100), 50u);
}

TEST(BestFitPictureAllocator, FreeBlocksApartKeepTheirShapesWhenTheRegionRunsOut) {
    Units units(202);
    units.take(100);
    units.take(1);
    units.take(50, 2);
    units.take(1);
    units.give(0);
    units.give(101);
    EXPECT_THROW(units.take(150), std::bad_alloc);
    // Without its shape the first block of the size would be taken.
    EXPECT_EQ(units.take(50, 2), 101u);
}

TEST(BestFitPictureAllocator, AFreeBlockOfTheSameSizeTakesOnTheNewShape) {
    Units units(1000);
    units.take(20, 5);
    units.take(1);
    units.give(0);
    const MemBlock block = units.takeBlock(100);
    EXPECT_EQ(units.offset(block), 0u);
    EXPECT_EQ(block.size, 100u);
    EXPECT_TRUE(block.used);
    EXPECT_EQ(block.frameSize, (Size{100, 1}));
    EXPECT_EQ(block.format, AV_PIX_FMT_GRAY8);
}

TEST(BestFitPictureAllocator, TheSameSizeInAnotherFormatIsAnotherShape) {
    Units units(1000);
    BestFitPictureAllocator& allocator = units.allocator();
    const MemBlock gray = allocator.findFreeBlock({10, 10}, AV_PIX_FMT_GRAY8);
    const MemBlock first = allocator.findFreeBlock({1, 1}, AV_PIX_FMT_GRAY8);
    const MemBlock palette = allocator.findFreeBlock({10, 10}, AV_PIX_FMT_RGB8);
    const MemBlock second = allocator.findFreeBlock({1, 1}, AV_PIX_FMT_GRAY8);
    allocator.deallocate(gray.data);
    allocator.deallocate(palette.data);
    ASSERT_EQ(gray.size, palette.size);
    EXPECT_EQ(allocator.findFreeBlock({10, 10}, AV_PIX_FMT_RGB8).data, palette.data);
    EXPECT_EQ(allocator.findFreeBlock({10, 10}, AV_PIX_FMT_RGB8).data, gray.data);
    EXPECT_EQ(units.offset(first), 100u);
    EXPECT_EQ(units.offset(second), 201u);
}

TEST(BestFitPictureAllocator, TheSameShapeBehindGoesBeforeTheSameSizeInFront) {
    Units units(1000);
    units.take(20, 5);
    units.take(1);
    units.take(100);
    units.take(1);
    units.give(0);
    units.give(101);
    EXPECT_EQ(units.take(100), 101u);
    EXPECT_EQ(units.take(100), 0u);
}

TEST(BestFitPictureAllocator, OfSeveralBlocksOfTheSameSizeTheFirstIsTaken) {
    Units units(1000);
    for (int i = 0; i < 5; ++i) {
        units.take(10);
    }
    units.give(30);
    units.give(10);
    EXPECT_EQ(units.take(5, 2), 10u);
    EXPECT_EQ(units.take(5, 2), 30u);
}

TEST(BestFitPictureAllocator, OfSeveralBlocksOfTheSameShapeTheFirstIsTaken) {
    Units units(1000);
    for (int i = 0; i < 5; ++i) {
        units.take(10);
    }
    units.give(30);
    units.give(10);
    EXPECT_EQ(units.take(10), 10u);
    EXPECT_EQ(units.take(10), 30u);
}

TEST(BestFitPictureAllocator, ABlockThatAlmostFitsIsLeftAloneWhileThereIsFreshSpace) {
    Units units(1000);
    units.take(101);
    units.take(1);
    units.give(0);
    EXPECT_EQ(units.take(100), 102u);
}

TEST(BestFitPictureAllocator, TheExactSizeGoesBeforeAnotherThatAlmostFits) {
    Units units(221);
    units.take(119);
    units.take(1);
    units.take(100);
    units.take(1);
    units.give(0);
    units.give(120);
    EXPECT_EQ(units.take(50, 2), 120u);
}

// What an exhausted region with free blocks of 110 and 300, say, answers a request.
struct ExhaustedRow {
    const char* name;
    std::vector<int> freeSizes;
    int request;
    std::uint64_t offset;
    std::uint64_t size;
};

class ExhaustedRegion : public testing::TestWithParam<ExhaustedRow> {};

TEST_P(ExhaustedRegion, GivesTheBlock) {
    const ExhaustedRow& row = GetParam();
    std::size_t total = 0;
    for (const int size : row.freeSizes) {
        total += static_cast<std::size_t>(size) + 1;
    }
    Units units(total);
    std::vector<std::uint64_t> offsets;
    for (const int size : row.freeSizes) {
        offsets.push_back(units.take(size));
        units.take(1);
    }
    for (const std::uint64_t offset : offsets) {
        units.give(offset);
    }
    const MemBlock block = units.takeBlock(row.request);
    EXPECT_EQ(units.offset(block), row.offset);
    EXPECT_EQ(block.size, row.size);
    EXPECT_TRUE(block.used);
    EXPECT_EQ(block.frameSize, (Size{row.request, 1}));
    EXPECT_EQ(block.format, AV_PIX_FMT_GRAY8);
}

INSTANTIATE_TEST_SUITE_P(
    All, ExhaustedRegion,
    testing::Values(ExhaustedRow{"SmallestThatWastesAFifthIsTakenWhole", {110, 300}, 100, 0, 110},
                    ExhaustedRow{"SmallestBehindTheLargest", {300, 110}, 100, 301, 110},
                    ExhaustedRow{"ExactlyAFifth", {120, 300}, 100, 0, 120},
                    ExhaustedRow{"MoreThanAFifthSplitsTheLargest", {121, 300}, 100, 122, 100},
                    ExhaustedRow{"AFifthIsRoundedDown", {122, 300}, 101, 123, 101},
                    ExhaustedRow{"AFifthRoundedDownIsAccepted", {121, 300}, 101, 0, 121},
                    ExhaustedRow{"TooSmallOnesAreNoCandidates", {99, 120, 300}, 100, 100, 120},
                    ExhaustedRow{"SoleCandidateIsSplitThoughItAlmostFits", {50, 110}, 100, 51, 100},
                    ExhaustedRow{"FirstOfTheSmallest", {300, 110, 110}, 100, 301, 110},
                    ExhaustedRow{"LastOfTheLargest", {300, 300, 200}, 100, 301, 100},
                    ExhaustedRow{"EqualOnesThatAlmostFit", {110, 110}, 100, 0, 110},
                    ExhaustedRow{"EqualOnesThatDoNot", {130, 130}, 100, 131, 100}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(BestFitPictureAllocator, ASplitLeavesTheRestAndTheSmallerBlockFree) {
    Units units(423);
    units.take(121);
    units.take(1);
    units.take(300);
    units.take(1);
    units.give(0);
    units.give(122);
    EXPECT_EQ(units.take(100), 122u);
    EXPECT_EQ(units.take(200), 222u);
    EXPECT_EQ(units.take(121), 0u);
    EXPECT_THROW(units.take(1), std::bad_alloc);
}

TEST(BestFitPictureAllocator, ASplitBlockAndItsRestJoinAgain) {
    Units units(301);
    units.take(300);
    units.take(1);
    units.give(0);
    EXPECT_EQ(units.take(100), 0u);
    units.give(0);
    EXPECT_EQ(units.take(300), 0u);
}

TEST(BestFitPictureAllocator, ASoleCandidateOfExactlyTheSizeLeavesARestOfNothing) {
    Units units(110);
    units.take(40);
    units.take(60);
    units.take(10);
    units.give(0);
    units.give(40);
    const MemBlock block = units.takeBlock(100);
    EXPECT_EQ(units.offset(block), 0u);
    EXPECT_EQ(block.size, 100u);
    // The remainder has the same address as the block after it, which its release must find.
    units.give(100);
    // The remainder was released with the topmost block: only the first is left.
    EXPECT_THROW_TEXT(std::runtime_error, kFreed, units.give(100));
    EXPECT_EQ(units.take(10), 100u);
    units.give(0);
    units.give(100);
    EXPECT_EQ(units.take(110), 0u);
}

TEST(BestFitPictureAllocator, ARestOfNothingIsANeighbourToJoinWith) {
    Units units(211);
    units.take(50, 2);
    units.take(1);
    units.take(40);
    units.take(60);
    units.take(10);
    units.give(101);
    units.give(141);
    EXPECT_EQ(units.take(100), 101u);
    units.give(101);
    units.give(0);
    EXPECT_THROW(units.take(150), std::bad_alloc);
    // Joined with its rest the block of this shape has lost it, so the first of the size is taken.
    EXPECT_EQ(units.take(100), 0u);
}

TEST(BestFitPictureAllocator, ABlockTakenWholeIsReusedWholeByItsShape) {
    Units units(412);
    units.take(110);
    units.take(1);
    units.take(300);
    units.take(1);
    units.give(0);
    units.give(111);
    ASSERT_EQ(units.take(100), 0u);
    units.give(0);
    const MemBlock block = units.takeBlock(100);
    EXPECT_EQ(units.offset(block), 0u);
    EXPECT_EQ(block.size, 110u);
}

// ---- joining

MemBlock blockAt(std::uint8_t* data, std::uint64_t size, bool used, int width) {
    return {data, size, used, {width, 1}, AV_PIX_FMT_GRAY8};
}

TEST(BestFitPictureAllocator, EachRunOfFreeBlocksIsJoinedIntoItsFirst) {
    std::uint8_t memory[100];
    // f free, F joined, u used: u ff u f u fff
    std::vector<MemBlock> blocks = {
        blockAt(memory, 10, true, 1),       blockAt(memory + 10, 10, false, 2),
        blockAt(memory + 20, 20, false, 3), blockAt(memory + 40, 10, true, 4),
        blockAt(memory + 50, 10, false, 5), blockAt(memory + 60, 10, true, 6),
        blockAt(memory + 70, 0, false, 7),  blockAt(memory + 70, 20, false, 8),
        blockAt(memory + 90, 10, false, 9),
    };
    BestFitPictureAllocator::mergeFreeBlocks(blocks);
    struct Row {
        int offset;
        std::uint64_t size;
        bool used;
        Size frameSize;
        AVPixelFormat format;
    };
    const std::vector<Row> expected = {
        {0, 10, true, {1, 1}, AV_PIX_FMT_GRAY8},  {10, 30, false, {0, 0}, AV_PIX_FMT_NONE},
        {40, 10, true, {4, 1}, AV_PIX_FMT_GRAY8}, {50, 10, false, {5, 1}, AV_PIX_FMT_GRAY8},
        {60, 10, true, {6, 1}, AV_PIX_FMT_GRAY8}, {70, 30, false, {0, 0}, AV_PIX_FMT_NONE},
    };
    ASSERT_EQ(blocks.size(), expected.size());
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(blocks[i].data, memory + expected[i].offset);
        EXPECT_EQ(blocks[i].size, expected[i].size);
        EXPECT_EQ(blocks[i].used, expected[i].used);
        EXPECT_EQ(blocks[i].frameSize, expected[i].frameSize);
        EXPECT_EQ(blocks[i].format, expected[i].format);
    }
}

TEST(BestFitPictureAllocator, JoiningNothingIsHarmless) {
    std::vector<MemBlock> blocks;
    BestFitPictureAllocator::mergeFreeBlocks(blocks);
    EXPECT_TRUE(blocks.empty());
}

}  // namespace
}  // namespace vidorra::test
