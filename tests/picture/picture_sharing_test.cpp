// Which operations share pixels, which copy them, and when pixels become editable again.

#include <gtest/gtest.h>

#include <functional>
#include <latch>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "picture_probe.h"
#include "vidorra/core/enum_text.h"
#include "vidorra/picture/picture.h"
#include "vidorra/picture/video_frame.h"

namespace vidorra {
namespace {

using test::FramePtr;
using test::noisePicture;
using test::pixelsOf;
using test::slotsOf;

constexpr Size kSize{34, 18};

// One way to come from a picture to a second holder of pixels.
struct Operation {
    const char* name;
    bool shares;
    std::function<std::unique_ptr<VideoFrame>(const Picture&)> apply;
};

std::unique_ptr<VideoFrame> holder(Picture picture) {
    return std::make_unique<VideoFrame>(std::move(picture), Timestamp(), Frame::NoFlags);
}

FramePtr frameOf(const Picture& picture) {
    FramePtr frame = makeAvPtr<AVFrame>();
    picture.fillAVFrame(frame.get());
    return frame;
}

std::vector<Operation> operations() {
    return {
        {"copy of a picture", true,
         [](const Picture& source) {
             const Picture& copy = source;
             return holder(copy);
         }},
        {"copy assignment", true,
         [](const Picture& source) {
             Picture copy;
             copy = source;
             return holder(std::move(copy));
         }},
        {"video frame of a picture", true,
         [](const Picture& source) {
             return std::make_unique<VideoFrame>(source, Timestamp(), Frame::NoFlags);
         }},
        {"copy of a video frame", true,
         [](const Picture& source) {
             const VideoFrame frame(source, Timestamp(), Frame::NoFlags);
             return std::make_unique<VideoFrame>(frame);
         }},
        {"picture of an AVFrame with buffers", true,
         [](const Picture& source) { return holder(Picture(frameOf(source).get())); }},
        {"picture of an AVFrame without buffers", false,
         [](const Picture& source) {
             const FramePtr frame = frameOf(source);
             av_buffer_unref(&frame->buf[0]);
             return holder(Picture(frame.get()));
         }},
        {"picture of planes", false,
         [](const Picture& source) {
             return holder(Picture(source.frameSize(), source.data().data(), source.linesize().data(),
                                   source.pixelFormat(), source.colorRange(), 32));
         }},
        {"new picture", false,
         [](const Picture& source) {
             return holder(Picture(source.frameSize(), source.pixelFormat(), source.colorRange(), 32));
         }},
        {"whole crop", true,
         [](const Picture& source) {
             return holder(source.crop(Rect{0, 0, kSize.width, kSize.height}));
         }},
        {"part crop", true,
         [](const Picture& source) {
             return holder(source.crop(Rect{2, 2, 8, 8}));
         }},
        {"crop outside", true,
         [](const Picture& source) {
             return holder(source.crop(Rect{99, 99, 8, 8}));
         }},
        {"colour of another alpha", true,
         [](const Picture& source) {
             return holder(Picture(source, noisePicture(kSize, AV_PIX_FMT_GRAY8)));
         }},
    };
}

bool inBuffer(const std::uint8_t* plane, const test::Slot& slot) {
    return plane >= slot.data && plane < slot.data + slot.size;
}

TEST(PictureSharing, FollowsTheTable) {
    for (const Operation& operation : operations()) {
        SCOPED_TRACE(operation.name);
        const Picture source = noisePicture(kSize, AV_PIX_FMT_YUV420P);
        const auto sourceSlot = slotsOf(source)[0];
        const auto other = operation.apply(source);
        ASSERT_FALSE(other->empty());
        EXPECT_EQ(inBuffer(other->picture().data()[0], sourceSlot), operation.shares);
        EXPECT_EQ(slotsOf(source)[0].references, operation.shares ? 2 : 1);
        EXPECT_EQ(source.editable(), !operation.shares);
        EXPECT_EQ(other->picture().editable(), !operation.shares);
        EXPECT_EQ(source.data()[0], sourceSlot.data) << "the source's own planes move never";
    }
}

TEST(PictureSharing, TheSourceIsEditableAgainWhenTheOtherLetsGo) {
    for (const Operation& operation : operations()) {
        SCOPED_TRACE(operation.name);
        const Picture source = noisePicture(kSize, AV_PIX_FMT_YUV420P);
        auto other = operation.apply(source);
        other.reset();
        EXPECT_EQ(slotsOf(source)[0].references, 1);
        EXPECT_TRUE(source.editable());
    }
}

TEST(PictureSharing, TheOtherIsEditableWhenTheSourceLetsGo) {
    for (const Operation& operation : operations()) {
        SCOPED_TRACE(operation.name);
        Picture source = noisePicture(kSize, AV_PIX_FMT_YUV420P);
        const auto other = operation.apply(source);
        const std::vector<std::uint8_t> pixels =
            other->picture().frameSize().width > 0 ? pixelsOf(other->picture()) : std::vector<std::uint8_t>();
        source = Picture();
        EXPECT_TRUE(other->picture().editable());
        EXPECT_EQ(slotsOf(other->picture())[0].references, 1);
        EXPECT_NO_THROW(other->picture().markModified());
        if (!pixels.empty() && std::string(operation.name) != "new picture") {
            EXPECT_EQ(pixelsOf(other->picture()), pixels);
        }
    }
}

TEST(PictureSharing, CopiesLookAtTheSamePixels) {
    Picture source = noisePicture(kSize, AV_PIX_FMT_YUV420P);
    const VideoFrame frame(source, Timestamp(), Frame::NoFlags);
    const VideoFrame copy(frame);
    source.data()[1][3] = 99;
    EXPECT_EQ(copy.picture().data(), source.data());
    EXPECT_EQ(copy.picture().data()[1][3], 99);
}

TEST(PictureSharing, APictureOfManyBuffersTakesAReferenceToEach) {
    const Picture source = test::pictureInSeparateBuffers(kSize, AV_PIX_FMT_YUVA420P);
    const Picture copy(source);
    const VideoFrame frame(source, Timestamp(), Frame::NoFlags);
    for (const test::Slot& slot : slotsOf(source)) {
        EXPECT_EQ(slot.references, 3);
    }
    EXPECT_EQ(slotsOf(copy)[3].data, slotsOf(source)[3].data);
}

TEST(PictureSharing, NobodyIsEditableWhileMoreThanOneHolds) {
    const Picture first = noisePicture(kSize, AV_PIX_FMT_NV12);
    auto second = std::make_unique<Picture>(first);
    auto third = std::make_unique<Picture>(*second);
    FramePtr frame = frameOf(*third);
    EXPECT_EQ(slotsOf(first)[0].references, 4);
    frame.reset();
    EXPECT_FALSE(first.editable());
    second.reset();
    EXPECT_FALSE(first.editable());
    EXPECT_FALSE(third->editable());
    third.reset();
    EXPECT_TRUE(first.editable());
}

TEST(PictureSharing, HoldersOnManyThreadsLetGoIndependently) {
    constexpr int kThreads = 4;
    const Picture source = noisePicture(kSize, AV_PIX_FMT_YUV420P);
    const std::vector<std::uint8_t> pixels = pixelsOf(source);
    std::latch start(kThreads);
    std::vector<std::thread> threads;
    std::array<bool, kThreads> same{};
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back(
            [&start, &pixels, &result = same[i], own = VideoFrame(source, Timestamp(), Frame::NoFlags)] {
                start.arrive_and_wait();
                for (int round = 0; round < 500; ++round) {
                    VideoFrame copy(own);
                    Picture part = copy.picture().crop(Rect{2, 2, 8, 8});
                    copy.picture().makeEditable();
                    part.makeEditable();
                }
                result = pixelsOf(own.picture()) == pixels;
            });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(same, (std::array<bool, kThreads>{true, true, true, true}));
    EXPECT_TRUE(source.editable());
    EXPECT_EQ(pixelsOf(source), pixels);
}

}  // namespace
}  // namespace vidorra
