#include "audio/plain_resampling.h"

#include <cmath>
#include <cstring>

extern "C" {
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

namespace vidorra::test {
namespace {

constexpr int kRoom = 1 << 17;

// Every FFmpeg version has one of the two options, and some have both.
void setLayout(SwrContext* context, const char* option, const char* oldOption, std::uint64_t mask) {
    const std::string text = "0x" + [mask] {
        char digits[32];
        std::snprintf(digits, sizeof digits, "%llx", static_cast<unsigned long long>(mask));
        return std::string(digits);
    }();
    if (av_opt_set(context, option, text.c_str(), 0) < 0) {
        av_opt_set_int(context, oldOption, static_cast<std::int64_t>(mask), 0);
    }
}

// Writes a sample of the given format at a position in a plane.
void put(std::uint8_t* plane, std::size_t index, AVSampleFormat format, double value) {
    const auto store = [&](auto sample) {
        std::memcpy(plane + index * sizeof(sample), &sample, sizeof(sample));
    };
    switch (av_get_packed_sample_fmt(format)) {
    case AV_SAMPLE_FMT_U8:
        store(static_cast<std::uint8_t>(std::lround(value * 127) + 128));
        break;
    case AV_SAMPLE_FMT_S16:
        store(static_cast<std::int16_t>(std::lround(value * 32767)));
        break;
    case AV_SAMPLE_FMT_S32:
        store(static_cast<std::int32_t>(std::llround(value * 2147483647.0)));
        break;
    case AV_SAMPLE_FMT_FLT:
        store(static_cast<float>(value));
        break;
    default:
        store(value);
        break;
    }
}

}  // namespace

PlainResampling::PlainResampling(const AudioBuffer& like, int outRate, std::uint64_t outLayout,
                                 AVSampleFormat outFormat)
    : mContext(swr_alloc(), [](SwrContext* context) { swr_free(&context); }),
      mChannels(__builtin_popcountll(outLayout)),
      mFormat(outFormat) {
    setLayout(mContext.get(), "in_chlayout", "in_channel_layout", like.channelLayout());
    setLayout(mContext.get(), "out_chlayout", "out_channel_layout", outLayout);
    av_opt_set(mContext.get(), "in_sample_fmt", av_get_sample_fmt_name(like.sampleFormat()), 0);
    av_opt_set(mContext.get(), "out_sample_fmt", av_get_sample_fmt_name(outFormat), 0);
    av_opt_set(mContext.get(), "in_sample_rate", std::to_string(like.sampleRate()).c_str(), 0);
    av_opt_set(mContext.get(), "out_sample_rate", std::to_string(outRate).c_str(), 0);
    av_opt_set(mContext.get(), "filter_size", "32", 0);
    av_opt_set(mContext.get(), "phase_shift", "5", 0);
    av_opt_set(mContext.get(), "cutoff", "1", 0);
    if (swr_init(mContext.get()) < 0) {
        throw std::runtime_error("swr_init failed");
    }
}

std::vector<std::vector<std::uint8_t>> PlainResampling::convert(const AudioBuffer& input) {
    const bool planar = av_sample_fmt_is_planar(mFormat) != 0;
    const auto sampleBytes = static_cast<std::size_t>(av_get_bytes_per_sample(mFormat)) *
                             (planar ? 1U : static_cast<unsigned>(mChannels));
    std::vector<std::vector<std::uint8_t>> planes(planar ? static_cast<std::size_t>(mChannels) : 1,
                                                  std::vector<std::uint8_t>(kRoom * sampleBytes));
    std::vector<std::uint8_t*> out;
    for (auto& plane : planes) {
        out.push_back(plane.data());
    }
    std::vector<const std::uint8_t*> in = input.getPointersToPlanes();
    const int samples =
        swr_convert(mContext.get(), out.data(), kRoom, in.data(), static_cast<int>(input.numberOfSamples()));
    if (samples < 0) {
        throw std::runtime_error("swr_convert failed");
    }
    for (auto& plane : planes) {
        plane.resize(static_cast<std::size_t>(samples) * sampleBytes);
    }
    return planes;
}

std::int64_t PlainResampling::delayInMicroseconds() const {
    return swr_get_delay(mContext.get(), 1000000);
}

std::vector<std::vector<std::uint8_t>> bytesOf(const AudioBuffer& buffer) {
    const auto pointers = buffer.getPointersToPlanes();
    const auto bytes =
        static_cast<std::size_t>(buffer.getNeededBufferSize(buffer.numberOfSamples())) / pointers.size();
    std::vector<std::vector<std::uint8_t>> planes;
    for (const std::uint8_t* plane : pointers) {
        planes.emplace_back(plane, plane + bytes);
    }
    return planes;
}

AudioBuffer tones(std::uint64_t layout, AVSampleFormat format, int rate, int samples, int start) {
    constexpr double kPi = 3.14159265358979323846;
    AudioBuffer buffer(layout, format);
    buffer.setSampleRate(rate);
    buffer.resize(static_cast<unsigned long>(samples));
    const auto planes = buffer.getPointersToPlanes();
    const int channels = buffer.numberOfChannels();
    for (int channel = 0; channel < channels; ++channel) {
        for (int i = 0; i < samples; ++i) {
            const double value =
                0.5 * std::sin(2 * kPi * (440.0 + 110.0 * channel) * static_cast<double>(start + i) / rate);
            if (planes.size() > 1) {
                put(planes[static_cast<std::size_t>(channel)], static_cast<std::size_t>(i), format, value);
            } else {
                put(planes[0], static_cast<std::size_t>(i * channels + channel), format, value);
            }
        }
    }
    return buffer;
}

}  // namespace vidorra::test
