#include "vidorra/process/scaler.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <cstring>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "support/throw_text.h"
#include "vidorra/core/enum_text.h"
#include "vidorra/core/format.h"
#include "vidorra/picture/default_picture_allocator.h"
#include "vidorra/process/picture_analysis.h"

extern "C" {
#include <libswscale/swscale.h>
}

namespace vidorra {
namespace {

using Algorithm = Scaler::ScalingAlgorithm;

constexpr AVColorRange kLimited = AVCOL_RANGE_MPEG;
constexpr AVColorRange kFull = AVCOL_RANGE_JPEG;
constexpr AVColorRange kAny = AVCOL_RANGE_UNSPECIFIED;

constexpr std::array<AVPixelFormat, 10> kFormats = {
    AV_PIX_FMT_YUV420P, AV_PIX_FMT_NV12,  AV_PIX_FMT_YUV422P, AV_PIX_FMT_YUV444P, AV_PIX_FMT_YUVA420P,
    AV_PIX_FMT_RGB24,   AV_PIX_FMT_BGR24, AV_PIX_FMT_RGBA,    AV_PIX_FMT_ARGB,    AV_PIX_FMT_GRAY8};

// Random samples, smooth enough to show changes of range.
Picture picture(AVPixelFormat format, Size size, AVColorRange range) {
    Picture result(size, format, range, 32);
    std::mt19937 random(11);
    for (std::size_t plane = 0; plane < 4; ++plane) {
        const bool halved =
            (plane == 1 || plane == 2) && format != AV_PIX_FMT_YUV422P && format != AV_PIX_FMT_YUV444P;
        const int rows = halved ? (size.height + 1) / 2 : size.height;
        for (int i = 0; result.data()[plane] != nullptr && i < result.linesize()[plane] * rows; ++i) {
            result.data()[plane][i] = static_cast<std::uint8_t>(16 + random() % 220);
        }
    }
    return result;
}

bool sharePixels(const Picture& a, const Picture& b) {
    return !a.empty() && a.data() == b.data();
}

// libswscale called directly.
Picture direct(const Picture& src, Size size, AVPixelFormat format, AVColorRange range, int flags) {
    Picture result(size, format, range, 32);
    SwsContext* context = sws_getContext(src.frameSize().width, src.frameSize().height, src.pixelFormat(),
                                         size.width, size.height, format, flags, nullptr, nullptr, nullptr);
    int* inverse = nullptr;
    int* table = nullptr;
    int srcFull = 0;
    int dstFull = 0;
    int brightness = 0;
    int contrast = 0;
    int saturation = 0;
    if (sws_getColorspaceDetails(context, &inverse, &srcFull, &table, &dstFull, &brightness, &contrast,
                                 &saturation) >= 0) {
        const int oldSrc = srcFull;
        const int oldDst = dstFull;
        if (src.colorRange() != kAny) {
            srcFull = src.colorRange() == kFull ? 1 : 0;
        }
        if (range != kAny) {
            dstFull = range == kFull ? 1 : 0;
        }
        if (srcFull != oldSrc || dstFull != oldDst) {
            sws_setColorspaceDetails(context, inverse, srcFull, table, dstFull, brightness, contrast,
                                     saturation);
        }
    }
    sws_scale(context, src.data().data(), src.linesize().data(), 0, src.frameSize().height,
              result.data().data(), result.linesize().data());
    sws_freeContext(context);
    return result;
}

// Counts what it gives out.
class CountingAllocator : public PictureAllocator {
public:
    Picture allocate(Size size, AVPixelFormat format, AVColorRange range) override {
        ++calls;
        if (fails) {
            throw std::bad_alloc();
        }
        return getDefaultPictureAllocator()->allocate(size, format, range);
    }
    int calls = 0;
    bool fails = false;
};

TEST(Scaler, GivesThePictureBackWhenNothingChanges) {
    Scaler scaler;
    CountingAllocator allocator;
    scaler.setPictureAllocator(&allocator);
    const Picture src = picture(AV_PIX_FMT_NV12, {100, 40}, kLimited);
    EXPECT_TRUE(sharePixels(scaler.scale(src, {100, 40}, AV_PIX_FMT_NV12, kLimited), src));
    EXPECT_TRUE(sharePixels(scaler.scale(src, {100, 40}), src));
    EXPECT_TRUE(sharePixels(scaler.convertToColorspace(src, AV_PIX_FMT_NV12, kLimited), src));
    EXPECT_EQ(allocator.calls, 0);
}

TEST(Scaler, AnUnspecifiedRangeIsNoChangeAndTheRangeOfTheSourceStays) {
    Scaler scaler;
    const Picture known = picture(AV_PIX_FMT_NV12, {100, 40}, kFull);
    const Picture same = scaler.scale(known, {100, 40}, AV_PIX_FMT_NV12, kAny);
    EXPECT_TRUE(sharePixels(same, known));
    EXPECT_EQ(same.colorRange(), kFull);
    const Picture unknown = picture(AV_PIX_FMT_NV12, {100, 40}, kAny);
    const Picture stillUnknown = scaler.scale(unknown, {100, 40}, AV_PIX_FMT_NV12, kFull);
    EXPECT_TRUE(sharePixels(stillUnknown, unknown));
    EXPECT_EQ(stillUnknown.colorRange(), kAny);
}

TEST(Scaler, RoundsTheSizeDownToWholeChromaSamplesOfBothFormats) {
    struct Row {
        AVPixelFormat from, to;
        Size asked, given;
    };
    for (const Row& row : {Row{AV_PIX_FMT_NV12, AV_PIX_FMT_NV12, {101, 51}, {100, 50}},
                           Row{AV_PIX_FMT_RGB24, AV_PIX_FMT_NV12, {51, 31}, {50, 30}},
                           Row{AV_PIX_FMT_YUV422P, AV_PIX_FMT_RGB24, {51, 31}, {50, 31}},
                           Row{AV_PIX_FMT_YUV410P, AV_PIX_FMT_YUV422P, {51, 31}, {48, 28}},
                           Row{AV_PIX_FMT_RGB24, AV_PIX_FMT_GRAY8, {51, 31}, {51, 31}}}) {
        Scaler scaler;
        Picture src(Size{80, 40}, row.from, kAny, 32);
        EXPECT_EQ(scaler.scale(src, row.asked, row.to, kAny).frameSize(), row.given)
            << row.from << " " << row.to;
    }
}

TEST(Scaler, ASizeThatIsTheSameOnlyAfterRoundingIsTheSame) {
    Scaler scaler;
    const Picture src = picture(AV_PIX_FMT_NV12, {100, 40}, kLimited);
    EXPECT_TRUE(sharePixels(scaler.scale(src, {101, 41}, AV_PIX_FMT_NV12, kLimited), src));
    EXPECT_TRUE(sharePixels(scaler.scale(src, {101, 41}), src));
}

TEST(Scaler, AnOddSizeIsTheSameOnlyWhereNoFormatIsAskedFor) {
    Scaler scaler;
    const Picture src = picture(AV_PIX_FMT_NV12, {101, 41}, kLimited);
    EXPECT_TRUE(sharePixels(scaler.scale(src, {101, 41}), src));
    EXPECT_EQ(scaler.scale(src, {101, 41}, AV_PIX_FMT_NV12, kLimited).frameSize(), (Size{100, 40}));
    EXPECT_EQ(scaler.convertToColorspace(src, AV_PIX_FMT_NV12, kLimited).frameSize(), (Size{100, 40}));
}

TEST(Scaler, ConvertsToAColorspaceAtTheSizeOfTheSource) {
    Scaler scaler;
    const Picture src = picture(AV_PIX_FMT_NV12, {64, 32}, kLimited);
    const Picture result = scaler.convertToColorspace(src, AV_PIX_FMT_RGB24, kFull);
    EXPECT_EQ(result.colorRange(), kFull);
    EXPECT_TRUE(comparePictures(result, direct(src, {64, 32}, AV_PIX_FMT_RGB24, kFull, SWS_BILINEAR), 0,
                                false, nullptr));
}

TEST(Scaler, LimitedToFullAtTheSameSizeGoesThroughTheTables) {
    for (const AVPixelFormat format : {AV_PIX_FMT_NV12, AV_PIX_FMT_YUV420P}) {
        Scaler scaler;
        CountingAllocator allocator;
        scaler.setPictureAllocator(&allocator);
        const Picture src = picture(format, {64, 32}, kLimited);
        const Picture result = scaler.scale(src, {64, 32}, AV_PIX_FMT_YUV420P, kFull);
        ASSERT_EQ(result.pixelFormat(), AV_PIX_FMT_YUV420P);
        EXPECT_EQ(result.colorRange(), kFull);
        EXPECT_EQ(allocator.calls, 1);
        for (int y = 0; y < 32; ++y) {
            for (int x = 0; x < 64; ++x) {
                const int from = src.data()[0][y * src.linesize()[0] + x];
                const int to = std::clamp((from - 16) * 255 * 2 + 219, 0, 255 * 2 * 219) / (2 * 219);
                ASSERT_EQ(result.data()[0][y * result.linesize()[0] + x], to) << from;
            }
        }
        for (int y = 0; y < 16; ++y) {
            for (int x = 0; x < 32; ++x) {
                const int v = format == AV_PIX_FMT_NV12 ? src.data()[1][y * src.linesize()[1] + 2 * x + 1]
                                                        : src.data()[2][y * src.linesize()[2] + x];
                const int to = std::clamp((v - 16) * 255 * 2 + 224, 0, 255 * 2 * 224) / (2 * 224);
                ASSERT_EQ(result.data()[2][y * result.linesize()[2] + x], to) << v;
            }
        }
        EXPECT_TRUE(comparePictures(
            tryConvertColorRange(getDefaultPictureAllocator(), src, AV_PIX_FMT_YUV420P, kFull), result, 0,
            false, nullptr));
    }
}

TEST(TryConvertColorRange, IsEmptyForWhatTheTablesDoNotDo) {
    CountingAllocator allocator;
    const Picture src = picture(AV_PIX_FMT_NV12, {64, 32}, kLimited);
    EXPECT_TRUE(tryConvertColorRange(&allocator, src, AV_PIX_FMT_NV12, kFull).empty());
    EXPECT_TRUE(tryConvertColorRange(&allocator, src, AV_PIX_FMT_YUV420P, kLimited).empty());
    EXPECT_TRUE(tryConvertColorRange(&allocator, src, AV_PIX_FMT_YUV420P, kAny).empty());
    EXPECT_EQ(allocator.calls, 0);
}

// Whether the change of a picture to a format and range, at its size, is refused: the rows of the table.
bool refusedByTheTable(AVPixelFormat from, AVColorRange fromRange, AVPixelFormat to, AVColorRange toRange) {
    const bool agree = fromRange == kAny || toRange == kAny || fromRange == toRange;
    if (agree && from == to) {
        return false;
    }
    const bool tables = (from == AV_PIX_FMT_NV12 || from == AV_PIX_FMT_YUV420P) && to == AV_PIX_FMT_YUV420P &&
                        fromRange == kLimited && toRange == kFull;
    if (tables) {
        return false;
    }
    struct Row {
        AVPixelFormat from, to;
        bool always;
    };
    const Row rows[] = {{AV_PIX_FMT_YUVJ420P, NVA12, true},
                        {AV_PIX_FMT_YUV420P, NVA12, true},
                        {AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV420P, false},
                        {AV_PIX_FMT_YUV420P, AV_PIX_FMT_NV12, false},
                        {AV_PIX_FMT_NV12, AV_PIX_FMT_NV12, true},
                        {NVA12, NVA12, true},
                        {AV_PIX_FMT_NV12, AV_PIX_FMT_YUV420P, false},
                        {NVA12, AV_PIX_FMT_YUV420P, false}};
    return std::any_of(std::begin(rows), std::end(rows), [&](const Row& row) {
        return row.from == from && row.to == to && (row.always || !agree);
    });
}

TEST(Scaler, RefusesExactlyTheChangesOfTheTable) {
    std::vector<AVPixelFormat> formats(kFormats.begin(), kFormats.end());
    formats.push_back(NVA12);
    formats.push_back(AV_PIX_FMT_YUVJ420P);
    int refused = 0;
    Scaler scaler;
    for (const AVPixelFormat from : formats) {
        for (const AVColorRange fromRange : {kAny, kLimited, kFull}) {
            const Picture src = picture(from, {32, 16}, fromRange);
            for (const AVPixelFormat to : formats) {
                for (const AVColorRange toRange : {kAny, kLimited, kFull}) {
                    const std::string pair = fmt::format("{}:{} to {}:{}", from, fromRange, to, toRange);
                    if (refusedByTheTable(from, fromRange, to, toRange)) {
                        ++refused;
                        EXPECT_THROW_TEXT(ScalerUnsupportedError,
                                          "Unsupported PixelFormat/ColorRange conversion from " + pair,
                                          (void)scaler.scale(src, {32, 16}, to, toRange));
                    } else {
                        EXPECT_NO_THROW((void)scaler.scale(src, {32, 16}, to, toRange)) << pair;
                    }
                }
            }
        }
    }
    EXPECT_EQ(refused, 28);
}

TEST(Scaler, DoesNotRefuseThemWhenTheSizeChanges) {
    Scaler scaler;
    const Picture src = picture(AV_PIX_FMT_NV12, {64, 32}, kLimited);
    const Picture result = scaler.scale(src, {32, 16}, AV_PIX_FMT_NV12, kFull);
    EXPECT_TRUE(comparePictures(result, direct(src, {32, 16}, AV_PIX_FMT_NV12, kFull, SWS_BILINEAR), 0, false,
                                nullptr));
    const Picture limited = scaler.scale(src, {32, 16}, AV_PIX_FMT_NV12, kLimited);
    EXPECT_FALSE(comparePictures(result,
                                 Picture(limited.frameSize(), limited.data().data(),
                                         limited.linesize().data(), AV_PIX_FMT_NV12, kFull, 32),
                                 3, false, nullptr));
    const Picture yuv = picture(AV_PIX_FMT_YUV420P, {64, 32}, kFull);
    EXPECT_FALSE(scaler.scale(yuv, {32, 16}, AV_PIX_FMT_YUV420P, kLimited).empty());
}

TEST(Scaler, RangesOfOnePictureDoNotReachTheNext) {
    Scaler scaler;
    (void)scaler.scale(picture(AV_PIX_FMT_YUV420P, {64, 32}, kFull), {32, 16}, AV_PIX_FMT_YUV420P, kLimited);
    const Picture src = picture(AV_PIX_FMT_YUV420P, {64, 32}, kAny);
    const Picture result = scaler.scale(src, {48, 16}, AV_PIX_FMT_YUV420P, kAny);
    EXPECT_TRUE(comparePictures(result, direct(src, {48, 16}, AV_PIX_FMT_YUV420P, kAny, SWS_BILINEAR), 0,
                                false, nullptr));
}

TEST(Scaler, GivesLibswscalesBytesForEachPairOfTheUsualFormats) {
    // One scaler for all: its context follows the pictures.
    Scaler scaler;
    int compared = 0;
    for (const AVPixelFormat from : kFormats) {
        for (const AVPixelFormat to : kFormats) {
            for (const auto& [fromRange, toRange] :
                 {std::pair{kAny, kAny}, std::pair{kLimited, kLimited}, std::pair{kLimited, kFull},
                  std::pair{kFull, kLimited}, std::pair{kAny, kFull}, std::pair{kLimited, kAny}}) {
                const Picture src = picture(from, {48, 32}, fromRange);
                for (const Size size : {Size{48, 32}, Size{26, 18}, Size{96, 40}}) {
                    SCOPED_TRACE(fmt::format("{}:{} to {}:{} {}x{}", from, fromRange, to, toRange, size.width,
                                             size.height));
                    if (size == src.frameSize()) {
                        const bool rangesAgree = fromRange == toRange || fromRange == kAny || toRange == kAny;
                        const bool tables = (from == AV_PIX_FMT_NV12 || from == AV_PIX_FMT_YUV420P) &&
                                            to == AV_PIX_FMT_YUV420P && fromRange == kLimited &&
                                            toRange == kFull;
                        if (tables || refusedByTheTable(from, fromRange, to, toRange) ||
                            (from == to && rangesAgree)) {
                            continue;
                        }
                    }
                    const Picture result = scaler.scale(src, size, to, toRange);
                    ASSERT_EQ(result.frameSize(), size);
                    EXPECT_EQ(result.colorRange(), toRange);
                    EXPECT_TRUE(result.editable());
                    EXPECT_TRUE(comparePictures(result, direct(src, size, to, toRange, SWS_BILINEAR), 0,
                                                false, nullptr));
                    ++compared;
                }
            }
        }
    }
    EXPECT_GT(compared, 1700);
}

TEST(Scaler, AlgorithmsAreLibswscalesFlagsByNumberAndByName) {
    struct Row {
        const char* name;
        Algorithm algorithm;
        int flag;
    };
    const Row rows[] = {{"fast_bilinear", Algorithm::FastBilinear, SWS_FAST_BILINEAR},
                        {"bilinear", Algorithm::Bilinear, SWS_BILINEAR},
                        {"bicubic", Algorithm::Bicubic, SWS_BICUBIC},
                        {"x", Algorithm::X, SWS_X},
                        {"point", Algorithm::Point, SWS_POINT},
                        {"area", Algorithm::Area, SWS_AREA},
                        {"bicublin", Algorithm::Bicublin, SWS_BICUBLIN},
                        {"gauss", Algorithm::Gauss, SWS_GAUSS},
                        {"sinc", Algorithm::Sinc, SWS_SINC},
                        {"lanczos", Algorithm::Lanczos, SWS_LANCZOS},
                        {"spline", Algorithm::Spline, SWS_SPLINE}};
    const Picture src = picture(AV_PIX_FMT_YUV420P, {64, 48}, kLimited);
    Scaler scaler;
    std::vector<std::string> sums;
    for (const Row& row : rows) {
        EXPECT_EQ(static_cast<int>(row.algorithm), row.flag) << row.name;
        const Picture expected = direct(src, {40, 30}, AV_PIX_FMT_YUV420P, kLimited, row.flag);
        scaler.setAlgorithm(row.algorithm);
        EXPECT_TRUE(comparePictures(scaler.scale(src, {40, 30}), expected, 0, false, nullptr)) << row.name;
        scaler.setAlgorithm(Algorithm::Point);
        scaler.setAlgorithm(std::string(row.name));
        EXPECT_TRUE(comparePictures(scaler.scale(src, {40, 30}), expected, 0, false, nullptr)) << row.name;
        sums.push_back(getPlanesMD5(expected));
    }
    std::sort(sums.begin(), sums.end());
    EXPECT_GE(std::unique(sums.begin(), sums.end()) - sums.begin(), 8);
}

TEST(Scaler, StartsWithBilinear) {
    const Picture src = picture(AV_PIX_FMT_YUV420P, {64, 48}, kLimited);
    Scaler scaler;
    EXPECT_TRUE(comparePictures(scaler.scale(src, {40, 30}),
                                direct(src, {40, 30}, AV_PIX_FMT_YUV420P, kLimited, SWS_BILINEAR), 0, false,
                                nullptr));
}

TEST(Scaler, RefusesUnknownAlgorithmsAndKeepsTheOneItHas) {
    const Picture src = picture(AV_PIX_FMT_YUV420P, {64, 48}, kLimited);
    Scaler scaler;
    scaler.setAlgorithm("point");
    for (const char* name : {"Bilinear", "", "bilinear ", "nearest"}) {
        EXPECT_THROW_TEXT(std::runtime_error, fmt::format("Unknown scaling algorithm \"{}\"", name),
                          scaler.setAlgorithm(std::string(name)));
    }
    EXPECT_TRUE(comparePictures(scaler.scale(src, {40, 30}),
                                direct(src, {40, 30}, AV_PIX_FMT_YUV420P, kLimited, SWS_POINT), 0, false,
                                nullptr));
}

TEST(Scaler, ASizeOfZeroIsAnEmptyPicture) {
    Scaler scaler;
    CountingAllocator allocator;
    scaler.setPictureAllocator(&allocator);
    const Picture src = picture(AV_PIX_FMT_NV12, {64, 32}, kLimited);
    for (const Size size : {Size{0, 16}, Size{16, 0}, Size{0, 0}, Size{1, 16}, Size{16, 1}}) {
        EXPECT_TRUE(scaler.scale(src, size, AV_PIX_FMT_NV12, kLimited).empty()) << size;
    }
    EXPECT_TRUE(scaler.scale(src, {0, 0}).empty());
    EXPECT_EQ(allocator.calls, 0);
}

TEST(Scaler, SizesAndFormatsThatCannotBeScaledAreAnEmptyPicture) {
    Scaler scaler;
    CountingAllocator allocator;
    scaler.setPictureAllocator(&allocator);
    const Picture src = picture(AV_PIX_FMT_NV12, {64, 32}, kLimited);
    for (const Size size :
         {Size{-4, 16}, Size{16, -4}, Size{INT_MIN, INT_MIN}, Size{INT_MAX, INT_MAX}, Size{INT_MAX, 2}}) {
        EXPECT_TRUE(scaler.scale(src, size, AV_PIX_FMT_NV12, kLimited).empty()) << size;
    }
    for (const AVPixelFormat format :
         {AV_PIX_FMT_NONE, AV_PIX_FMT_VAAPI, static_cast<AVPixelFormat>(99999)}) {
        EXPECT_TRUE(scaler.scale(src, {32, 16}, format, kLimited).empty()) << format;
        EXPECT_TRUE(scaler.scale(src, {64, 32}, format, kLimited).empty()) << format;
    }
    EXPECT_TRUE(scaler.scale(Picture(), {32, 16}, AV_PIX_FMT_NV12, kLimited).empty());
    EXPECT_EQ(allocator.calls, 0);
    // None of them leaves the scaler unusable.
    EXPECT_FALSE(scaler.scale(src, {32, 16}).empty());
}

TEST(Scaler, WithoutAContextNothingIsConvertedOrRefused) {
    Scaler scaler;
    CountingAllocator allocator;
    scaler.setPictureAllocator(&allocator);
    // libswscale requires exactly one of its algorithms.
    scaler.setAlgorithm(static_cast<Algorithm>(SWS_BILINEAR | SWS_POINT));
    const Picture src = picture(AV_PIX_FMT_NV12, {64, 32}, kLimited);
    EXPECT_TRUE(scaler.scale(src, {32, 16}, AV_PIX_FMT_NV12, kLimited).empty());
    EXPECT_TRUE(scaler.scale(src, {64, 32}, AV_PIX_FMT_YUV420P, kFull).empty());
    EXPECT_TRUE(scaler.scale(src, {64, 32}, AV_PIX_FMT_NV12, kFull).empty());
    EXPECT_EQ(allocator.calls, 0);
    scaler.setAlgorithm(Algorithm::Point);
    EXPECT_FALSE(scaler.scale(src, {64, 32}, AV_PIX_FMT_YUV420P, kFull).empty());
}

TEST(Scaler, AnEmptyPictureAsItIsStaysEmpty) {
    Scaler scaler;
    EXPECT_TRUE(scaler.scale(Picture(), {0, 0}).empty());
    EXPECT_TRUE(scaler.scale(Picture(), {0, 0}, AV_PIX_FMT_NONE, kFull).empty());
}

TEST(Scaler, TakesItsPicturesFromTheAllocator) {
    Scaler scaler;
    CountingAllocator allocator;
    scaler.setPictureAllocator(&allocator);
    const Picture src = picture(AV_PIX_FMT_NV12, {64, 32}, kLimited);
    (void)scaler.scale(src, {32, 16});
    EXPECT_EQ(allocator.calls, 1);
    scaler.setPictureAllocator(nullptr);
    EXPECT_FALSE(scaler.scale(src, {32, 16}).empty());
    EXPECT_EQ(allocator.calls, 1);
}

TEST(Scaler, PassesTheAllocatorsErrorOnAndStaysUsable) {
    Scaler scaler;
    CountingAllocator allocator;
    scaler.setPictureAllocator(&allocator);
    const Picture src = picture(AV_PIX_FMT_NV12, {64, 32}, kLimited);
    allocator.fails = true;
    EXPECT_THROW((void)scaler.scale(src, {32, 16}), std::bad_alloc);
    EXPECT_THROW((void)scaler.scale(src, {64, 32}, AV_PIX_FMT_YUV420P, kFull), std::bad_alloc);
    allocator.fails = false;
    EXPECT_FALSE(scaler.scale(src, {32, 16}).empty());
}

TEST(Scaler, MovesWithWhatItPrepared) {
    static_assert(!std::is_copy_constructible_v<Scaler> && !std::is_copy_assignable_v<Scaler>);
    const Picture src = picture(AV_PIX_FMT_NV12, {64, 32}, kLimited);
    Scaler first;
    first.setAlgorithm(Algorithm::Point);
    const Picture expected = first.scale(src, {32, 16});
    Scaler second(std::move(first));
    EXPECT_TRUE(comparePictures(second.scale(src, {32, 16}), expected, 0, false, nullptr));
    Scaler third;
    (void)third.scale(src, {20, 20});
    third = std::move(second);
    EXPECT_TRUE(comparePictures(third.scale(src, {32, 16}), expected, 0, false, nullptr));
}

}  // namespace
}  // namespace vidorra
