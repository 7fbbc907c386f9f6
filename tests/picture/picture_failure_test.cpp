// What pictures do when a call of FFmpeg fails: the linker sends the library's calls of these functions
// through the ones below.

#include <gtest/gtest.h>

#include <new>
#include <optional>
#include <vector>

#include "picture_probe.h"
#include "support/throw_text.h"
#include "vidorra/core/ffmpeg_error.h"
#include "vidorra/picture/picture.h"
#include "vidorra/picture/video_frame.h"

extern "C" {
#include <libavutil/error.h>
#include <libavutil/imgutils.h>
}

namespace {

struct LayoutCall {
    bool zeroed;
    const std::uint8_t* source;
    AVPixelFormat format;
    int width;
    int height;
    int alignment;
};

std::vector<LayoutCall> gLayoutCalls;

// How many calls succeed before one fails; no value for all of them.
std::optional<int> gGoodLayouts;
std::optional<int> gGoodReferences;

bool fails(std::optional<int>& good) {
    return good && (*good)-- == 0;
}

}  // namespace

extern "C" {

decltype(av_image_fill_arrays) __real_av_image_fill_arrays;
decltype(av_image_fill_arrays) __wrap_av_image_fill_arrays;
int __wrap_av_image_fill_arrays(std::uint8_t* data[4], int linesize[4], const std::uint8_t* source,
                                AVPixelFormat format, int width, int height, int align) {
    bool zeroed = true;
    for (int i = 0; i < 4; ++i) {
        zeroed = zeroed && data[i] == nullptr && linesize[i] == 0;
    }
    gLayoutCalls.push_back({zeroed, source, format, width, height, align});
    return fails(gGoodLayouts)
               ? AVERROR(ERANGE)
               : __real_av_image_fill_arrays(data, linesize, source, format, width, height, align);
}

// In the oldest versions the parameter is not const.
AVBufferRef* __real_av_buffer_ref(const AVBufferRef* ref);
AVBufferRef* __wrap_av_buffer_ref(const AVBufferRef* ref);
AVBufferRef* __wrap_av_buffer_ref(const AVBufferRef* ref) {
    return fails(gGoodReferences) ? nullptr : __real_av_buffer_ref(ref);
}
}

namespace vidorra {
namespace {

using test::ffmpegErrorText;
using test::FramePtr;
using test::noisePicture;
using test::pictureInSeparateBuffers;
using test::slotsOf;

constexpr Size kSize{34, 18};

class PictureFailure : public testing::Test {
protected:
    PictureFailure() { gLayoutCalls.clear(); }
    ~PictureFailure() override {
        gGoodLayouts.reset();
        gGoodReferences.reset();
    }
};

TEST_F(PictureFailure, OfTheFirstLayoutSaysThatTheSizeIsUnknown) {
    gGoodLayouts = 0;
    EXPECT_THROW_TEXT(FFmpegError, ffmpegErrorText("Failed to get size of image: ", AVERROR(ERANGE)),
                      Picture(kSize, AV_PIX_FMT_YUV420P, AVCOL_RANGE_MPEG, 32));
    EXPECT_EQ(gLayoutCalls.size(), 1U);
}

TEST_F(PictureFailure, OfTheSecondLayoutSaysThatThePlanesCannotBeLaidOut) {
    gGoodLayouts = 1;
    EXPECT_THROW_TEXT(FFmpegError, ffmpegErrorText("Failed to fill image arrays: ", AVERROR(ERANGE)),
                      Picture(kSize, AV_PIX_FMT_YUV420P, AVCOL_RANGE_MPEG, 32));
    EXPECT_EQ(gLayoutCalls.size(), 2U);
}

TEST_F(PictureFailure, OfALayoutKeepsTheCode) {
    for (const int good : {0, 1}) {
        gGoodLayouts = good;
        try {
            const Picture picture(kSize, AV_PIX_FMT_YUV420P, AVCOL_RANGE_MPEG, 32);
            ADD_FAILURE() << "nothing was thrown";
        } catch (const FFmpegError& error) {
            EXPECT_EQ(error.error(), AvError::OutOfRange);
        }
    }
}

TEST_F(PictureFailure, IsLookedForWithoutMemoryBeforeThePlanesAreLaidOutInIt) {
    const Picture picture(kSize, AV_PIX_FMT_YUV420P, AVCOL_RANGE_MPEG, 32);
    ASSERT_EQ(gLayoutCalls.size(), 2U);
    EXPECT_TRUE(gLayoutCalls[0].zeroed);
    EXPECT_EQ(gLayoutCalls[0].source, nullptr);
    EXPECT_EQ(gLayoutCalls[1].source, slotsOf(picture)[0].data);
    for (const LayoutCall& call : gLayoutCalls) {
        EXPECT_EQ(call.format, AV_PIX_FMT_YUV420P);
        EXPECT_EQ(call.width, kSize.width);
        EXPECT_EQ(call.height, kSize.height);
        EXPECT_EQ(call.alignment, 32);
    }
}

TEST_F(PictureFailure, OfAnyReferenceOfACopyLetsGoOfTheOthers) {
    const Picture source = pictureInSeparateBuffers(kSize, AV_PIX_FMT_YUVA420P);
    const VideoFrame frame(pictureInSeparateBuffers(kSize, AV_PIX_FMT_YUVA420P), Timestamp(), Frame::NoFlags);
    for (const int good : {0, 1, 2, 3}) {
        SCOPED_TRACE(good);
        gGoodReferences = good;
        EXPECT_THROW(Picture{source}, std::bad_alloc);
        gGoodReferences = good;
        EXPECT_THROW(VideoFrame{frame}, std::bad_alloc);
        gGoodReferences.reset();
        EXPECT_TRUE(source.editable());
        EXPECT_TRUE(frame.picture().editable());
    }
}

TEST_F(PictureFailure, OfAnyReferenceToAFrameLetsGoOfTheOthers) {
    const FramePtr frame = makeAvPtr<AVFrame>();
    pictureInSeparateBuffers(kSize, AV_PIX_FMT_YUV420P).fillAVFrame(frame.get());
    for (const int good : {0, 1, 2}) {
        SCOPED_TRACE(good);
        gGoodReferences = good;
        EXPECT_THROW(Picture{frame.get()}, std::bad_alloc);
        for (int i : {0, 1, 2}) {
            EXPECT_EQ(av_buffer_get_ref_count(frame->buf[i]), 1);
        }
    }
}

TEST_F(PictureFailure, OfTheReferenceToAnAlphaLetsGoOfTheColour) {
    const Picture colour = pictureInSeparateBuffers(kSize, AV_PIX_FMT_YUV420P);
    const Picture alpha = noisePicture(kSize, AV_PIX_FMT_GRAY8);
    gGoodReferences = 3;
    EXPECT_THROW(Picture(colour, alpha), std::bad_alloc);
    EXPECT_TRUE(colour.editable());
    EXPECT_TRUE(alpha.editable());
}

TEST_F(PictureFailure, OfAReferenceForAFrameLeavesThoseBeforeItToTheFrame) {
    const Picture picture = pictureInSeparateBuffers(kSize, AV_PIX_FMT_YUV420P);
    FramePtr frame = makeAvPtr<AVFrame>();
    gGoodReferences = 1;
    EXPECT_THROW(picture.fillAVFrame(frame.get()), std::bad_alloc);
    EXPECT_NE(frame->buf[0], nullptr);
    EXPECT_EQ(frame->buf[1], nullptr);
    frame.reset();
    EXPECT_TRUE(picture.editable());
}

}  // namespace
}  // namespace vidorra
