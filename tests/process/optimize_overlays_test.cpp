#include "vidorra/process/optimize_overlays.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <new>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "vidorra/core/enum_text.h"
#include "vidorra/process/compose.h"

namespace {

// Calls of operator new that still succeed; not limited while negative.
int newCallsLeft = -1;

void* allocate(std::size_t size) {
    if (newCallsLeft == 0) {
        throw std::bad_alloc();
    }
    newCallsLeft -= newCallsLeft > 0 ? 1 : 0;
    void* memory = std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

}  // namespace

void* operator new(std::size_t size) {
    return allocate(size);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace vidorra {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

using Overlays = std::vector<VideoFrame>;

// A frame in these tests: its area, and the number of the frame that it came from.
struct Piece {
    std::int64_t id;
    Rect rect;

    friend bool operator==(const Piece& a, const Piece& b) { return a.id == b.id && a.rect == b.rect; }
    friend std::ostream& operator<<(std::ostream& stream, const Piece& piece) {
        return stream << "frame " << piece.id << " at " << piece.rect;
    }
};

std::vector<Piece> pieces(const Overlays& overlays) {
    std::vector<Piece> result;
    for (const VideoFrame& frame : overlays) {
        const Size size = frame.picture().frameSize();
        result.push_back(
            {frame.timestamp().value, {frame.position().x, frame.position().y, size.width, size.height}});
    }
    return result;
}

class OptimizeOverlays : public testing::Test {
protected:
    Picture picture(AVPixelFormat format, int width, int height) {
        Picture result(Size{width, height}, format, AVCOL_RANGE_MPEG, 1);
        for (std::size_t plane = 0; plane < 4; ++plane) {
            if (result.data()[plane] == nullptr) {
                continue;
            }
            const int rows = plane == 1 || plane == 2 ? (height + 1) / 2 : height;
            for (int i = 0; i < rows * result.linesize()[plane]; ++i) {
                result.data()[plane][i] = static_cast<std::uint8_t>(mRandom());
            }
        }
        return result;
    }

    // A frame with random pixels, whose time stamp is its number.
    VideoFrame frame(std::int64_t id, Rect rect, AVPixelFormat format = AV_PIX_FMT_RGB24) {
        VideoFrame result(picture(format, rect.width, rect.height), Timestamp({1, 1000}, id),
                          Frame::LastFrame);
        result.setPosition({rect.x, rect.y});
        result.metadata().addValue(
            "name", "a name that does not fit into a string object: frame " + std::to_string(id));
        return result;
    }

    // Random rectangles on a canvas of 160x120, some of them partly or wholly outside.
    Overlays randomFrames(int count, AVPixelFormat format, int grid, int largest) {
        Overlays overlays;
        const auto pick = [&](int from, int to) {
            return (from + static_cast<int>(mRandom() % static_cast<unsigned>(to - from))) / grid * grid;
        };
        for (int i = 0; i < count; ++i) {
            overlays.push_back(
                frame(i, {pick(-20, 150), pick(-20, 120), pick(grid, largest), pick(grid, largest)}, format));
        }
        return overlays;
    }

    // All bytes of a canvas on which a list has been drawn.
    static std::vector<std::uint8_t> draw(const Overlays& overlays, AVPixelFormat format) {
        Picture canvas(Size{160, 120}, format, AVCOL_RANGE_MPEG, 1);
        std::vector<std::uint8_t> bytes;
        for (std::size_t plane = 0; plane < 4; ++plane) {
            const int rows = plane == 1 || plane == 2 ? 60 : 120;
            if (canvas.data()[plane] != nullptr) {
                std::memset(
                    canvas.data()[plane], 99,
                    static_cast<std::size_t>(rows) * static_cast<std::size_t>(canvas.linesize()[plane]));
            }
        }
        for (const VideoFrame& overlay : overlays) {
            compose(canvas, overlay.picture(), overlay.position(), CheckColorRange::Yes, 1.0, 1);
        }
        for (std::size_t plane = 0; plane < 4; ++plane) {
            const int rows = plane == 1 || plane == 2 ? 60 : 120;
            if (const std::uint8_t* data = canvas.data()[plane]; data != nullptr) {
                bytes.insert(bytes.end(), data, data + rows * canvas.linesize()[plane]);
            }
        }
        return bytes;
    }

    // Optimises, and expects the same picture as before.
    static Overlays optimized(const Overlays& overlays, unsigned minimumOverlapArea,
                              AVPixelFormat canvas = AV_PIX_FMT_RGB24) {
        Overlays result = overlays;
        optimizeOverlays(result, minimumOverlapArea);
        EXPECT_EQ(draw(result, canvas), draw(overlays, canvas));
        return result;
    }

    // One step, which draws the same picture as before.
    static Overlays cutOnce(const Overlays& overlays, unsigned minimumOverlapArea) {
        Overlays result = handleOneOverlap(overlays, minimumOverlapArea);
        EXPECT_FALSE(result.empty());
        EXPECT_EQ(draw(result, AV_PIX_FMT_RGB24), draw(overlays, AV_PIX_FMT_RGB24));
        return result;
    }

    // By the definition: one step after the other until there is none.
    static Overlays optimizedInSteps(Overlays overlays, unsigned minimumOverlapArea) {
        for (;;) {
            Overlays next = handleOneOverlap(overlays, minimumOverlapArea);
            if (next.empty()) {
                return overlays;
            }
            overlays.swap(next);
        }
    }

    std::mt19937 mRandom{11};
};

using HandleOneOverlap = OptimizeOverlays;
using VideoFrameCrop = OptimizeOverlays;
using VideoFrameSubtract = OptimizeOverlays;

TEST_F(VideoFrameCrop, GivesThePartOfTheCanvasAsAViewAtItsPlace) {
    const VideoFrame whole = frame(7, {10, 20, 30, 40});
    const VideoFrame part = whole.crop({15, 0, 100, 33});
    EXPECT_THAT(pieces({part}), ElementsAre(Piece{7, {15, 20, 25, 13}}));
    EXPECT_EQ(part.picture().data()[0], whole.picture().data()[0] + 3 * 5);
    EXPECT_EQ(part.picture().linesize(), whole.picture().linesize());
    EXPECT_EQ(part.picture().pixelFormat(), AV_PIX_FMT_RGB24);
    EXPECT_EQ(part.picture().colorRange(), AVCOL_RANGE_MPEG);
    EXPECT_FALSE(whole.picture().editable());
}

TEST_F(VideoFrameCrop, KeepsTimeStampFlagsAndMetadata) {
    const VideoFrame part = frame(7, {0, 0, 8, 8}).crop({2, 2, 2, 2});
    EXPECT_EQ(part.timestamp().timebase, (Timebase{1, 1000}));
    EXPECT_EQ(part.timestamp().value, 7);
    EXPECT_FALSE(part.timestamp().isNull);
    EXPECT_EQ(part.flags(), Frame::LastFrame);
    EXPECT_EQ(part.metadata().getValue("name"), "a name that does not fit into a string object: frame 7");
}

TEST_F(VideoFrameCrop, LeavesSideDataBehind) {
    VideoFrame whole = frame(7, {0, 0, 8, 8});
    whole.addSideData(SMPTE12Timecode(1, 2, 3, 4, false, {25, 1}));
    ASSERT_EQ(whole.sideData().size(), 1U);
    EXPECT_THAT(whole.crop({2, 2, 2, 2}).sideData(), IsEmpty());
    EXPECT_THAT(whole.crop({0, 0, 8, 8}).sideData(), IsEmpty());
    for (const VideoFrame& part : whole.subtract({2, 2, 2, 2})) {
        EXPECT_THAT(part.sideData(), IsEmpty());
    }
    // A frame that is not cut keeps its own.
    const Overlays rest = handleOneOverlap({frame(1, {0, 0, 4, 4}), whole}, 0);
    ASSERT_THAT(rest, SizeIs(1));
    EXPECT_THAT(rest[0].sideData(), SizeIs(1));
}

TEST_F(VideoFrameCrop, GivesAnEmptyFrameOutsideAndAtAnEdgeThatTouches) {
    const VideoFrame whole = frame(7, {10, 20, 30, 40});
    for (const Rect& rect : {Rect{0, 0, 5, 5}, Rect{0, 20, 10, 40}, Rect{40, 20, 5, 40}, Rect{10, 60, 30, 1},
                             Rect{10, 20, 0, 5}, Rect{}}) {
        const VideoFrame part = whole.crop(rect);
        EXPECT_TRUE(part.empty()) << rect;
        EXPECT_TRUE(part.timestamp().isNull);
        EXPECT_EQ(part.timestamp().value, 0);
        EXPECT_EQ(part.flags(), Frame::NoFlags);
        EXPECT_FALSE(part.metadata().hasKey("name"));
        EXPECT_EQ(part.position(), (Point{0, 0}));
        EXPECT_EQ(part.picture().frameSize(), (Size{0, 0}));
    }
}

TEST_F(VideoFrameCrop, RoundsPlaceAndSizeDownToWholeChromaSamplesOfThePicture) {
    const VideoFrame nv12 = frame(1, {11, 21, 20, 20}, AV_PIX_FMT_NV12);
    // Columns 3 to 9 and rows 5 to 11 of the picture.
    const VideoFrame part = nv12.crop({14, 26, 7, 7});
    EXPECT_THAT(pieces({part}), ElementsAre(Piece{1, {13, 25, 6, 6}}));
    EXPECT_EQ(part.picture().data()[0], nv12.picture().data()[0] + 4 * 20 + 2);
    EXPECT_EQ(part.picture().data()[1], nv12.picture().data()[1] + 2 * 20 + 2);
    // Only what the format asks for: NV16 has whole rows of chroma.
    EXPECT_THAT(pieces({frame(2, {0, 0, 20, 20}, AV_PIX_FMT_NV16).crop({3, 5, 7, 7})}),
                ElementsAre(Piece{2, {2, 5, 6, 7}}));
}

TEST_F(VideoFrameCrop, GivesAPieceOfOneRowOrColumnNoPixelsButAPlace) {
    const VideoFrame nv12 = frame(1, {0, 0, 20, 20}, AV_PIX_FMT_NV12);
    const VideoFrame column = nv12.crop({5, 0, 1, 20});
    EXPECT_THAT(pieces({column}), ElementsAre(Piece{1, {4, 0, 0, 0}}));
    EXPECT_FALSE(column.empty());
    EXPECT_THAT(pieces({nv12.crop({0, 7, 20, 1})}), ElementsAre(Piece{1, {0, 6, 0, 0}}));
}

TEST_F(VideoFrameCrop, RefusesAPartOfAPictureWithoutAFormat) {
    const Picture whole = picture(AV_PIX_FMT_RGB24, 8, 8);
    const VideoFrame unknown(Picture(MemBuffer(), {8, 8}, whole.data().data(), whole.linesize().data(),
                                     AV_PIX_FMT_NONE, AVCOL_RANGE_MPEG),
                             Timestamp(), Frame::NoFlags);
    EXPECT_THROW((void)unknown.crop({0, 0, 4, 4}), std::invalid_argument);
    EXPECT_EQ(unknown.crop({0, 0, 8, 8}).picture().frameSize(), (Size{8, 8}));
}

TEST_F(VideoFrameSubtract, GivesTopLeftRightAndBottomAroundAHoleInTheMiddle) {
    const VideoFrame whole = frame(3, {10, 20, 30, 40});
    const Overlays parts = whole.subtract({15, 27, 8, 11});
    EXPECT_THAT(pieces(parts), ElementsAre(Piece{3, {10, 20, 30, 7}}, Piece{3, {10, 27, 5, 11}},
                                           Piece{3, {23, 27, 17, 11}}, Piece{3, {10, 38, 30, 22}}));
    for (const VideoFrame& part : parts) {
        EXPECT_EQ(part.metadata().getValue("name"), whole.metadata().getValue("name"));
        EXPECT_EQ(part.flags(), whole.flags());
    }
}

TEST_F(VideoFrameSubtract, LeavesOutSidesWithNothingLeft) {
    const VideoFrame whole = frame(3, {10, 20, 30, 40});
    EXPECT_THAT(pieces(whole.subtract({0, 0, 20, 30})),
                ElementsAre(Piece{3, {20, 20, 20, 10}}, Piece{3, {10, 30, 30, 30}}));
    EXPECT_THAT(pieces(whole.subtract({30, 50, 100, 100})),
                ElementsAre(Piece{3, {10, 20, 30, 30}}, Piece{3, {10, 50, 20, 10}}));
    EXPECT_THAT(pieces(whole.subtract({0, 30, 100, 10})),
                ElementsAre(Piece{3, {10, 20, 30, 10}}, Piece{3, {10, 40, 30, 20}}));
    EXPECT_THAT(pieces(whole.subtract({20, 0, 5, 100})),
                ElementsAre(Piece{3, {10, 20, 10, 40}}, Piece{3, {25, 20, 15, 40}}));
}

TEST_F(VideoFrameSubtract, GivesNothingForARectangleThatCoversAll) {
    const VideoFrame whole = frame(3, {10, 20, 30, 40});
    EXPECT_THAT(whole.subtract({10, 20, 30, 40}), IsEmpty());
    EXPECT_THAT(whole.subtract({-100, -100, 1000, 1000}), IsEmpty());
}

TEST_F(VideoFrameSubtract, GivesNothingForARectangleThatMisses) {
    const VideoFrame whole = frame(3, {10, 20, 30, 40});
    EXPECT_THAT(whole.subtract({0, 0, 5, 5}), IsEmpty());
    EXPECT_THAT(whole.subtract({40, 20, 30, 40}), IsEmpty());
    EXPECT_THAT(whole.subtract({10, 0, 30, 20}), IsEmpty());
    EXPECT_THAT(VideoFrame().subtract({0, 0, 5, 5}), IsEmpty());
}

TEST_F(VideoFrameSubtract, HasRoomForFourPartsAtOnce) {
    EXPECT_EQ(frame(3, {10, 20, 30, 40}).subtract({10, 20, 30, 10}).capacity(), 4U);
}

TEST_F(VideoFrameSubtract, ReachesToTheLimitsOfCoordinates) {
    VideoFrame whole = frame(3, {0, 0, 30, 40});
    whole.setPosition({INT32_MAX - 10, INT32_MIN});
    EXPECT_THAT(pieces(whole.subtract({INT32_MAX - 5, INT32_MIN, 2, 40})),
                ElementsAre(Piece{3, {INT32_MAX - 10, INT32_MIN, 5, 40}},
                            Piece{3, {INT32_MAX - 3, INT32_MIN, 23, 40}}));
}

TEST_F(HandleOneOverlap, HasNothingToDoWithoutAnOverlap) {
    EXPECT_THAT(handleOneOverlap({}, 0), IsEmpty());
    EXPECT_THAT(handleOneOverlap({frame(1, {0, 0, 9, 9})}, 0), IsEmpty());
    // Edges that touch are no overlap.
    EXPECT_THAT(
        handleOneOverlap({frame(1, {0, 0, 9, 9}), frame(2, {9, 0, 9, 9}), frame(3, {0, 9, 18, 9})}, 0),
        IsEmpty());
    EXPECT_THAT(handleOneOverlap({VideoFrame(), frame(1, {0, 0, 9, 9}), VideoFrame()}, 0), IsEmpty());
}

TEST_F(HandleOneOverlap, CutsTheFirstFrameThatHasOneByTheFirstThatLiesOverIt) {
    const Overlays overlays = {frame(0, {100, 100, 5, 5}), frame(1, {0, 0, 40, 40}),
                               frame(2, {30, 0, 40, 40}), frame(3, {0, 30, 40, 40}),
                               frame(4, {100, 0, 10, 10})};
    const Overlays first = cutOnce(overlays, 0);
    EXPECT_THAT(pieces(first),
                ElementsAre(Piece{0, {100, 100, 5, 5}}, Piece{1, {0, 0, 30, 40}}, Piece{2, {30, 0, 40, 40}},
                            Piece{3, {0, 30, 40, 40}}, Piece{4, {100, 0, 10, 10}}));
    const Overlays second = cutOnce(first, 0);
    EXPECT_THAT(pieces(second),
                ElementsAre(Piece{0, {100, 100, 5, 5}}, Piece{1, {0, 0, 30, 30}}, Piece{2, {30, 0, 40, 40}},
                            Piece{3, {0, 30, 40, 40}}, Piece{4, {100, 0, 10, 10}}));
    const Overlays third = cutOnce(second, 0);
    EXPECT_THAT(pieces(third), ElementsAre(Piece{0, {100, 100, 5, 5}}, Piece{1, {0, 0, 30, 30}},
                                           Piece{2, {30, 0, 40, 30}}, Piece{2, {40, 30, 30, 10}},
                                           Piece{3, {0, 30, 40, 40}}, Piece{4, {100, 0, 10, 10}}));
    EXPECT_THAT(handleOneOverlap(third, 0), IsEmpty());
    // The input list is unchanged, and pixels are shared.
    EXPECT_THAT(overlays, SizeIs(5));
    EXPECT_EQ(third[1].picture().data()[0], overlays[1].picture().data()[0]);
}

TEST_F(HandleOneOverlap, RemovesAFrameThatIsCovered) {
    const Overlays overlays = {frame(1, {10, 10, 20, 20}), frame(2, {0, 0, 40, 40})};
    EXPECT_THAT(pieces(cutOnce(overlays, 0)), ElementsAre(Piece{2, {0, 0, 40, 40}}));
    const Overlays equal = {frame(1, {10, 10, 20, 20}), frame(2, {10, 10, 20, 20})};
    EXPECT_THAT(pieces(cutOnce(equal, 400)), ElementsAre(Piece{2, {10, 10, 20, 20}}));
}

TEST_F(HandleOneOverlap, NeverCutsALaterFrame) {
    const Overlays overlays = {frame(1, {10, 10, 20, 20}), frame(2, {0, 0, 60, 15})};
    EXPECT_THAT(pieces(cutOnce(overlays, 0)),
                ElementsAre(Piece{1, {10, 15, 20, 15}}, Piece{2, {0, 0, 60, 15}}));
}

TEST_F(HandleOneOverlap, CutsOverlapsOfTheThresholdAndNoSmallerOnes) {
    // 6 by 7 pixels in common.
    const Overlays overlays = {frame(1, {0, 0, 20, 20}), frame(2, {14, 13, 20, 20})};
    EXPECT_THAT(cutOnce(overlays, 42), SizeIs(3));
    EXPECT_THAT(handleOneOverlap(overlays, 43), IsEmpty());
    EXPECT_THAT(cutOnce(overlays, 0), SizeIs(3));
    EXPECT_THAT(handleOneOverlap(overlays, UINT32_MAX), IsEmpty());
}

TEST_F(HandleOneOverlap, PassesOverFramesWithAlphaOnEitherSide) {
    for (const auto& [below, above] :
         {std::pair{AV_PIX_FMT_NV12, NVA12}, {NVA12, AV_PIX_FMT_NV12}, {NVA12, NVA12}}) {
        const Overlays overlays = {frame(1, {0, 0, 40, 40}, below), frame(2, {0, 0, 60, 60}, above)};
        EXPECT_THAT(handleOneOverlap(overlays, 0), IsEmpty());
        EXPECT_EQ(pieces(optimized(overlays, 0, AV_PIX_FMT_NV12)), pieces(overlays));
    }
    // The opaque one after the one with alpha is found.
    const Overlays overlays = {frame(1, {0, 0, 40, 40}, AV_PIX_FMT_NV12), frame(2, {0, 0, 60, 60}, NVA12),
                               frame(3, {20, 0, 40, 40}, AV_PIX_FMT_NV12)};
    EXPECT_THAT(pieces(optimized(overlays, 0, AV_PIX_FMT_NV12)),
                ElementsAre(Piece{1, {0, 0, 20, 40}}, Piece{2, {0, 0, 60, 60}}, Piece{3, {20, 0, 40, 40}}));
}

TEST_F(HandleOneOverlap, TakesAreasThatWrapAt32Bits) {
    // No memory is read.
    const auto huge = [](int width, int height, int x) {
        std::uint8_t* const planes[4] = {};
        const int linesizes[4] = {width};
        VideoFrame result(
            Picture(MemBuffer(), {width, height}, planes, linesizes, AV_PIX_FMT_GRAY8, AVCOL_RANGE_MPEG),
            Timestamp(), Frame::NoFlags);
        result.setPosition({x, 0});
        return result;
    };
    // 65536 by 65536 pixels in common count as 0.
    EXPECT_THAT(handleOneOverlap({huge(65536, 65536, 0), huge(65536, 65536, 0)}, 1), IsEmpty());
    EXPECT_THAT(pieces(handleOneOverlap({huge(65536, 65536, 0), huge(65536, 65536, 0)}, 0)), SizeIs(1));
    // The first passes over the second, until the third has cut that down to an area that does not wrap.
    Overlays overlays = {huge(65536, 65536, 0), huge(131072, 65536, 0), huge(10000, 65536, 65400)};
    const auto expected = pieces(optimizedInSteps(overlays, 50000000));
    optimizeOverlays(overlays, 50000000);
    EXPECT_THAT(expected,
                ElementsAre(Piece{0, {65400, 0, 136, 65536}}, Piece{0, {0, 0, 65400, 65536}},
                            Piece{0, {75400, 0, 55672, 65536}}, Piece{0, {65400, 0, 10000, 65536}}));
    EXPECT_EQ(pieces(overlays), expected);
}

TEST_F(OptimizeOverlays, LeavesListsWithoutOverlapsAlone) {
    for (const Overlays& overlays :
         {Overlays{}, Overlays{frame(1, {0, 0, 9, 9})},
          Overlays{frame(1, {0, 0, 9, 9}), frame(2, {9, 0, 9, 9}), frame(3, {50, 60, 9, 9})}}) {
        EXPECT_EQ(pieces(optimized(overlays, 0)), pieces(overlays));
    }
}

TEST_F(OptimizeOverlays, PutsFourPiecesInThePlaceOfAFrameWithAHole) {
    const Overlays overlays = {frame(0, {120, 100, 10, 10}), frame(1, {0, 0, 100, 100}),
                               frame(2, {30, 40, 20, 10}), frame(3, {130, 0, 10, 10})};
    EXPECT_THAT(pieces(optimized(overlays, 0)),
                ElementsAre(Piece{0, {120, 100, 10, 10}}, Piece{1, {0, 0, 100, 40}},
                            Piece{1, {0, 40, 30, 10}}, Piece{1, {50, 40, 50, 10}}, Piece{1, {0, 50, 100, 50}},
                            Piece{2, {30, 40, 20, 10}}, Piece{3, {130, 0, 10, 10}}));
}

TEST_F(OptimizeOverlays, CutsPiecesAgain) {
    const Overlays overlays = {frame(1, {0, 0, 90, 10}), frame(2, {20, 0, 10, 10}),
                               frame(3, {60, 0, 10, 10})};
    EXPECT_THAT(pieces(optimized(overlays, 0)),
                ElementsAre(Piece{1, {0, 0, 20, 10}}, Piece{1, {30, 0, 30, 10}}, Piece{1, {70, 0, 20, 10}},
                            Piece{2, {20, 0, 10, 10}}, Piece{3, {60, 0, 10, 10}}));
}

TEST_F(OptimizeOverlays, KeepsPiecesThatWereRoundedToNothing) {
    // All but the last column is hidden, which has no chroma of its own and is never drawn.
    const Overlays overlays = {frame(1, {0, 0, 21, 20}, AV_PIX_FMT_NV12),
                               frame(2, {0, 0, 20, 20}, AV_PIX_FMT_NV12)};
    EXPECT_THAT(pieces(optimized(overlays, 0, AV_PIX_FMT_NV12)),
                ElementsAre(Piece{1, {20, 0, 0, 0}}, Piece{2, {0, 0, 20, 20}}));
}

TEST_F(OptimizeOverlays, KeepsWhatStaysVisibleWhereAnOddFrameIsMovedToWholeChromaSamples) {
    // compose() draws the second one at -2.
    const Overlays overlays = {frame(1, {0, 0, 20, 20}, AV_PIX_FMT_NV12),
                               frame(2, {-1, 0, 20, 20}, AV_PIX_FMT_NV12)};
    EXPECT_THAT(pieces(optimized(overlays, 0, AV_PIX_FMT_NV12)),
                ElementsAre(Piece{1, {18, 0, 2, 20}}, Piece{2, {-1, 0, 20, 20}}));
}

TEST_F(OptimizeOverlays, LeavesEveryVisiblePixelToOnePieceOfItsTopmostFrame) {
    for (int round = 0; round < 20; ++round) {
        const Overlays overlays = randomFrames(25, AV_PIX_FMT_RGB24, 1, 60);
        std::map<std::pair<int, int>, std::int64_t> topmost;
        for (const Piece& piece : pieces(overlays)) {
            for (int y = piece.rect.y; y < piece.rect.y + piece.rect.height; ++y) {
                for (int x = piece.rect.x; x < piece.rect.x + piece.rect.width; ++x) {
                    topmost[{x, y}] = piece.id;
                }
            }
        }
        std::size_t pixels = 0;
        std::int64_t lastId = 0;
        for (const Piece& piece : pieces(optimized(overlays, 0))) {
            // In the order of their original frames.
            ASSERT_LE(lastId, piece.id);
            lastId = piece.id;
            for (int y = piece.rect.y; y < piece.rect.y + piece.rect.height; ++y) {
                for (int x = piece.rect.x; x < piece.rect.x + piece.rect.width; ++x) {
                    ASSERT_EQ((topmost.at({x, y})), piece.id) << x << ", " << y;
                    ++pixels;
                }
            }
        }
        ASSERT_EQ(pixels, topmost.size());
    }
}

struct DrawRow {
    const char* name;
    AVPixelFormat canvas;
    AVPixelFormat withAlpha;
    int grid;
};

class OptimizedOverlaysOf : public OptimizeOverlays, public testing::WithParamInterface<DrawRow> {};

INSTANTIATE_TEST_SUITE_P(
    , OptimizedOverlaysOf,
    testing::Values(
        DrawRow{.name = "Rgb24", .canvas = AV_PIX_FMT_RGB24, .withAlpha = AV_PIX_FMT_NONE, .grid = 1},
        DrawRow{.name = "Gray8", .canvas = AV_PIX_FMT_GRAY8, .withAlpha = AV_PIX_FMT_NONE, .grid = 1},
        DrawRow{.name = "Yuv420p", .canvas = AV_PIX_FMT_YUV420P, .withAlpha = AV_PIX_FMT_NONE, .grid = 2},
        DrawRow{.name = "Nv12AndNva12", .canvas = AV_PIX_FMT_NV12, .withAlpha = NVA12, .grid = 2}),
    [](const auto& each) { return std::string(each.param.name); });

TEST_P(OptimizedOverlaysOf, DrawTheSamePictureAndAreWhatSingleStepsGive) {
    for (const unsigned threshold : {0U, 1U, 50U, 300U, 2000U}) {
        for (int round = 0; round < 4; ++round) {
            Overlays overlays = randomFrames(18, GetParam().canvas, GetParam().grid, 60);
            if (GetParam().withAlpha != AV_PIX_FMT_NONE) {
                const Overlays others = randomFrames(18, GetParam().withAlpha, GetParam().grid, 60);
                for (std::size_t i = 0; i < overlays.size(); i += 3) {
                    overlays[i] = others[i];
                }
            }
            const Overlays result = optimized(overlays, threshold, GetParam().canvas);
            ASSERT_EQ(pieces(result), pieces(optimizedInSteps(overlays, threshold)));
            ASSERT_FALSE(HasFailure());
        }
    }
}

TEST_F(OptimizeOverlays, TakeTheStepsOneByOneAlsoWhereOddRectanglesAreRounded) {
    for (int round = 0; round < 20; ++round) {
        const Overlays overlays = randomFrames(12, AV_PIX_FMT_NV12, 1, 60);
        Overlays result = overlays;
        optimizeOverlays(result, 0);
        ASSERT_EQ(pieces(result), pieces(optimizedInSteps(overlays, 0)));
    }
}

TEST_F(OptimizeOverlays, HandlesTwoHundredFrames) {
    const Overlays overlays = randomFrames(200, AV_PIX_FMT_RGB24, 1, 60);
    const Overlays result = optimized(overlays, 0);
    EXPECT_THAT(handleOneOverlap(result, 0), IsEmpty());
}

TEST_F(OptimizeOverlays, StaysAtAWholeStepWhenThereIsNoMemory) {
    const Overlays overlays = {frame(1, {0, 0, 90, 90}), frame(2, {10, 10, 30, 30}),
                               frame(3, {20, 20, 40, 40}), frame(4, {30, 5, 10, 80})};
    std::vector<std::vector<Piece>> steps = {pieces(overlays)};
    for (Overlays next = handleOneOverlap(overlays, 0); !next.empty(); next = handleOneOverlap(next, 0)) {
        steps.push_back(pieces(next));
    }
    ASSERT_GT(steps.size(), 4U);
    std::size_t furthest = 0;
    int failures = 0;
    for (int calls = 0;; ++calls) {
        Overlays result = overlays;
        bool failed = false;
        newCallsLeft = calls;
        try {
            optimizeOverlays(result, 0);
        } catch (const std::bad_alloc&) {
            failed = true;
        }
        newCallsLeft = -1;
        const auto step = std::find(steps.begin(), steps.end(), pieces(result));
        ASSERT_NE(step, steps.end()) << "after " << calls << " calls";
        ASSERT_GE(static_cast<std::size_t>(step - steps.begin()), furthest);
        furthest = static_cast<std::size_t>(step - steps.begin());
        if (!failed) {
            break;
        }
        ++failures;
    }
    EXPECT_EQ(furthest, steps.size() - 1);
    EXPECT_GT(failures, 10);
}

}  // namespace
}  // namespace vidorra
