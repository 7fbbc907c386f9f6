// Filters of samples on counts that leave the planes off FFmpeg's alignment.
#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "demux/quiet_ffmpeg.h"
#include "filter/graph_frames.h"
#include "picture/av_frames.h"
#include "vidorra/filter/ffmpeg_filter_wrapper.h"
#include "vidorra/filter/filter_graph.h"

extern "C" {
#include <libavfilter/avfilter.h>
}

namespace vidorra::test {
namespace {

constexpr int kRate = 48000;
constexpr int kCounts[] = {1, 441, 1000, 1001, 1014, 1024};

// A value between -1 and 1 that differs from sample to sample and from channel to channel.
double sampleAt(int channel, int index) {
    return std::sin(0.01 * (index + 1) * (channel + 1)) / 2;
}

template <class T>
T inFormat(double value) {
    if constexpr (std::is_floating_point_v<T>) {
        return static_cast<T>(value);
    } else if constexpr (std::is_same_v<T, std::uint8_t>) {
        return static_cast<T>(std::lround(value * 127) + 128);
    } else {
        return static_cast<T>(std::llround(value * static_cast<double>(std::numeric_limits<T>::max())));
    }
}

template <class T>
double fromFormat(T value) {
    if constexpr (std::is_floating_point_v<T>) {
        return value;
    } else if constexpr (std::is_same_v<T, std::uint8_t>) {
        return (value - 128) / 127.0;
    } else {
        return static_cast<double>(value) / static_cast<double>(std::numeric_limits<T>::max());
    }
}

// Calls `visit` with a value of the format's own type.
template <class Visit>
void withType(AVSampleFormat format, Visit visit) {
    switch (av_get_packed_sample_fmt(format)) {
    case AV_SAMPLE_FMT_U8:
        return visit(std::uint8_t{});
    case AV_SAMPLE_FMT_S16:
        return visit(std::int16_t{});
    case AV_SAMPLE_FMT_S32:
        return visit(std::int32_t{});
    case AV_SAMPLE_FMT_S64:
        return visit(std::int64_t{});
    case AV_SAMPLE_FMT_FLT:
        return visit(float{});
    default:
        return visit(double{});
    }
}

// Calls `visit` with a pointer to each sample, its channel and its index.
template <class T, class Visit>
void forEachSample(const Kind& kind, const std::vector<std::uint8_t*>& planes, int samples, Visit visit) {
    for (int channel = 0; channel < kind.layout.channels; ++channel) {
        for (int i = 0; i < samples; ++i) {
            T* plane =
                reinterpret_cast<T*>(planes[kind.format.planar ? static_cast<std::size_t>(channel) : 0]);
            visit(plane + (kind.format.planar ? i : i * kind.layout.channels + channel), channel, i);
        }
    }
}

AudioBuffer tone(const Kind& kind, int samples) {
    AudioBuffer buffer(kind.layout.mask, kind.format.format);
    buffer.setSampleRate(kRate);
    buffer.resize(static_cast<unsigned long>(samples));
    withType(kind.format.format, [&](auto type) {
        using T = decltype(type);
        forEachSample<T>(kind, buffer.getPointersToPlanes(), samples,
                         [](T* sample, int channel, int i) { *sample = inFormat<T>(sampleAt(channel, i)); });
    });
    return buffer;
}

// Expects the tone at half its volume, as near as the format counts.
void expectHalf(const Kind& kind, const std::vector<std::uint8_t*>& planes, int samples) {
    int wrong = 0;
    withType(kind.format.format, [&](auto type) {
        using T = decltype(type);
        // Two steps of an integer format.
        const double step =
            std::is_integral_v<T> ? std::max(1e-6, 2 / std::pow(2.0, 8.0 * sizeof(T) - 1)) : 1e-6;
        forEachSample<T>(kind, planes, samples, [&](const T* sample, int channel, int i) {
            if (std::abs(fromFormat(*sample) - sampleAt(channel, i) / 2) > step) {
                ++wrong;
            }
        });
    });
    EXPECT_EQ(wrong, 0) << "of " << samples << " samples in each channel";
}

// The volume is changed in the format itself, where the filter knows it, and given in that format.
std::string halfVolume(const Format& format) {
    const std::string packed = av_get_sample_fmt_name(av_get_packed_sample_fmt(format.format));
    const char* precision = packed == "dbl" || packed == "s64" ? "double"
                            : packed == "flt"                  ? "float"
                                                               : "fixed";
    return std::string("volume=0.5:precision=") + precision + ",aformat=sample_fmts=" + format.name;
}

class SampleFilters : public testing::TestWithParam<Kind> {
    const QuietFfmpeg mQuiet;
};

TEST_P(SampleFilters, ChangeTheVolumeOfEverySampleByItself) {
    const Kind& kind = GetParam();
    for (const int samples : kCounts) {
        SCOPED_TRACE(samples);
        FFmpegFilterWrapper filter;
        filter.setFilterSpec(halfVolume(kind.format));
        for (int i = 0; i < 3; ++i) {
            AudioBuffer input = tone(kind, samples);
            const AudioBuffer result = filter.processAudioBuffer(input);
            ASSERT_EQ(result.numberOfSamples(), static_cast<unsigned long>(samples));
            AudioBuffer copy = result;
            expectHalf(kind, copy.getPointersToPlanes(), samples);
        }
    }
}

TEST_P(SampleFilters, OfAnEncoderChangeTheVolumeOfEverySampleByItself) {
    const Kind& kind = GetParam();
    for (const int samples : kCounts) {
        SCOPED_TRACE(samples);
        const ContextPtr context = audioContext(kind.layout.mask);
        context->sample_fmt = kind.format.format;
        FilterGraphAudio graph(halfVolume(kind.format), *context);
        AvPtr<AVFrame> frame = AudioFrame(tone(kind, samples), Timestamp({1, kRate}, 0)).toAvFrame();
        ASSERT_TRUE(graph.filterFrame(frame).ok);
        ASSERT_EQ(frame->nb_samples, samples);
        expectHalf(kind, {frame->extended_data, frame->extended_data + kind.planes()}, samples);
    }
}

INSTANTIATE_TEST_SUITE_P(, SampleFilters, testing::ValuesIn(allKinds()), [](const auto& row) {
    return std::string(row.param.format.name) + row.param.layout.name;
});

// Every filter that makes samples of samples without being told more. A crash is the failure: a filter may
// refuse.
TEST(AllSampleFilters, TakeOddCountsOfSamples) {
    const QuietFfmpeg quiet;
    constexpr const char* kPlanarAndPacked[] = {"s16p", "fltp", "dblp", "s16", "flt"};
    std::vector<Kind> kinds = allKinds();
    std::erase_if(kinds, [&](const Kind& kind) {
        return (kind.layout.channels != 2 && kind.layout.channels != 6) ||
               std::find(std::begin(kPlanarAndPacked), std::end(kPlanarAndPacked),
                         std::string(kind.format.name)) == std::end(kPlanarAndPacked);
    });
    const auto filters = [](const char* name, const Kind& kind) {
        FFmpegFilterWrapper filter;
        filter.setFilterSpec(name);
        try {
            for (int i = 0; i < 2; ++i) {
                AudioBuffer input = tone(kind, 1001);
                static_cast<void>(filter.processAudioBuffer(input));
            }
        } catch (const std::runtime_error&) {
            return false;
        }
        return true;
    };
    std::vector<std::string> taken;
    void* state = nullptr;
    while (const AVFilter* filter = av_filter_iterate(&state)) {
        // One opens a port to be told.
        if (std::string(filter->name) == "azmq" || !filters(filter->name, kinds[0])) {
            continue;
        }
        taken.emplace_back(filter->name);
        for (const Kind& kind : kinds) {
            filters(filter->name, kind);
        }
    }
    EXPECT_GT(taken.size(), 50U);
    EXPECT_THAT(taken, testing::IsSupersetOf({"volume", "dynaudnorm", "acompressor", "equalizer"}));
}

}  // namespace
}  // namespace vidorra::test
