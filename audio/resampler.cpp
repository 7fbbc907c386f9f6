#include "vidorra/audio/resampler.h"

#include <algorithm>
#include <new>
#include <stdexcept>
#include <utility>
#include <vector>

#include "audio/plane_pool.h"
#include "ffmpeg/channels.h"
#include "ffmpeg/resampling.h"

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

constexpr std::array<int, 8> kNoMap = {kNoChannel, kNoChannel, kNoChannel, kNoChannel,
                                       kNoChannel, kNoChannel, kNoChannel, kNoChannel};

void freeContext(SwrContext* context) {
    swr_free(&context);
}

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

Resampler::Resampler() : mContext(nullptr, freeContext), mChannelMap(kNoMap) {}

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
    std::unique_ptr<SwrContext, void (*)(SwrContext*)> owned(swr_alloc(), freeContext);
    if (owned == nullptr) {
        throw std::bad_alloc();
    }
    SwrContext* context = owned.get();
    // No result is looked at: without a valid setting the initialisation fails, and without that every
    // conversion.
    ffmpeg_ext::setResamplerLayouts(*context, mInput.channelLayout(), mOutput.channelLayout());
    av_opt_set_sample_fmt(context, "in_sample_fmt", mInput.sampleFormat(), 0);
    av_opt_set_int(context, "in_sample_rate", mInput.sampleRate(), 0);
    av_opt_set_sample_fmt(context, "out_sample_fmt", mOutput.sampleFormat(), 0);
    av_opt_set_int(context, "out_sample_rate", mOutput.sampleRate(), 0);
    av_opt_set_int(context, "filter_size", 32, 0);
    av_opt_set_int(context, "phase_shift", 5, 0);
    av_opt_set_double(context, "cutoff", 1.0, 0);
    if (mChannelMap != kNoMap) {
        // FFmpeg would read behind the channels that the input has.
        mInputMap = std::make_unique<InputMap>();
        mInputMap->fill(kNoChannel);
        std::transform(mChannelMap.begin(), mChannelMap.end(), mInputMap->begin(),
                       [channels = mInput.numberOfChannels()](int channel) {
                           return channel < channels ? channel : kNoChannel;
                       });
        swr_set_channel_mapping(context, mInputMap->data());
    }
    swr_init(context);
    mPool = std::make_unique<PlanePool>();
    mContext = std::move(owned);
}

AudioBuffer Resampler::resample(const AudioBuffer& input, int outRate, long outLayout,
                                AVSampleFormat outFormat) {
    const int inRate = input.sampleRate();
    const auto layout = static_cast<unsigned long>(outLayout);
    if (inRate <= 0 || outRate <= 0) {
        throw std::invalid_argument("Resampler::resample: The sample rates must be above 0");
    }
    if (mContext != nullptr &&
        (mOutput.sampleRate() != outRate || mOutput.channelLayout() != layout ||
         mOutput.sampleFormat() != outFormat || !mInput.isCompatibleWithBuffer(input))) {
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
    const auto converted = static_cast<unsigned long>(ffmpeg_ext::convertSamples(
        *mContext, out.data(), static_cast<int>(capacity), in.data(), static_cast<int>(samples)));
    // A failure becomes a count for which there is no size, which throws.
    return {layout, outFormat, outRate, converted, std::move(planes)};
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
    std::transform(names.begin(), names.end(), mChannelMap.begin(), [layout](const std::string& name) {
        return channelIndex(layout, ffmpeg_ext::channelMaskFromName(name));
    });
}

Timestamp Resampler::getDelay() const {
    return {Timebase(), mContext != nullptr ? swr_get_delay(mContext.get(), 1000000) : 0};
}

int Resampler::setCompensation(int sampleDelta, int compensationDistance) {
    return mContext != nullptr ? swr_set_compensation(mContext.get(), sampleDelta, compensationDistance) : 0;
}

}  // namespace vidorra
