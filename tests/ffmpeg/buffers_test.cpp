#include "ffmpeg/buffers.h"

#include <climits>
#include <utility>
#include <vector>

#include "ffmpeg/counted_buffer.h"
#include "support/allocation_limit.h"

extern "C" {
#include <libavutil/frame.h>
}

namespace vidorra::ffmpeg_ext {
namespace {

using test::CountedMemory;
using Flush = CountedMemory::FlushCall;
using Free = CountedMemory::FreeCall;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(FlushableBuffer, WrapsTheGivenMemory) {
    CountedMemory memory(64);
    AVBufferRef* ref = memory.wrap();
    ASSERT_NE(ref, nullptr);
    EXPECT_EQ(ref->data, memory.bytes.data());
    EXPECT_EQ(static_cast<int>(ref->size), 64);
    EXPECT_EQ(av_buffer_get_ref_count(ref), 1);
    EXPECT_NE(av_buffer_is_writable(ref), 0);
    av_buffer_unref(&ref);
}

TEST(FlushableBuffer, IsFreedOnceWithItsOpaquePointerWhenTheLastReferenceGoes) {
    CountedMemory memory(64);
    AVBufferRef* first = memory.wrap();
    AVBufferRef* second = av_buffer_ref(first);
    EXPECT_EQ(av_buffer_is_writable(first), 0);
    av_buffer_unref(&first);
    EXPECT_THAT(memory.frees, IsEmpty());
    av_buffer_unref(&second);
    EXPECT_THAT(memory.frees, ElementsAre(Free{&memory, memory.bytes.data()}));
    EXPECT_THAT(memory.flushes, IsEmpty());
}

TEST(FlushableBuffer, FlushGivesTheOpaquePointerTheDataAndTheSize) {
    CountedMemory memory(64);
    AVBufferRef* ref = memory.wrap();
    av_buffer_flush(ref);
    EXPECT_THAT(memory.flushes, ElementsAre(Flush{&memory, memory.bytes.data(), 64}));
    av_buffer_unref(&ref);
}

TEST(FlushableBuffer, FlushesEachTimeWrittenOrNot) {
    CountedMemory memory(64);
    AVBufferRef* ref = memory.wrap();
    av_buffer_flush(ref);
    av_buffer_flush(ref);
    av_buffer_set_modified(ref);
    EXPECT_EQ(memory.flushes.size(), 2U);
    av_buffer_flush(ref);
    EXPECT_EQ(memory.flushes.size(), 3U);
    av_buffer_unref(&ref);
}

TEST(FlushableBuffer, FlushesThroughAnyReference) {
    CountedMemory memory(64);
    AVBufferRef* first = memory.wrap();
    AVBufferRef* second = av_buffer_ref(first);
    av_buffer_unref(&first);
    av_buffer_flush(second);
    EXPECT_THAT(memory.flushes, ElementsAre(Flush{&memory, memory.bytes.data(), 64}));
    av_buffer_unref(&second);
}

TEST(FlushableBuffer, TwoBuffersKeepTheirCallbacksApart) {
    CountedMemory one(64);
    CountedMemory two(32);
    AVBufferRef* first = one.wrap();
    AVBufferRef* second = two.wrap(0);
    av_buffer_flush(second);
    EXPECT_THAT(one.flushes, IsEmpty());
    EXPECT_THAT(two.flushes, ElementsAre(Flush{&two, two.bytes.data(), 32}));
    av_buffer_unref(&first);
    EXPECT_EQ(one.frees.size(), 1U);
    EXPECT_THAT(two.frees, IsEmpty());
    av_buffer_unref(&second);
}

TEST(FlushableBuffer, NeedsNoCallbacks) {
    std::uint8_t byte = 0;
    AVBufferRef* ref = av_buffer_create2(&byte, 1, nullptr, nullptr, nullptr, 0, nullptr, kBufferFlagDma);
    ASSERT_NE(ref, nullptr);
    av_buffer_flush(ref);
    EXPECT_NE(av_buffer_is_dma(ref), 0);
    av_buffer_unref(&ref);
    EXPECT_EQ(ref, nullptr);
}

TEST(FlushableBuffer, MayHaveASizeOfZero) {
    CountedMemory memory(0);
    AVBufferRef* ref = memory.wrap();
    ASSERT_NE(ref, nullptr);
    av_buffer_flush(ref);
    EXPECT_THAT(memory.flushes, ElementsAre(Flush{&memory, memory.bytes.data(), 0}));
    av_buffer_unref(&ref);
    EXPECT_EQ(memory.frees.size(), 1U);
}

TEST(FlushableBuffer, RefusesANegativeSizeWithoutFreeing) {
    CountedMemory memory(64);
    for (const int size : {-1, INT_MIN}) {
        EXPECT_EQ(av_buffer_create2(memory.bytes.data(), size, CountedMemory::free, CountedMemory::flush,
                                    nullptr, 0, &memory, 0),
                  nullptr);
    }
    EXPECT_THAT(memory.frees, IsEmpty());
}

TEST(FlushableBuffer, IsNullAndNotFreedWhenMemoryIsShort) {
    CountedMemory memory(64);
    {
        const test::AllocationLimit limit(33);
        for (int i = 0; i < 10; ++i) {
            EXPECT_EQ(memory.wrap(), nullptr);
        }
    }
    EXPECT_THAT(memory.frees, IsEmpty());
}

TEST(FlushableBuffer, FreeMayMakeAndReleaseBuffers) {
    static CountedMemory inner(8);
    inner.frees.clear();
    std::uint8_t byte = 0;
    AVBufferRef* ref = av_buffer_create2(
        &byte, 1,
        [](void*, std::uint8_t*) {
            AVBufferRef* other = inner.wrap();
            av_buffer_unref(&other);
        },
        nullptr, nullptr, 0, nullptr, 0);
    av_buffer_unref(&ref);
    EXPECT_EQ(inner.frees.size(), 1U);
}

TEST(FlushableBuffer, LivesInANumberThatIsLimited) {
    constexpr int kLimit = 262144;
    static int freed = 0;
    freed = 0;
    std::uint8_t byte = 0;
    const auto create = [&byte] {
        return av_buffer_create2(
            &byte, 1, [](void*, std::uint8_t*) { ++freed; }, nullptr, nullptr, 0, nullptr, kBufferFlagDma);
    };
    std::vector<AVBufferRef*> refs;
    refs.reserve(kLimit);
    for (int i = 0; i < kLimit; ++i) {
        refs.push_back(create());
        ASSERT_NE(refs.back(), nullptr) << i;
    }
    EXPECT_EQ(create(), nullptr);
    EXPECT_EQ(create(), nullptr);
    EXPECT_EQ(freed, 0);
    // The place of a released buffer can be used again.
    av_buffer_unref(&refs[kLimit / 2]);
    EXPECT_EQ(freed, 1);
    refs[kLimit / 2] = create();
    EXPECT_NE(refs[kLimit / 2], nullptr);
    EXPECT_EQ(create(), nullptr);
    for (AVBufferRef*& ref : refs) {
        EXPECT_NE(av_buffer_is_dma(ref), 0);
        av_buffer_unref(&ref);
    }
    EXPECT_EQ(freed, kLimit + 1);
}

struct FlagRow {
    int flags;
    bool dma;
};

TEST(DmaMark, IsTheFlag256) {
    EXPECT_EQ(kBufferFlagDma, 256);
    for (const FlagRow& row : {FlagRow{0, false}, FlagRow{256, true}, FlagRow{257, true}, FlagRow{1, false},
                               FlagRow{512, false}}) {
        CountedMemory memory(64);
        AVBufferRef* ref = memory.wrap(row.flags);
        EXPECT_EQ(av_buffer_is_dma(ref) != 0, row.dma) << row.flags;
        EXPECT_EQ(av_buffer_is_external(ref), 0) << row.flags;
        // Both kinds flush.
        av_buffer_flush(ref);
        EXPECT_EQ(memory.flushes.size(), 1U) << row.flags;
        av_buffer_unref(&ref);
    }
}

TEST(DmaMark, OfAnEarlierBufferDoesNotReachALaterOne) {
    CountedMemory memory(64);
    AVBufferRef* marked = memory.wrap();
    av_buffer_unref(&marked);
    AVBufferRef* plain = memory.wrap(0);
    EXPECT_EQ(av_buffer_is_dma(plain), 0);
    av_buffer_unref(&plain);
}

TEST(DmaMark, SurvivesAReference) {
    CountedMemory memory(64);
    AVBufferRef* first = memory.wrap();
    AVBufferRef* second = av_buffer_ref(first);
    EXPECT_NE(av_buffer_is_dma(second), 0);
    av_buffer_unref(&first);
    EXPECT_NE(av_buffer_is_dma(second), 0);
    av_buffer_unref(&second);
}

AVFrame* grayFrame(AVBufferRef* ref, int width, int height) {
    AVFrame* frame = av_frame_alloc();
    frame->format = AV_PIX_FMT_GRAY8;
    frame->width = width;
    frame->height = height;
    frame->buf[0] = ref;
    frame->data[0] = ref->data;
    frame->linesize[0] = width;
    return frame;
}

void expectMarkedCopy(AVFrame* frame, CountedMemory& memory) {
    ASSERT_NE(frame, nullptr);
    ASSERT_NE(frame->buf[0], nullptr);
    EXPECT_NE(av_buffer_is_dma(frame->buf[0]), 0);
    memory.flushes.clear();
    av_buffer_flush(frame->buf[0]);
    EXPECT_THAT(memory.flushes, ElementsAre(Flush{&memory, memory.bytes.data(), 64}));
}

TEST(DmaMark, SurvivesReferencesClonesAndMovesOfFrames) {
    CountedMemory memory(64);
    AVFrame* original = grayFrame(memory.wrap(), 8, 8);
    AVFrame* clone = av_frame_clone(original);
    expectMarkedCopy(clone, memory);
    AVFrame* reference = av_frame_alloc();
    ASSERT_EQ(av_frame_ref(reference, clone), 0);
    av_frame_free(&original);
    expectMarkedCopy(reference, memory);
    AVFrame* moved = av_frame_alloc();
    av_frame_move_ref(moved, reference);
    expectMarkedCopy(moved, memory);
    av_frame_free(&clone);
    av_frame_free(&reference);
    EXPECT_THAT(memory.frees, IsEmpty());
    av_frame_free(&moved);
    EXPECT_EQ(memory.frees.size(), 1U);
}

TEST(DmaMark, StaysWhenABufferIsWritableAlready) {
    CountedMemory memory(64);
    AVBufferRef* ref = memory.wrap();
    ASSERT_EQ(av_buffer_make_writable(&ref), 0);
    EXPECT_EQ(ref->data, memory.bytes.data());
    EXPECT_NE(av_buffer_is_dma(ref), 0);
    av_buffer_unref(&ref);
}

TEST(DmaMark, EndsWhereABufferIsCopiedToBeWritable) {
    CountedMemory memory(64);
    memory.bytes[5] = 55;
    AVBufferRef* original = memory.wrap();
    AVBufferRef* copy = av_buffer_ref(original);
    ASSERT_EQ(av_buffer_make_writable(&copy), 0);
    EXPECT_EQ(copy->data[5], 55);
    EXPECT_EQ(av_buffer_is_dma(copy), 0);
    av_buffer_flush(copy);
    EXPECT_THAT(memory.flushes, IsEmpty());
    EXPECT_NE(av_buffer_is_dma(original), 0);
    av_buffer_unref(&original);
    EXPECT_EQ(memory.frees.size(), 1U);
    av_buffer_unref(&copy);
    EXPECT_EQ(memory.frees.size(), 1U);
}

TEST(DmaMark, EndsWhereABufferIsReallocated) {
    CountedMemory memory(64);
    memory.bytes[5] = 55;
    AVBufferRef* ref = memory.wrap();
    ASSERT_EQ(av_buffer_realloc(&ref, 128), 0);
    EXPECT_EQ(ref->data[5], 55);
    EXPECT_EQ(av_buffer_is_dma(ref), 0);
    av_buffer_flush(ref);
    EXPECT_THAT(memory.flushes, IsEmpty());
    EXPECT_THAT(memory.frees, ElementsAre(Free{&memory, memory.bytes.data()}));
    av_buffer_unref(&ref);
}

TEST(StrangersBuffer, IsNotOursWhateverItsOpaquePointer) {
    std::uint8_t byte = 0;
    int onStack = 0;
    static int global = 0;
    const std::vector<int> onHeap(10);
    std::vector<const void*> pointers = {nullptr, &onStack, &global, onHeap.data(), &byte};
    for (const std::uintptr_t number : {std::uintptr_t{1}, std::uintptr_t{256}, std::uintptr_t{0x1000},
                                        UINTPTR_MAX / 2, UINTPTR_MAX - 7, UINTPTR_MAX}) {
        pointers.push_back(reinterpret_cast<const void*>(number));
    }
    // Some of ours at the same time.
    CountedMemory memory(64);
    AVBufferRef* ours = memory.wrap();
    for (const void* opaque : pointers) {
        SCOPED_TRACE(opaque);
        AVBufferRef* ref = av_buffer_create(
            &byte, 1, [](void*, std::uint8_t*) {}, const_cast<void*>(opaque), 0);
        EXPECT_EQ(av_buffer_is_dma(ref), 0);
        EXPECT_EQ(av_buffer_is_external(ref), 0);
        av_buffer_set_modified(ref);
        av_buffer_flush(ref);
        av_buffer_unref(&ref);
    }
    EXPECT_THAT(memory.flushes, IsEmpty());
    av_buffer_unref(&ours);
}

TEST(StrangersBuffer, OfFFmpegsOwnMakingIsNotOurs) {
    AVBufferRef* plain = av_buffer_allocz(64);
    AVBufferPool* pool = av_buffer_pool_init(64, nullptr);
    AVBufferRef* pooled = av_buffer_pool_get(pool);
    for (AVBufferRef* ref : {plain, pooled}) {
        EXPECT_EQ(av_buffer_is_dma(ref), 0);
        EXPECT_EQ(av_buffer_is_external(ref), 0);
        av_buffer_flush(ref);
    }
    av_buffer_unref(&plain);
    av_buffer_unref(&pooled);
    av_buffer_pool_uninit(&pool);
}

}  // namespace
}  // namespace vidorra::ffmpeg_ext
