#include "vidorra/process/z5/picture_composer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "process/z5/device_pictures.h"
#include "process/z5/fake_accelerator.h"
#include "support/counted_marks.h"
#include "support/throw_text.h"

namespace vidorra::z5 {
namespace {

using test::devicePicture;
using test::events;
using test::FakeAccelerator;
using test::fakeAccelerator;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kNotEditable = "z5 hw composer: destination picture is not editable";
constexpr const char* kBadDestination = "z5 hw composer: incompatible destination picture";
constexpr const char* kBadOverlay = "z5 hw composer: incompatible overlay picture";

class PictureComposerTest : public testing::Test {
protected:
    PictureComposerTest() {
        events().clear();
        fakeAccelerator() = {};
        test::modificationMarks() = 0;
    }

    // The one call that composing leads to.
    FakeAccelerator::Composition compose(Picture& dst, const Picture& overlay, Point position,
                                         double opacity = 1.0, bool flag = false) {
        fakeAccelerator().compositions.clear();
        mComposer.compose(dst, overlay, position, opacity, flag);
        if (fakeAccelerator().compositions.size() != 1) {
            ADD_FAILURE() << fakeAccelerator().compositions.size() << " calls";
            return {};
        }
        return fakeAccelerator().compositions[0];
    }

    const PictureComposer mComposer{"null"};
};

std::ptrdiff_t distance(const void* from, const void* to) {
    return static_cast<const std::uint8_t*>(to) - static_cast<const std::uint8_t*>(from);
}

struct PlaceRow {
    const char* name;
    Size dst;
    Size overlay;
    Point position;
    // Where the two begin to overlap, and by how much.
    Point dstPoint;
    Point overlayPoint;
    Size area;
};

class PictureComposerPlace : public PictureComposerTest, public testing::WithParamInterface<PlaceRow> {};

TEST_P(PictureComposerPlace, BecomesRecordsOfThePartThatShows) {
    const PlaceRow& row = GetParam();
    for (const AVPixelFormat dstFormat : {AV_PIX_FMT_NV12, NVA12}) {
        for (const AVPixelFormat overlayFormat : {AV_PIX_FMT_NV12, NVA12}) {
            Picture dst = devicePicture("dst", {.size = row.dst, .format = dstFormat, .linesize = 256});
            const Picture overlay =
                devicePicture("overlay", {.size = row.overlay, .format = overlayFormat, .linesize = 192});
            const FakeAccelerator::Composition call = compose(dst, overlay, row.position);
            const auto [dx, dy] = row.dstPoint;
            EXPECT_EQ(distance(dst.data()[0], call.dst.luma), dy * 256 + dx);
            EXPECT_EQ(distance(dst.data()[1], call.dst.chroma), dy / 2 * 256 + dx);
            if (dstFormat == NVA12) {
                EXPECT_EQ(distance(dst.data()[3], call.dst.alpha), dy * 256 + dx);
            } else {
                EXPECT_EQ(call.dst.alpha, nullptr);
            }
            EXPECT_EQ(call.dst.linesize, 256);
            EXPECT_EQ(call.dst.width, row.dst.width - dx);
            EXPECT_EQ(call.dst.height, row.dst.height - dy);
            const auto [ox, oy] = row.overlayPoint;
            EXPECT_EQ(distance(overlay.data()[0], call.overlay.luma), oy * 192 + ox);
            EXPECT_EQ(distance(overlay.data()[1], call.overlay.chroma), oy / 2 * 192 + ox);
            if (overlayFormat == NVA12) {
                EXPECT_EQ(distance(overlay.data()[3], call.overlay.alpha), oy * 192 + ox);
            } else {
                EXPECT_EQ(call.overlay.alpha, nullptr);
            }
            EXPECT_EQ(call.overlay.linesize, 192);
            EXPECT_EQ(call.overlay.width, row.area.width);
            EXPECT_EQ(call.overlay.height, row.area.height);
            EXPECT_EQ(call.width, row.area.width);
            EXPECT_EQ(call.height, row.area.height);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    All, PictureComposerPlace,
    testing::Values(
        PlaceRow{"Inside", {200, 100}, {60, 40}, {20, 10}, {20, 10}, {0, 0}, {60, 40}},
        PlaceRow{"AtTheOrigin", {200, 100}, {60, 40}, {0, 0}, {0, 0}, {0, 0}, {60, 40}},
        PlaceRow{"OddMovesUpAndLeft", {200, 100}, {60, 40}, {21, 11}, {20, 10}, {0, 0}, {60, 40}},
        PlaceRow{"OddNegativeMovesUpAndLeft", {200, 100}, {60, 40}, {-1, -3}, {0, 0}, {2, 4}, {58, 36}},
        PlaceRow{"OutOnTheLeft", {200, 100}, {60, 40}, {-10, 8}, {0, 8}, {10, 0}, {50, 40}},
        PlaceRow{"OutAtTheTop", {200, 100}, {60, 40}, {8, -10}, {8, 0}, {0, 10}, {60, 30}},
        PlaceRow{"OutOnTheRight", {200, 100}, {60, 40}, {150, 8}, {150, 8}, {0, 0}, {50, 40}},
        PlaceRow{"OutAtTheBottom", {200, 100}, {60, 40}, {8, 81}, {8, 80}, {0, 0}, {60, 20}},
        PlaceRow{"OutOnAllSides", {30, 20}, {60, 40}, {-10, -10}, {0, 0}, {10, 10}, {30, 20}},
        PlaceRow{"OddOverlay", {200, 100}, {61, 41}, {20, 10}, {20, 10}, {0, 0}, {60, 40}},
        PlaceRow{"OddOverlayOutOnTheLeft", {200, 100}, {61, 41}, {-10, -10}, {0, 0}, {10, 10}, {50, 30}},
        PlaceRow{"OddDestination", {199, 99}, {60, 40}, {20, 10}, {20, 10}, {0, 0}, {60, 40}},
        PlaceRow{"OddDestinationOutOnTheRight", {199, 99}, {60, 40}, {180, 90}, {180, 90}, {0, 0}, {18, 8}},
        PlaceRow{"TwoByTwoInTheCorner", {200, 100}, {60, 40}, {199, 99}, {198, 98}, {0, 0}, {2, 2}},
        PlaceRow{"LastTwoByTwoOfTheOverlay", {200, 100}, {60, 40}, {-58, -38}, {0, 0}, {58, 38}, {2, 2}}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(PictureComposerTest, DoesNothingWhereLessThanTwoColumnsOrRowsShow) {
    struct Row {
        Size dst;
        Size overlay;
        Point position;
    };
    const Row rows[] = {
        {{64, 32}, {1, 16}, {0, 0}},
        {{64, 32}, {16, 1}, {0, 0}},
        {{1, 32}, {16, 16}, {0, 0}},
        {{64, 1}, {16, 16}, {0, 0}},
        // One column or row of an odd picture shows at the edge.
        {{63, 32}, {16, 16}, {62, 0}},
        {{64, 31}, {16, 16}, {0, 30}},
        {{64, 32}, {15, 16}, {-14, 0}},
        {{64, 32}, {16, 15}, {0, -14}},
        // Touching and apart.
        {{64, 32}, {16, 16}, {64, 0}},
        {{64, 32}, {16, 16}, {0, 32}},
        {{64, 32}, {16, 16}, {-16, 0}},
        {{64, 32}, {16, 16}, {0, -16}},
        {{64, 32}, {16, 16}, {1000, -1000}},
        {{64, 32}, {16, 16}, {INT_MIN, 0}},
        {{64, 32}, {16, 16}, {0, INT_MIN}},
        {{64, 32}, {16, 16}, {INT_MAX, INT_MAX}},
    };
    for (const Row& row : rows) {
        Picture dst = devicePicture("dst", {.size = row.dst});
        const Picture overlay = devicePicture("overlay", {.size = row.overlay, .format = NVA12});
        EXPECT_NO_THROW(mComposer.compose(dst, overlay, row.position, 1.0, false));
        EXPECT_THAT(events(), IsEmpty()) << row.position;
    }
}

TEST_F(PictureComposerTest, ChecksAlsoWhereNothingShows) {
    Picture heap({64, 32}, AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG, 32);
    Picture dst = devicePicture("dst", {.size = {64, 32}});
    EXPECT_THROW_TEXT(std::invalid_argument, kBadOverlay, mComposer.compose(dst, heap, {64, 0}, 1.0, false));
    EXPECT_THROW_TEXT(std::invalid_argument, kBadDestination,
                      mComposer.compose(heap, dst, {64, 0}, 0.0, false));
    const Picture other = dst;
    EXPECT_THROW_TEXT(std::invalid_argument, kNotEditable, mComposer.compose(dst, dst, {64, 0}, 0.0, false));
}

TEST_F(PictureComposerTest, ChecksInOneOrderAndFlushesNothingBefore) {
    for (const bool editable : {false, true}) {
        for (const bool goodDestination : {false, true}) {
            for (const bool goodOverlay : {false, true}) {
                Picture dst = devicePicture("dst", {.size = {64, 32}, .dma = goodDestination});
                const Picture second = editable ? Picture() : dst;
                const Picture overlay = devicePicture("overlay", {.size = {16, 16}, .dma = goodOverlay});
                const char* const text = !editable          ? kNotEditable
                                         : !goodDestination ? kBadDestination
                                         : !goodOverlay     ? kBadOverlay
                                                            : nullptr;
                if (text == nullptr) {
                    EXPECT_NO_THROW(mComposer.compose(dst, overlay, {0, 0}, 1.0, false));
                    EXPECT_EQ(events().size(), 3u);
                } else {
                    EXPECT_THROW_TEXT(std::invalid_argument, text,
                                      mComposer.compose(dst, overlay, {0, 0}, 1.0, false));
                    EXPECT_THAT(events(), IsEmpty());
                }
            }
        }
    }
}

TEST_F(PictureComposerTest, RefusesEmptyPictures) {
    Picture dst = devicePicture("dst", {.size = {64, 32}});
    Picture empty;
    EXPECT_THROW_TEXT(std::invalid_argument, kNotEditable, mComposer.compose(empty, dst, {0, 0}, 1.0, false));
    EXPECT_THROW_TEXT(std::invalid_argument, kBadOverlay, mComposer.compose(dst, empty, {0, 0}, 1.0, false));
}

TEST_F(PictureComposerTest, FlushesTheDestinationAndTheOverlayBeforeTheDeviceReads) {
    Picture dst = devicePicture("dst", {.size = {64, 32}});
    const Picture overlay = devicePicture("overlay", {.size = {16, 16}});
    mComposer.compose(dst, overlay, {-4, 0}, 1.0, false);
    EXPECT_THAT(events(), ElementsAre("flush dst", "flush overlay", "process"));
}

TEST_F(PictureComposerTest, DoesNotMarkTheDestinationAsModified) {
    Picture dst = devicePicture("dst", {.size = {64, 32}});
    compose(dst, devicePicture("overlay", {.size = {16, 16}}), {0, 0});
    EXPECT_EQ(test::modificationMarks(), 0);
    // The count counts.
    dst.markModified();
    EXPECT_EQ(test::modificationMarks(), 1);
}

TEST_F(PictureComposerTest, TurnsTheOpacityIntoAByte) {
    struct Row {
        double opacity;
        int alpha;
    };
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    const Row rows[] = {
        {0.0, 0},
        {-0.0, 0},
        {-1e-300, 0},
        {-1.0, 0},
        {-kInfinity, 0},
        {std::numeric_limits<double>::denorm_min(), 0},
        {0.0039, 0},
        {1.0 / 255.0, 1},
        {0.5, 127},
        {0.999, 254},
        {1.0, 255},
        {1.0000000000000002, 255},
        {1.1, 255},
        {1e300, 255},
        {kInfinity, 255},
        {std::numeric_limits<double>::quiet_NaN(), 0},
        {-std::numeric_limits<double>::quiet_NaN(), 0},
    };
    Picture dst = devicePicture("dst", {.size = {64, 32}});
    const Picture overlay = devicePicture("overlay", {.size = {16, 16}});
    for (const Row& row : rows) {
        EXPECT_EQ(compose(dst, overlay, {0, 0}, row.opacity).alpha, row.alpha) << row.opacity;
    }
}

TEST_F(PictureComposerTest, TurnsTheFlagIntoTheAcceleratorsFlags) {
    Picture dst = devicePicture("dst", {.size = {64, 32}});
    const Picture overlay = devicePicture("overlay", {.size = {16, 16}});
    EXPECT_EQ(compose(dst, overlay, {0, 0}, 1.0, false).flags, 0u);
    EXPECT_EQ(compose(dst, overlay, {0, 0}, 1.0, true).flags, 96u);
}

TEST_F(PictureComposerTest, PassesOnWhatTheAcceleratorThrowsAndReleasesThePictures) {
    Picture dst = devicePicture("dst", {.size = {64, 32}});
    const Picture overlay = devicePicture("overlay", {.size = {16, 16}});
    fakeAccelerator().fails = true;
    EXPECT_THROW_TEXT(FakeAccelerator::Error, "the accelerator failed",
                      mComposer.compose(dst, overlay, {-2, 0}, 1.0, false));
    EXPECT_TRUE(dst.editable());
    EXPECT_TRUE(overlay.editable());
}

TEST_F(PictureComposerTest, TakesAnOverlayThatIsAViewOfASharedPicture) {
    Picture dst = devicePicture("dst", {.size = {64, 32}});
    const Picture whole = devicePicture("overlay", {.size = {64, 32}, .format = NVA12});
    const FakeAccelerator::Composition call = compose(dst, whole.crop({10, 6, 20, 8}), {-2, -2});
    EXPECT_EQ(distance(whole.data()[0], call.overlay.luma), 8 * 64 + 12);
    EXPECT_EQ(distance(whole.data()[1], call.overlay.chroma), 4 * 64 + 12);
    EXPECT_EQ(distance(whole.data()[3], call.overlay.alpha), 8 * 64 + 12);
    EXPECT_EQ(call.overlay.width, 18);
    EXPECT_EQ(call.overlay.height, 6);
}

}  // namespace
}  // namespace vidorra::z5
