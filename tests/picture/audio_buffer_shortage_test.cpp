// Audio buffers for which there is not enough memory.

#include <gmock/gmock.h>

#include <new>
#include <vector>

#include "picture/av_frames.h"
#include "support/allocation_limit.h"
#include "vidorra/picture/audio_buffer.h"

namespace vidorra {
namespace {

using test::AllocationLimit;
using test::Kind;
using testing::Each;
using testing::ElementsAre;
using testing::IsNull;

constexpr Kind kStereo16 = {test::kFormats[1], test::kLayouts[1]};
constexpr Kind kTwelvePlanes = {test::kFormats[9], test::kLayouts[4]};

// More than a reference to a buffer takes, and less than the samples of these tests.
constexpr std::size_t kLimit = 1000;

TEST(AudioBufferShortage, InResizeKeepsTheNewCountAndTheOldSamples) {
    AudioBuffer buffer(AV_CH_LAYOUT_STEREO, AV_SAMPLE_FMT_S16);
    buffer.loadSamples({7, 8});
    {
        const AllocationLimit limit(kLimit);
        EXPECT_THROW(buffer.resize(4000), std::bad_alloc);
    }
    EXPECT_EQ(buffer.numberOfSamples(), 4000U);
    EXPECT_EQ(buffer.availableSamples(), 2U);
    EXPECT_THAT(buffer.getSample_s16(1), ElementsAre(8, 8));
}

TEST(AudioBufferShortage, InResizeOfANewBufferLeavesPlanesWithoutMemory) {
    AudioBuffer buffer(test::kTwelveChannels, AV_SAMPLE_FMT_FLTP);
    {
        const AllocationLimit limit(kLimit);
        EXPECT_THROW(buffer.resize(4000), std::bad_alloc);
    }
    EXPECT_FALSE(buffer.empty());
    EXPECT_THAT(buffer.getPointersToPlanes(), testing::AllOf(testing::SizeIs(12), Each(IsNull())));
}

TEST(AudioBufferShortage, LeavesAFrameThatIsFilledFromPlanesWithoutMemoryItsOwn) {
    AudioBuffer buffer(AV_CH_LAYOUT_STEREO, AV_SAMPLE_FMT_FLTP);
    {
        const AllocationLimit limit(kLimit);
        EXPECT_THROW(buffer.resize(4000), std::bad_alloc);
    }
    const auto frame = makeAvPtr<AVFrame>();
    buffer.fillAVFrame(frame.get());
    EXPECT_EQ(frame->nb_samples, 4000);
    EXPECT_EQ(frame->linesize[0], 16000);
    EXPECT_NE(frame->data[1], nullptr);
}

TEST(AudioBufferShortage, InLoadingAFrameLeavesCopiesAlone) {
    AudioBuffer buffer(AV_CH_LAYOUT_STEREO, AV_SAMPLE_FMT_S16);
    buffer.loadSamples({7, 8});
    const AudioBuffer copy = buffer;
    const auto frame = test::makeFrame(kStereo16, 4000, 8000, {});
    {
        const AllocationLimit limit(kLimit);
        EXPECT_THROW(buffer.loadAVFrame(frame.get()), std::bad_alloc);
    }
    EXPECT_EQ(copy.numberOfSamples(), 2U);
    EXPECT_THAT(copy.getSample_s16(1), ElementsAre(8, 8));
    EXPECT_EQ(av_buffer_get_ref_count(frame->buf[0]), 1);
}

void expectNoSamples(const AVFrame& frame) {
    EXPECT_EQ(frame.buf[0], nullptr);
    EXPECT_EQ(frame.data[0], nullptr);
    EXPECT_EQ(frame.nb_samples, 0);
}

TEST(AudioBufferShortage, OfSamplesForAFrameLeavesTheFrameWithout) {
    AudioBuffer buffer(AV_CH_LAYOUT_STEREO, AV_SAMPLE_FMT_S16);
    buffer.resize(4000);
    const auto frame = makeAvPtr<AVFrame>();
    const AllocationLimit limit(kLimit);
    EXPECT_THROW(buffer.fillAVFrame(frame.get()), std::bad_alloc);
    expectNoSamples(*frame);
}

TEST(AudioBufferShortage, OfTheListOfTwelvePlanesLeavesTheFrameWithout) {
    AudioBuffer buffer(kTwelvePlanes.layout.mask, kTwelvePlanes.format.format);
    buffer.resize(1);
    const auto frame = makeAvPtr<AVFrame>();
    const AllocationLimit limit(12 * sizeof(void*) - 1);
    EXPECT_THROW(buffer.fillAVFrame(frame.get()), std::bad_alloc);
    EXPECT_EQ(frame->extended_data, frame->data);
    expectNoSamples(*frame);
}

TEST(AudioBufferShortage, OfTheReferenceForAFrameLeavesTheFrameWithout) {
    AudioBuffer buffer(AV_CH_LAYOUT_MONO, AV_SAMPLE_FMT_U8);
    buffer.resize(1);
    const auto frame = makeAvPtr<AVFrame>();
    // The one sample fits.
    const AllocationLimit limit(33);
    EXPECT_THROW(buffer.fillAVFrame(frame.get()), std::bad_alloc);
    expectNoSamples(*frame);
}

}  // namespace
}  // namespace vidorra
