#include "picture/aligned_samples.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>

#include "ffmpeg/channels.h"
#include "picture/av_frames.h"
#include "support/allocation_limit.h"

extern "C" {
#include <libavutil/buffer.h>
#include <libavutil/cpu.h>
#include <libavutil/error.h>
#include <libavutil/frame.h>
}

namespace vidorra::test {
namespace {

constexpr int kCounts[] = {1, 31, 32, 441, 1000, 1001, 1014, 1024};

std::vector<const std::uint8_t*> addresses(const AVFrame& frame, int planes) {
    return {frame.extended_data, frame.extended_data + planes};
}

// Frames as AudioBuffer makes them: planes one after the other, without a gap.
AvPtr<AVFrame> packedFrame(const Kind& kind, int samples, const std::vector<Bytes>& planes) {
    AudioBuffer buffer(kind.layout.mask, kind.format.format);
    buffer.setSampleRate(48000);
    buffer.resize(static_cast<unsigned long>(samples));
    for (std::size_t i = 0; i < planes.size(); ++i) {
        std::copy(planes[i].begin(), planes[i].end(), buffer.getPointersToPlanes()[i]);
    }
    AvPtr<AVFrame> frame = makeAvPtr<AVFrame>();
    buffer.fillAVFrame(frame.get());
    return frame;
}

// Expects planes as FFmpeg allocates them for frames of its own.
void expectAligned(AVFrame& frame, const Kind& kind) {
    const int padded = kind.planeBytes((frame.nb_samples + 31) / 32 * 32);
    for (int i = 0; i < kind.planes(); ++i) {
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(frame.extended_data[i]) % av_cpu_max_align(), 0U);
        if (frame.nb_samples % 32 == 0) {
            continue;
        }
        const AVBufferRef* buffer = av_frame_get_plane_buffer(&frame, i);
        ASSERT_NE(buffer, nullptr);
        EXPECT_GE(buffer->data + buffer->size, frame.extended_data[i] + padded);
    }
}

class AlignedSamples : public testing::TestWithParam<Kind> {};

TEST_P(AlignedSamples, OfFfmpegsOwnFramesStayWhereTheyAre) {
    const Kind& kind = GetParam();
    for (const int samples : kCounts) {
        const AvPtr<AVFrame> frame = makeFrame(kind, samples, 48000, unlikePlanes(kind, samples));
        const auto before = addresses(*frame, kind.planes());
        EXPECT_EQ(alignSamples(*frame), 0);
        EXPECT_EQ(addresses(*frame, kind.planes()), before);
    }
}

TEST_P(AlignedSamples, OfPlanesWithoutGapsAreMovedWithAllThatTheFrameHolds) {
    const Kind& kind = GetParam();
    for (const int samples : kCounts) {
        SCOPED_TRACE(samples);
        const std::vector<Bytes> planes = unlikePlanes(kind, samples);
        const AvPtr<AVFrame> frame = packedFrame(kind, samples, planes);
        frame->pts = 77;
        ASSERT_EQ(alignSamples(*frame), 0);
        expectAligned(*frame, kind);
        EXPECT_EQ(planesOf(*frame, kind.planes(), kind.planeBytes(samples)), planes);
        EXPECT_EQ(frame->pts, 77);
        EXPECT_EQ(frame->nb_samples, samples);
        EXPECT_EQ(frame->sample_rate, 48000);
        EXPECT_EQ(frame->format, kind.format.format);
        EXPECT_EQ(ffmpeg_ext::channelMask(*frame), kind.layout.mask);
    }
}

TEST_P(AlignedSamples, FromAnyAddressAreMoved) {
    const Kind& kind = GetParam();
    const std::vector<Bytes> planes = unlikePlanes(kind, 64);
    const AvPtr<AVFrame> frame = makeFrame(kind, 64, 48000, planes);
    // As a filter leaves it that has taken samples from the beginning.
    for (int i = 0; i < kind.planes(); ++i) {
        frame->extended_data[i] += kind.planeBytes(1);
        if (i < AV_NUM_DATA_POINTERS) {
            frame->data[i] = frame->extended_data[i];
        }
    }
    frame->nb_samples = 32;
    ASSERT_EQ(alignSamples(*frame), 0);
    expectAligned(*frame, kind);
    for (int i = 0; i < kind.planes(); ++i) {
        EXPECT_EQ(std::memcmp(frame->extended_data[i],
                              planes[static_cast<std::size_t>(i)].data() + kind.planeBytes(1),
                              static_cast<std::size_t>(kind.planeBytes(32))),
                  0);
    }
}

INSTANTIATE_TEST_SUITE_P(, AlignedSamples, testing::ValuesIn(allKinds()), [](const auto& row) {
    return std::string(row.param.format.name) + row.param.layout.name;
});

constexpr Kind kStereoFloats{{.name = "fltp", .format = AV_SAMPLE_FMT_FLTP, .bytes = 4, .planar = true},
                             {.name = "Stereo", .mask = AV_CH_LAYOUT_STEREO, .channels = 2}};

TEST(AlignSamples, SharedSamplesStayWithTheOtherFrame) {
    const std::vector<Bytes> planes = unlikePlanes(kStereoFloats, 441);
    const AvPtr<AVFrame> frame = packedFrame(kStereoFloats, 441, planes);
    const AvPtr<AVFrame> other = makeAvPtr<AVFrame>();
    ASSERT_EQ(av_frame_ref(other.get(), frame.get()), 0);
    ASSERT_EQ(alignSamples(*frame), 0);
    EXPECT_NE(frame->data[0], other->data[0]);
    EXPECT_EQ(planesOf(*other, 2, kStereoFloats.planeBytes(441)), planes);
}

TEST(AlignSamples, SamplesWithoutReferencesAreLeftAlone) {
    const std::vector<Bytes> planes = unlikePlanes(kStereoFloats, 441);
    const AvPtr<AVFrame> source = makeFrame(kStereoFloats, 441, 48000, planes);
    const AvPtr<AVFrame> frame = makeAvPtr<AVFrame>();
    frame->format = AV_SAMPLE_FMT_FLTP;
    frame->nb_samples = 441;
    frame->linesize[0] = source->linesize[0];
    ffmpeg_ext::setChannelMask(*frame, AV_CH_LAYOUT_STEREO);
    frame->data[0] = source->data[0];
    frame->data[1] = source->data[1];
    EXPECT_EQ(alignSamples(*frame), 0);
    EXPECT_EQ(frame->data[0], source->data[0]);
}

TEST(AlignSamples, FramesWithoutSamplesAreLeftAlone) {
    const AvPtr<AVFrame> frame = makeAvPtr<AVFrame>();
    EXPECT_EQ(alignSamples(*frame), 0);
    frame->width = 16;
    frame->height = 16;
    frame->format = AV_PIX_FMT_GRAY8;
    ASSERT_EQ(av_frame_get_buffer(frame.get(), 0), 0);
    const std::uint8_t* const pixels = frame->data[0];
    EXPECT_EQ(alignSamples(*frame), 0);
    EXPECT_EQ(frame->data[0], pixels);
}

TEST(AlignSamples, SamplesWithoutASizeOrMemoryAreInvalid) {
    const auto expectInvalid = [](void (*spoil)(AVFrame&)) {
        const AvPtr<AVFrame> frame = makeFrame(kStereoFloats, 441, 48000, {});
        spoil(*frame);
        EXPECT_EQ(alignSamples(*frame), AVERROR(EINVAL));
    };
    expectInvalid([](AVFrame& frame) { frame.format = AV_SAMPLE_FMT_NONE; });
    expectInvalid([](AVFrame& frame) { frame.nb_samples = INT_MAX; });
    expectInvalid([](AVFrame& frame) { frame.data[1] = nullptr; });
}

TEST(AlignSamples, WithoutMemoryTheFrameStays) {
    const std::vector<Bytes> planes = unlikePlanes(kStereoFloats, 10001);
    const AvPtr<AVFrame> frame = packedFrame(kStereoFloats, 10001, planes);
    {
        const AllocationLimit limit(10000);
        EXPECT_EQ(alignSamples(*frame), AVERROR(ENOMEM));
    }
    EXPECT_EQ(planesOf(*frame, 2, kStereoFloats.planeBytes(10001)), planes);
    EXPECT_EQ(alignSamples(*frame), 0);
}

}  // namespace
}  // namespace vidorra::test
