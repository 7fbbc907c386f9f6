// Pictures in memory that FFmpeg marks as external, as some builds of it do: in this program a buffer is
// external that begins with a byte of 0xee.

#include <gtest/gtest.h>

#include <string>

#include "ffmpeg/buffers.h"
#include "picture_probe.h"
#include "vidorra/picture/picture.h"

namespace {

constexpr std::uint8_t kExternal = 0xee;

}  // namespace

// The linker puts it in place of vidorra::ffmpeg_ext::av_buffer_is_external. Any answer but 0 is a yes.
extern "C" int __wrap__ZN7vidorra10ffmpeg_ext21av_buffer_is_externalEPK11AVBufferRef(const AVBufferRef* ref) {
    return *ref->data == kExternal ? -1 : 0;
}

namespace vidorra {
namespace {

using test::FramePtr;
using test::newFrame;

constexpr Size kSize{16, 8};

// Each plane in a buffer of its own, of which those in `external` are external.
Picture pictureOf(std::initializer_list<int> external) {
    const FramePtr frame = newFrame(kSize, AV_PIX_FMT_YUV420P, AVCOL_RANGE_MPEG);
    for (int i : {0, 1, 2}) {
        frame->buf[i] = av_buffer_allocz(128);
        frame->data[i] = frame->buf[i]->data;
        frame->linesize[i] = kSize.width;
    }
    for (const int i : external) {
        *frame->data[i] = kExternal;
    }
    return Picture(frame.get());
}

TEST(ExternalMemory, OfABufferIsReported) {
    MemBuffer buffer(16, true);
    EXPECT_FALSE(buffer.isExternal());
    buffer.data()[0] = kExternal;
    EXPECT_TRUE(buffer.isExternal());
    EXPECT_TRUE(MemBuffer(buffer).isExternal());
    EXPECT_FALSE(MemBuffer().isExternal());
}

TEST(ExternalMemory, InAnyBufferMakesAPictureExternal) {
    EXPECT_FALSE(Picture().isBufferExternal());
    EXPECT_FALSE(pictureOf({}).isBufferExternal());
    for (const int external : {0, 1, 2}) {
        EXPECT_TRUE(pictureOf({external}).isBufferExternal()) << external;
    }
    EXPECT_TRUE(pictureOf({0, 1, 2}).isBufferExternal());
}

TEST(ExternalMemory, DecidesNothingElse) {
    const Picture picture = pictureOf({0, 1, 2});
    EXPECT_TRUE(picture.editable());
    EXPECT_FALSE(picture.isBufferDMA());
}

// A picture in one buffer with a flag of av_buffer_create2, external or not.
Picture devicePicture(bool external, int flags) {
    static std::uint8_t memory[128];
    memory[0] = external ? kExternal : 0;
    AVBufferRef* ref =
        ffmpeg_ext::av_buffer_create2(memory, sizeof(memory), nullptr, nullptr, nullptr, 0, nullptr, flags);
    std::uint8_t* planes[4] = {memory};
    const int linesizes[4] = {kSize.width};
    return Picture(MemBuffer(&ref), kSize, planes, linesizes, AV_PIX_FMT_GRAY8, AVCOL_RANGE_JPEG);
}

struct TextRow {
    bool shared = false;
    bool external = false;
    bool dma = false;
    const char* attributes = nullptr;
};

TEST(ExternalMemory, StandsInTheTextBetweenTheOtherAttributes) {
    for (const TextRow& row : {
             TextRow{.shared = true, .external = false, .dma = false, .attributes = "pc"},
             TextRow{.shared = true, .external = false, .dma = true, .attributes = "pc,dma"},
             TextRow{.shared = true, .external = true, .dma = false, .attributes = "pc,external"},
             TextRow{.shared = true, .external = true, .dma = true, .attributes = "pc,external,dma"},
             TextRow{.shared = false, .external = false, .dma = false, .attributes = "pc,editable"},
             TextRow{.shared = false, .external = false, .dma = true, .attributes = "pc,editable,dma"},
             TextRow{.shared = false, .external = true, .dma = false, .attributes = "pc,editable,external"},
             TextRow{
                 .shared = false, .external = true, .dma = true, .attributes = "pc,editable,external,dma"},
         }) {
        const Picture picture = devicePicture(row.external, row.dma ? ffmpeg_ext::kBufferFlagDma : 0);
        const Picture holder = row.shared ? picture : Picture();
        EXPECT_EQ(picture.debugDescription(), std::string("16x8, gray (") + row.attributes + ")");
    }
}

}  // namespace
}  // namespace vidorra
