#include "vidorra/core/av_ptr.h"

#include <type_traits>

#include "support/allocation_limit.h"

extern "C" {
#include <libavcodec/packet.h>
#include <libavutil/buffer.h>
#include <libavutil/frame.h>
}

namespace vidorra {
namespace {

static_assert(std::is_same_v<decltype(makeAvPtr<AVFrame>()), std::unique_ptr<AVFrame, void (*)(AVFrame*)>>);
static_assert(
    std::is_same_v<decltype(makeAvPtr<AVPacket>()), std::unique_ptr<AVPacket, void (*)(AVPacket*)>>);
static_assert(std::is_same_v<decltype(makeAvPtr(std::declval<AVBufferRef*>())),
                             std::unique_ptr<AVBufferRef, void (*)(AVBufferRef*)>>);

// A buffer that counts how often it was freed.
AVBufferRef* countedBuffer(int* freed) {
    static std::uint8_t byte = 0;
    return av_buffer_create(
        &byte, 1, [](void* opaque, std::uint8_t*) { ++*static_cast<int*>(opaque); }, freed, 0);
}

TEST(MakeAvPtr, MakesAnEmptyFrame) {
    const auto frame = makeAvPtr<AVFrame>();
    ASSERT_NE(frame, nullptr);
    EXPECT_EQ(frame->format, -1);
    EXPECT_EQ(frame->data[0], nullptr);
    EXPECT_EQ(frame->buf[0], nullptr);
}

TEST(MakeAvPtr, FrameGoesWithWhatItHolds) {
    int freed = 0;
    auto frame = makeAvPtr<AVFrame>();
    frame->buf[0] = countedBuffer(&freed);
    EXPECT_EQ(freed, 0);
    frame.reset();
    EXPECT_EQ(freed, 1);
}

TEST(MakeAvPtr, MakesAnEmptyPacket) {
    const auto packet = makeAvPtr<AVPacket>();
    ASSERT_NE(packet, nullptr);
    EXPECT_EQ(packet->data, nullptr);
    EXPECT_EQ(packet->size, 0);
    EXPECT_EQ(packet->pos, -1);
}

TEST(MakeAvPtr, PacketGoesWithWhatItHolds) {
    int freed = 0;
    auto packet = makeAvPtr<AVPacket>();
    packet->buf = countedBuffer(&freed);
    EXPECT_EQ(freed, 0);
    packet.reset();
    EXPECT_EQ(freed, 1);
}

TEST(MakeAvPtr, AdoptsAReferenceWithoutMakingAnother) {
    int freed = 0;
    AVBufferRef* raw = countedBuffer(&freed);
    auto handle = makeAvPtr(raw);
    EXPECT_EQ(handle.get(), raw);
    EXPECT_EQ(av_buffer_get_ref_count(raw), 1);
    handle.reset();
    EXPECT_EQ(freed, 1);
}

TEST(MakeAvPtr, ReleasesOnlyTheReferenceThatItAdopted) {
    int freed = 0;
    auto first = makeAvPtr(countedBuffer(&freed));
    auto second = makeAvPtr(av_buffer_ref(first.get()));
    first.reset();
    EXPECT_EQ(freed, 0);
    EXPECT_EQ(av_buffer_get_ref_count(second.get()), 1);
    second.reset();
    EXPECT_EQ(freed, 1);
}

TEST(MakeAvPtr, AdoptsNull) {
    EXPECT_EQ(makeAvPtr(static_cast<AVBufferRef*>(nullptr)), nullptr);
}

TEST(MakeAvPtr, HandlesMoveToOneAnother) {
    int freed = 0;
    auto first = makeAvPtr(countedBuffer(&freed));
    auto second = makeAvPtr(countedBuffer(&freed));
    first = std::move(second);
    EXPECT_EQ(freed, 1);
    first.reset();
    EXPECT_EQ(freed, 2);
}

TEST(MakeAvPtr, IsNullWhenMemoryIsShort) {
    const test::AllocationLimit limit(33);
    EXPECT_EQ(makeAvPtr<AVFrame>(), nullptr);
    EXPECT_EQ(makeAvPtr<AVPacket>(), nullptr);
}

}  // namespace
}  // namespace vidorra
