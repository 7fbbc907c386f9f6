// The calls of Scaler to libswscale and to its allocator, and their order: the linker redirects them here.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "support/counted_marks.h"
#include "vidorra/picture/default_picture_allocator.h"
#include "vidorra/process/color_space_converter.h"
#include "vidorra/process/scaler.h"

extern "C" {
#include <libswscale/swscale.h>
}

namespace vidorra::test {
namespace {

// The present and the new range details of a context.
struct Details {
    int* inverseTable;
    int srcFull;
    int* table;
    int dstFull;
    int brightness;
    int contrast;
    int saturation;

    friend bool operator==(const Details&, const Details&) = default;
};

struct SwsCalls {
    std::vector<std::string> order;

    // sws_getCachedContext().
    SwsContext* given = nullptr;
    SwsContext* made = nullptr;
    std::vector<int> shape;
    bool plain = false;
    bool withoutContext = false;

    // sws_getColorspaceDetails() and sws_setColorspaceDetails().
    bool scripted = false;
    bool readFails = false;
    Details present{};
    Details wanted{};

    // sws_scale().
    const std::uint8_t* const* src = nullptr;
    std::uint8_t* firstRow = nullptr;
    int firstSourceRow = -1;
    int sourceRows = -1;
    bool scaleFails = false;

    SwsContext* freed = nullptr;
};

SwsCalls& swsCalls() {
    static SwsCalls calls;
    return calls;
}

}  // namespace
}  // namespace vidorra::test

using vidorra::test::swsCalls;

extern "C" {

decltype(sws_getCachedContext) __real_sws_getCachedContext;
decltype(sws_getCachedContext) __wrap_sws_getCachedContext;
SwsContext* __wrap_sws_getCachedContext(SwsContext* context, int srcWidth, int srcHeight,
                                        AVPixelFormat srcFormat, int dstWidth, int dstHeight,
                                        AVPixelFormat dstFormat, int flags, SwsFilter* srcFilter,
                                        SwsFilter* dstFilter, const double* parameters) {
    swsCalls().order.emplace_back("context");
    swsCalls().given = context;
    swsCalls().shape = {srcWidth, srcHeight, srcFormat, dstWidth, dstHeight, dstFormat, flags};
    swsCalls().plain = srcFilter == nullptr && dstFilter == nullptr && parameters == nullptr;
    if (swsCalls().withoutContext) {
        sws_freeContext(context);
        swsCalls().made = nullptr;
    } else {
        swsCalls().made = __real_sws_getCachedContext(context, srcWidth, srcHeight, srcFormat, dstWidth,
                                                      dstHeight, dstFormat, flags, nullptr, nullptr, nullptr);
    }
    return swsCalls().made;
}

decltype(sws_getColorspaceDetails) __real_sws_getColorspaceDetails;
decltype(sws_getColorspaceDetails) __wrap_sws_getColorspaceDetails;
int __wrap_sws_getColorspaceDetails(SwsContext* context, int** inverseTable, int* srcFull, int** table,
                                    int* dstFull, int* brightness, int* contrast, int* saturation) {
    swsCalls().order.emplace_back("read");
    if (swsCalls().readFails) {
        return -1;
    }
    if (!swsCalls().scripted) {
        return __real_sws_getColorspaceDetails(context, inverseTable, srcFull, table, dstFull, brightness,
                                               contrast, saturation);
    }
    const auto& present = swsCalls().present;
    *inverseTable = present.inverseTable;
    *srcFull = present.srcFull;
    *table = present.table;
    *dstFull = present.dstFull;
    *brightness = present.brightness;
    *contrast = present.contrast;
    *saturation = present.saturation;
    return 0;
}

decltype(sws_setColorspaceDetails) __real_sws_setColorspaceDetails;
decltype(sws_setColorspaceDetails) __wrap_sws_setColorspaceDetails;
int __wrap_sws_setColorspaceDetails(SwsContext* context, const int inverseTable[4], int srcFull,
                                    const int table[4], int dstFull, int brightness, int contrast,
                                    int saturation) {
    swsCalls().order.emplace_back("write");
    swsCalls().wanted = {const_cast<int*>(inverseTable),
                         srcFull,
                         const_cast<int*>(table),
                         dstFull,
                         brightness,
                         contrast,
                         saturation};
    return swsCalls().scripted ? 0
                               : __real_sws_setColorspaceDetails(context, inverseTable, srcFull, table,
                                                                 dstFull, brightness, contrast, saturation);
}

decltype(sws_scale) __real_sws_scale;
decltype(sws_scale) __wrap_sws_scale;
int __wrap_sws_scale(SwsContext* context, const std::uint8_t* const src[], const int srcStride[],
                     int firstRow, int rows, std::uint8_t* const dst[], const int dstStride[]) {
    swsCalls().order.emplace_back("scale");
    swsCalls().src = src;
    swsCalls().firstRow = dst[0];
    swsCalls().firstSourceRow = firstRow;
    swsCalls().sourceRows = rows;
    return swsCalls().scaleFails ? -1
                                 : __real_sws_scale(context, src, srcStride, firstRow, rows, dst, dstStride);
}

decltype(sws_freeContext) __real_sws_freeContext;
decltype(sws_freeContext) __wrap_sws_freeContext;
void __wrap_sws_freeContext(SwsContext* context) {
    if (context != nullptr) {
        swsCalls().order.emplace_back("free");
        swsCalls().freed = context;
    }
    __real_sws_freeContext(context);
}

}  // extern "C"

namespace vidorra::test {
namespace {

constexpr AVColorRange kLimited = AVCOL_RANGE_MPEG;
constexpr AVColorRange kFull = AVCOL_RANGE_JPEG;
constexpr AVColorRange kAny = AVCOL_RANGE_UNSPECIFIED;
constexpr AVColorRange kOther = AVCOL_RANGE_NB;

using Order = std::vector<std::string>;

class ScalerCalls : public testing::Test, public PictureAllocator {
protected:
    ScalerCalls() {
        swsCalls() = SwsCalls();
        mScaler.setPictureAllocator(this);
    }

    Picture allocate(Size size, AVPixelFormat format, AVColorRange range) override {
        swsCalls().order.emplace_back("allocate");
        mSize = size;
        mFormat = format;
        mRange = range;
        if (mAllocatorFails) {
            throw std::bad_alloc();
        }
        return getDefaultPictureAllocator()->allocate(size, format, range);
    }

    static Picture picture(AVPixelFormat format, AVColorRange range) {
        Picture result(Size{64, 32}, format, range, 32);
        std::fill_n(result.data()[0], result.linesize()[0] * 32, std::uint8_t{100});
        return result;
    }

    // The calls since the last time.
    static Order takeOrder() { return std::exchange(swsCalls().order, {}); }

    Scaler mScaler;
    Size mSize;
    AVPixelFormat mFormat = AV_PIX_FMT_NONE;
    AVColorRange mRange = kAny;
    bool mAllocatorFails = false;
};

TEST_F(ScalerCalls, AskForAContextOfTheRoundedSizeByTheAlgorithm) {
    const Picture src = picture(AV_PIX_FMT_RGB24, kFull);
    mScaler.setAlgorithm(Scaler::ScalingAlgorithm::Area);
    const Picture result = mScaler.scale(src, {33, 17}, AV_PIX_FMT_NV12, kLimited);
    EXPECT_EQ(swsCalls().shape,
              (std::vector<int>{64, 32, AV_PIX_FMT_RGB24, 32, 16, AV_PIX_FMT_NV12, SWS_AREA}));
    EXPECT_TRUE(swsCalls().plain) << "no filters, no parameters";
    EXPECT_EQ(mSize, (Size{32, 16}));
    EXPECT_EQ(mFormat, AV_PIX_FMT_NV12);
    EXPECT_EQ(mRange, kLimited);
    EXPECT_EQ(result.frameSize(), mSize);
}

TEST_F(ScalerCalls, ScaleAllRowsOfTheSourceIntoThePictureOfTheAllocator) {
    const Picture src = picture(AV_PIX_FMT_NV12, kLimited);
    const Picture result = mScaler.scale(src, {16, 8});
    EXPECT_EQ(swsCalls().src, src.data().data());
    EXPECT_EQ(swsCalls().firstSourceRow, 0);
    EXPECT_EQ(swsCalls().sourceRows, 32);
    EXPECT_EQ(swsCalls().firstRow, result.data()[0]);
}

TEST_F(ScalerCalls, GoFromTheContextByTheRangesAndTheAllocatorToTheScaling) {
    swsCalls().scripted = true;
    (void)mScaler.scale(picture(AV_PIX_FMT_NV12, kFull), {16, 8}, AV_PIX_FMT_NV12, kLimited);
    EXPECT_EQ(takeOrder(), (Order{"context", "read", "write", "allocate", "scale"}));
}

TEST_F(ScalerCalls, AreNoneWhereNothingIsMade) {
    const Picture src = picture(AV_PIX_FMT_NV12, kLimited);
    (void)mScaler.scale(src, {65, 33}, AV_PIX_FMT_NV12, kAny);
    (void)mScaler.scale(src, {64, 32});
    (void)mScaler.scale(src, {1, 32}, AV_PIX_FMT_NV12, kLimited);
    (void)mScaler.scale(src, {64, 0}, AV_PIX_FMT_RGB24, kFull);
    EXPECT_EQ(takeOrder(), Order{});
}

TEST_F(ScalerCalls, EndWithTheTablesWhereTheyConvert) {
    EXPECT_FALSE(
        mScaler.scale(picture(AV_PIX_FMT_NV12, kLimited), {64, 32}, AV_PIX_FMT_YUV420P, kFull).empty());
    EXPECT_EQ(takeOrder(), (Order{"context", "allocate"}));
    EXPECT_EQ(mSize, (Size{64, 32}));
    EXPECT_EQ(mFormat, AV_PIX_FMT_YUV420P);
    EXPECT_EQ(mRange, kFull);
}

TEST_F(ScalerCalls, EndWithTheContextWhereTheChangeIsRefused) {
    EXPECT_THROW((void)mScaler.scale(picture(AV_PIX_FMT_NV12, kLimited), {64, 32}, AV_PIX_FMT_NV12, kFull),
                 ScalerUnsupportedError);
    EXPECT_EQ(takeOrder(), Order{"context"});
}

TEST_F(ScalerCalls, EndWhereThereIsNoContext) {
    const Picture src = picture(AV_PIX_FMT_NV12, kLimited);
    (void)mScaler.scale(src, {16, 8});
    takeOrder();
    swsCalls().withoutContext = true;
    EXPECT_TRUE(mScaler.scale(src, {20, 8}).empty());
    EXPECT_TRUE(mScaler.scale(src, {64, 32}, AV_PIX_FMT_YUV420P, kFull).empty());
    Order order = takeOrder();
    // Whether FFmpeg or we free the old one first depends on the version.
    EXPECT_EQ(std::count(order.begin(), order.end(), "free"), 1);
    order.erase(std::remove(order.begin(), order.end(), "free"), order.end());
    EXPECT_EQ(order, (Order{"context", "context"}));
    EXPECT_EQ(swsCalls().given, nullptr);
}

TEST_F(ScalerCalls, GiveTheContextBackForTheNextPictureAndFreeItAtTheEnd) {
    const Picture src = picture(AV_PIX_FMT_NV12, kLimited);
    SwsContext* made = nullptr;
    {
        Scaler scaler;
        (void)scaler.scale(src, {16, 8});
        EXPECT_EQ(swsCalls().given, nullptr);
        made = swsCalls().made;
        (void)scaler.scale(src, {16, 8});
        EXPECT_EQ(swsCalls().given, made);
        EXPECT_EQ(swsCalls().made, made);
        takeOrder();
    }
    EXPECT_EQ(takeOrder(), Order{"free"});
    EXPECT_EQ(swsCalls().freed, made);
}

TEST_F(ScalerCalls, KeepTheContextWhenTheAllocatorFails) {
    const Picture src = picture(AV_PIX_FMT_NV12, kLimited);
    mAllocatorFails = true;
    EXPECT_THROW((void)mScaler.scale(src, {16, 8}), std::bad_alloc);
    EXPECT_EQ(takeOrder().back(), "allocate");
    SwsContext* made = swsCalls().made;
    mAllocatorFails = false;
    EXPECT_FALSE(mScaler.scale(src, {16, 8}).empty());
    EXPECT_EQ(swsCalls().given, made);
}

TEST_F(ScalerCalls, DoNotLookAtWhatTheScalingSays) {
    swsCalls().scaleFails = true;
    const int before = modificationMarks();
    EXPECT_FALSE(mScaler.scale(picture(AV_PIX_FMT_NV12, kLimited), {16, 8}).empty());
    EXPECT_EQ(modificationMarks(), before + 1);
}

TEST_F(ScalerCalls, WriteTheRangesOnlyWhereOneOfThemIsAnother) {
    struct Row {
        AVColorRange src, dst;
        // The present details: whether the source and the destination are full.
        std::array<int, 2> full;
        Order calls;
        // The same as it is written.
        std::array<int, 2> wanted = {};
    };
    const Order none;
    const Order read = {"read"};
    const Order both = {"read", "write"};
    const Row rows[] = {
        {.src = kAny, .dst = kAny, .full = {1, 0}, .calls = none},
        {.src = kLimited, .dst = kFull, .full = {0, 1}, .calls = read},
        {.src = kAny, .dst = kFull, .full = {0, 1}, .calls = read},
        {.src = kFull, .dst = kAny, .full = {1, 0}, .calls = read},
        {.src = kLimited, .dst = kFull, .full = {0, 0}, .calls = both, .wanted = {0, 1}},
        {.src = kFull, .dst = kLimited, .full = {0, 0}, .calls = both, .wanted = {1, 0}},
        {.src = kLimited, .dst = kLimited, .full = {1, 1}, .calls = both, .wanted = {0, 0}},
        // The flag of a side that is not specified stays.
        {.src = kAny, .dst = kFull, .full = {1, 0}, .calls = both, .wanted = {1, 1}},
        {.src = kLimited, .dst = kAny, .full = {1, 1}, .calls = both, .wanted = {0, 1}},
        // Any other specified range is not full.
        {.src = kOther, .dst = kOther, .full = {1, 1}, .calls = both, .wanted = {0, 0}},
    };
    int tables[2][4] = {};
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::Message() << "row " << &row - rows);
        swsCalls() = SwsCalls();
        swsCalls().scripted = true;
        swsCalls().present = {tables[0], row.full[0], tables[1], row.full[1], 11, 22, 33};
        (void)mScaler.scale(picture(AV_PIX_FMT_YUV444P, row.src), {16, 8}, AV_PIX_FMT_YUV444P, row.dst);
        Order expected = row.calls;
        expected.insert(expected.begin(), "context");
        expected.insert(expected.end(), {"allocate", "scale"});
        EXPECT_EQ(takeOrder(), expected);
        if (row.calls == both) {
            EXPECT_EQ(swsCalls().wanted,
                      (Details{tables[0], row.wanted[0], tables[1], row.wanted[1], 11, 22, 33}));
        }
    }
}

TEST_F(ScalerCalls, ScaleWithTheRangesThatStandWhereTheyCannotBeRead) {
    swsCalls().readFails = true;
    const Picture src = picture(AV_PIX_FMT_YUV444P, kFull);
    EXPECT_FALSE(mScaler.scale(src, {16, 8}, AV_PIX_FMT_YUV444P, kLimited).empty());
    EXPECT_EQ(takeOrder(), (Order{"context", "read", "allocate", "scale"}));
}

TEST_F(ScalerCalls, OfAConverterOnceMakeAndFreeAContext) {
    const Picture src = picture(AV_PIX_FMT_NV12, kAny);
    for (int i = 0; i < 2; ++i) {
        (void)ColorSpaceConverter::convertTo(this, src, AV_PIX_FMT_RGB24, kAny);
        EXPECT_EQ(takeOrder(), (Order{"context", "allocate", "scale", "free"}));
        EXPECT_EQ(swsCalls().given, nullptr);
    }
    EXPECT_EQ(swsCalls().freed, swsCalls().made);
    EXPECT_EQ(mSize, (Size{64, 32}));
}

TEST_F(ScalerCalls, OfAConverterKeepItsContext) {
    const Picture src = picture(AV_PIX_FMT_NV12, kAny);
    ColorSpaceConverter converter(AV_PIX_FMT_RGB24, kAny);
    (void)converter.convert(src);
    SwsContext* made = swsCalls().made;
    (void)converter.convert(src);
    EXPECT_EQ(swsCalls().given, made);
    EXPECT_EQ(takeOrder(), (Order{"context", "scale", "context", "scale"}));
}

}  // namespace
}  // namespace vidorra::test
