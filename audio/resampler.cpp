#include "vidorra/audio/resampler.h"

#include <algorithm>
#include <new>
#include <stdexcept>
#include <utility>
#include <vector>

#include "audio/plane_pool.h"
#include "ffmpeg/channels.h"
#include "ffmpeg/owners.h"
#include "ffmpeg/resampling.h"
#include "vidorra/core/av_ptr.h"

extern "C" {
#include <libavutil/error.h>
#include <libavutil/mathematics.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

namespace vidorra {
namespace {

// No channel, which is also how FFmpeg marks a silent one.
constexpr int kNoChannel = -1;

// FFmpeg's resampling filter: its length in samples, the binary logarithm of the number of filter phases
// between two samples, and the share of the narrower band that passes.
constexpr int kFilterTaps = 32;
constexpr int kPhaseBits = 5;
constexpr double kCutoff = 1.0;

constexpr std::array<int, 8> kNoMap = {kNoChannel, kNoChannel, kNoChannel, kNoChannel,
                                       kNoChannel, kNoChannel, kNoChannel, kNoChannel};

// The place of a channel in a layout, or a negative code.
int channelIndex(std::uint64_t layout, std::uint64_t channel) {
    if (__builtin_popcountll(channel) != 1 || (layout & channel) == 0) {
        return AVERROR(EINVAL);
    }
    return __builtin_popcountll(layout & (channel - 1));
}

std::vector<std::string> splitAtBars(const std::string& text) {
    std::vector<std::string> tokens;
    std::size_t start = 0;
    for (std::size_t end = text.find('|'); end != std::string::npos; end = text.find('|', start)) {
        tokens.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    tokens.push_back(text.substr(start));
    return tokens;
}

}  // namespace

Resampler::Resampler() : mContext(ffmpeg_ext::adopt<SwrContext>(nullptr)), mChannelMap(kNoMap) {}

Resampler::~Resampler() = default;

Resampler::Resampler(Resampler&& other) noexcept : Resampler() {
    *this = std::move(other);
}

Resampler& Resampler::operator=(Resampler&& other) noexcept {
    if (this != &other) {
        mContext = std::move(other.mContext);
        mInput = std::move(other.mInput);
        mOutput = std::move(other.mOutput);
        mChannelMap = std::exchange(other.mChannelMap, kNoMap);
        mInputMap = std::move(other.mInputMap);
        mPool = std::move(other.mPool);
    }
    return *this;
}

void Resampler::build() {
    AvPtr<SwrContext> owned = ffmpeg_ext::adopt(swr_alloc());
    if (owned == nullptr) {
        throw std::bad_alloc();
    }
    SwrContext* context = owned.get();
    // The results of the settings are not checked: without valid settings the initialisation fails.
    ffmpeg_ext::setResamplerLayouts(*context, mInput.channelLayout(), mOutput.channelLayout());
    av_opt_set_sample_fmt(context, "in_sample_fmt", mInput.sampleFormat(), 0);
    av_opt_set_int(context, "in_sample_rate", mInput.sampleRate(), 0);
    av_opt_set_sample_fmt(context, "out_sample_fmt", mOutput.sampleFormat(), 0);
    av_opt_set_int(context, "out_sample_rate", mOutput.sampleRate(), 0);
    av_opt_set_int(context, "filter_size", kFilterTaps, 0);
    av_opt_set_int(context, "phase_shift", kPhaseBits, 0);
    av_opt_set_double(context, "cutoff", kCutoff, 0);
    if (mChannelMap != kNoMap) {
        // Otherwise FFmpeg would read past the channels of the input.
        mInputMap = std::make_unique<InputMap>();
        mInputMap->fill(kNoChannel);
        std::transform(mChannelMap.begin(), mChannelMap.end(), mInputMap->begin(),
                       [channels = mInput.numberOfChannels()](int channel) {
                           return channel < channels ? channel : kNoChannel;
                       });
        swr_set_channel_mapping(context, mInputMap->data());
    }
    // Other failures are not checked either: without an initialisation every conversion fails.
    if (swr_init(context) == AVERROR(ENOMEM)) {
        throw std::bad_alloc();
    }
    mPool = std::make_unique<PlanePool>();
    mContext = std::move(owned);
}

// Releases the filter, so that the next call makes a new one, and throws.
void Resampler::fail(int code) {
    mContext.reset();
    if (code == AVERROR(ENOMEM)) {
        throw std::bad_alloc();
    }
    // As a count of samples, which has no size, the code gets the error of such a count.
    static_cast<void>(mOutput.planeSize(static_cast<unsigned long>(code)));
}

AudioBuffer Resampler::resample(const AudioBuffer& input, int outRate, long outLayout,
                                AVSampleFormat outFormat) {
    const int inRate = input.sampleRate();
    const auto layout = static_cast<unsigned long>(outLayout);
    if (inRate <= 0 || outRate <= 0) {
        throw std::invalid_argument("Resampler::resample: The sample rates must be above 0");
    }
    if (mContext != nullptr && (swr_is_initialized(mContext.get()) == 0 || mOutput.sampleRate() != outRate ||
                                mOutput.channelLayout() != layout || mOutput.sampleFormat() != outFormat ||
                                !mInput.isCompatibleWithBuffer(input))) {
        mContext.reset();
    }
    if (mContext == nullptr) {
        mInput = AudioBuffer(input.channelLayout(), input.sampleFormat());
        mInput.setSampleRate(inRate);
        mOutput = AudioBuffer(layout, outFormat);
        mOutput.setSampleRate(outRate);
        build();
    }
    const auto samples = static_cast<std::int64_t>(input.availableSamples());
    const std::int64_t delay = swr_get_delay(mContext.get(), inRate);
    const std::int64_t capacity = av_rescale_rnd(delay + samples, outRate, inRate, AV_ROUND_UP);

    std::vector<MemBuffer> planes(mOutput.numberOfPlanes());
    std::array<std::uint8_t*, kMostChannels> out{};
    const std::size_t room = mOutput.planeSize(static_cast<unsigned long>(capacity));
    for (std::size_t i = 0; i < planes.size(); ++i) {
        planes[i] = mPool->get(room);
        out[i] = planes[i].data();
    }
    const std::vector<const std::uint8_t*> in =
        input.empty() ? std::vector<const std::uint8_t*>(1) : input.getPointersToPlanes();
    const int converted = ffmpeg_ext::convertSamples(*mContext, out.data(), static_cast<int>(capacity),
                                                     in.data(), static_cast<int>(samples));
    if (converted < 0) {
        fail(converted);
    }
    return {layout, outFormat, outRate, static_cast<unsigned long>(converted), std::move(planes)};
}

AudioBuffer Resampler::remap(const AudioBuffer& input) {
    return resample(input, input.sampleRate(), static_cast<long>(input.channelLayout()),
                    input.sampleFormat());
}

void Resampler::setChannelMapping(const std::string& map) {
    mContext.reset();
    mChannelMap = kNoMap;
    const std::vector<std::string> names = splitAtBars(map);
    if (names.size() > mChannelMap.size()) {
        throw std::runtime_error("Too many channels in channel map");
    }
    const std::uint64_t layout = ffmpeg_ext::defaultChannelMask(static_cast<int>(names.size()));
    auto channels = kNoMap;
    std::transform(names.begin(), names.end(), channels.begin(), [layout](const std::string& name) {
        return channelIndex(layout, ffmpeg_ext::channelMaskFromName(name));
    });
    mChannelMap = channels;
}

Timestamp Resampler::getDelay() const {
    return {Timebase(), mContext != nullptr ? swr_get_delay(mContext.get(), 1000000) : 0};
}

int Resampler::setCompensation(int sampleDelta, int compensationDistance) {
    return mContext != nullptr ? swr_set_compensation(mContext.get(), sampleDelta, compensationDistance) : 0;
}

}  // namespace vidorra
