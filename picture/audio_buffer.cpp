#include "vidorra/picture/audio_buffer.h"

#include <algorithm>
#include <cstring>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "ffmpeg/audio_level.h"
#include "ffmpeg/channels.h"
#include "ffmpeg/owners.h"
#include "ffmpeg/samples.h"
#include "vidorra/core/av_ptr.h"
#include "vidorra/core/format.h"

extern "C" {
#include <libavutil/buffer.h>
#include <libavutil/frame.h>
#include <libavutil/mem.h>
}

namespace vidorra {
namespace {

// A frame's plane array holds eight planes; frames with more channels have a longer array that repeats the
// first eight.
std::uint8_t* framePlane(const AVFrame& frame, std::size_t plane) {
    return plane < AV_NUM_DATA_POINTERS ? frame.data[plane] : frame.extended_data[plane];
}

// Scales 16-bit samples to a full scale of 1.
constexpr float kOfFullScale = 0x1p-15F;

// Allocates the planes of a frame in one piece and returns the size of one plane in bytes.
int allocateFramePlanes(AVFrame& frame, std::size_t planes, int channels, int samples,
                        AVSampleFormat format) {
    std::uint8_t** target = frame.data;
    if (planes > AV_NUM_DATA_POINTERS) {
        target = static_cast<std::uint8_t**>(av_calloc(planes, sizeof(std::uint8_t*)));
        if (target == nullptr) {
            throw std::bad_alloc();
        }
        frame.extended_data = target;
    }
    if (av_samples_alloc(target, &frame.linesize[0], channels, samples, format, 1) < 0) {
        throw std::bad_alloc();
    }
    if (target != frame.data) {
        std::copy_n(target, AV_NUM_DATA_POINTERS, frame.data);
    }
    // Deliberate: this is the size of one plane, although the memory holds all of them.
    AvPtr<void> memory = ffmpeg_ext::adoptMemory(frame.data[0]);
    frame.buf[0] = av_buffer_create(frame.data[0], frame.linesize[0], av_buffer_default_free, nullptr, 0);
    if (frame.buf[0] == nullptr) {
        frame.data[0] = nullptr;
        throw std::bad_alloc();
    }
    static_cast<void>(memory.release());
    return frame.linesize[0];
}

}  // namespace

AudioBuffer::AudioBuffer(unsigned long channelLayout, AVSampleFormat format)
    : mChannelLayout(channelLayout), mSampleFormat(format) {
    createPlanes();
}

AudioBuffer::AudioBuffer(unsigned long channelLayout, AVSampleFormat format, int rate, unsigned long samples,
                         std::vector<MemBuffer> planes)
    : mChannelLayout(channelLayout), mSampleFormat(format), mNumberOfSamples(samples), mSampleRate(rate) {
    const std::size_t size = planeSize(samples);
    const auto isShort = [size](const MemBuffer& plane) { return plane.size() < size; };
    if (planes.size() != numberOfPlanes() || std::any_of(planes.begin(), planes.end(), isShort)) {
        throw std::invalid_argument("AudioBuffer: The planes do not fit the samples");
    }
    for (MemBuffer& plane : planes) {
        plane.shrink(size);
    }
    mPlanes = std::make_shared<std::vector<MemBuffer>>(std::move(planes));
}

int AudioBuffer::numberOfChannels() const noexcept {
    return __builtin_popcountll(mChannelLayout);
}

std::size_t AudioBuffer::numberOfPlanes() const noexcept {
    const int channels = numberOfChannels();
    return channels >= 2 && av_sample_fmt_is_planar(mSampleFormat) != 0 ? static_cast<std::size_t>(channels)
                                                                        : 1;
}

const std::vector<MemBuffer>& AudioBuffer::planes() const {
    if (mPlanes == nullptr) {
        throw std::out_of_range("AudioBuffer: the buffer has no planes");
    }
    return *mPlanes;
}

bool AudioBuffer::isCompatibleWithBuffer(const AudioBuffer& other) const noexcept {
    return mChannelLayout == other.mChannelLayout && mSampleFormat == other.mSampleFormat &&
           mSampleRate == other.mSampleRate;
}

void AudioBuffer::createPlanes() {
    mPlanes = std::make_shared<std::vector<MemBuffer>>(numberOfPlanes());
    mNumberOfSamples = 0;
}

void AudioBuffer::resize(unsigned long samples) {
    if (mPlanes == nullptr) {
        createPlanes();
    }
    mNumberOfSamples = samples;
    const std::size_t size = planeSize(samples);
    for (MemBuffer& plane : *mPlanes) {
        plane.resize(static_cast<int>(size));
    }
}

long AudioBuffer::getNeededBufferSize(unsigned long samples) const {
    const int size = ffmpeg_ext::sampleBufferSize(numberOfChannels(), samples, mSampleFormat);
    if (size < 0) {
        throw std::runtime_error(
            fmt::format("Could not get buffer size for audio layout {}, sample format {}, samples {}",
                        mChannelLayout, static_cast<int>(mSampleFormat), samples));
    }
    return size;
}

std::size_t AudioBuffer::planeSize(unsigned long samples) const {
    return static_cast<std::size_t>(getNeededBufferSize(samples)) / numberOfPlanes();
}

void AudioBuffer::loadAVFrame(const AVFrame* frame) {
    mSampleFormat = static_cast<AVSampleFormat>(frame->format);
    mSampleRate = frame->sample_rate;
    mChannelLayout = ffmpeg_ext::channelMask(*frame);
    mPlanes.reset();
    resize(static_cast<unsigned long>(frame->nb_samples));
    for (std::size_t i = 0; i < mPlanes->size(); ++i) {
        const MemBuffer& plane = (*mPlanes)[i];
        const std::uint8_t* source = framePlane(*frame, i);
        if (source != nullptr && plane.size() > 0) {
            std::memcpy(plane.data(), source, plane.size());
        }
    }
}

void AudioBuffer::loadSamples(const std::vector<short>& samples) {
    createPlanes();
    resize(samples.size());
    if (mSampleFormat == AV_SAMPLE_FMT_S16) {
        auto* target = reinterpret_cast<short*>(mPlanes->front().data());
        const auto channels = static_cast<std::size_t>(numberOfChannels());
        for (const short sample : samples) {
            target = std::fill_n(target, channels, sample);
        }
    } else if (mSampleFormat == AV_SAMPLE_FMT_FLTP) {
        for (const MemBuffer& plane : *mPlanes) {
            std::transform(samples.begin(), samples.end(), reinterpret_cast<float*>(plane.data()),
                           [](short sample) { return static_cast<float>(sample) * kOfFullScale; });
        }
    }
}

void AudioBuffer::fillAVFrame(AVFrame* frame) const {
    const int samples = static_cast<int>(mNumberOfSamples);
    if (getNeededBufferSize(mNumberOfSamples) > 0) {
        const int size =
            allocateFramePlanes(*frame, planes().size(), numberOfChannels(), samples, mSampleFormat);
        for (std::size_t i = 0; i < planes().size(); ++i) {
            const MemBuffer& plane = planes()[i];
            if (!plane.empty()) {
                std::memcpy(framePlane(*frame, i), plane.data(),
                            std::min(static_cast<std::size_t>(size), plane.size()));
            }
        }
    }
    frame->sample_rate = mSampleRate;
    frame->nb_samples = samples;
    frame->format = mSampleFormat;
    ffmpeg_ext::setChannelMask(*frame, mChannelLayout);
}

std::vector<std::uint8_t*> AudioBuffer::getPointersToPlanes() {
    std::vector<std::uint8_t*> pointers;
    for (const MemBuffer& plane : planes()) {
        pointers.push_back(plane.data());
    }
    return pointers;
}

std::vector<const std::uint8_t*> AudioBuffer::getPointersToPlanes() const {
    std::vector<const std::uint8_t*> pointers;
    for (const MemBuffer& plane : planes()) {
        pointers.push_back(plane.data());
    }
    return pointers;
}

// `count` samples, starting with the one at `index`.
short* AudioBuffer::samplesAt(unsigned long index, unsigned long count) const {
    const MemBuffer& plane = planes().at(0);
    const unsigned long available = plane.size() / sizeof(short);
    if (count > available || index > (available - count) / count) {
        throw std::out_of_range("AudioBuffer: the plane has no sample at this index");
    }
    return reinterpret_cast<short*>(plane.data()) + index * count;
}

std::vector<short> AudioBuffer::getSample_s16(unsigned long index) const {
    const unsigned long count = numberOfChannels() == 2 ? 2 : 1;
    const short* samples = samplesAt(index, count);
    return {samples, samples + count};
}

void AudioBuffer::setSample_s16(std::vector<short> values, unsigned long index) {
    const unsigned long count = numberOfChannels() == 2 ? 2 : 1;
    if (values.size() < count) {
        throw std::out_of_range("AudioBuffer: too few values for a sample");
    }
    std::copy_n(values.begin(), count, samplesAt(index, count));
}

unsigned long AudioBuffer::availableSamples() const noexcept {
    if (mPlanes == nullptr) {
        return 0;
    }
    const int channelsPerPlane = mPlanes->size() == 1 ? numberOfChannels() : 1;
    const auto sampleBytes = static_cast<unsigned long>(av_get_bytes_per_sample(mSampleFormat)) *
                             static_cast<unsigned long>(channelsPerPlane);
    // All planes have the same size.
    return sampleBytes == 0 ? 0 : std::min(mNumberOfSamples, mPlanes->front().size() / sampleBytes);
}

AudioLevel AudioBuffer::getAudioLevel() const {
    const std::vector<MemBuffer>& all = planes();
    const auto samples = static_cast<std::int64_t>(availableSamples());
    if (samples == 0) {
        return {};
    }
    ffmpeg_ext::AudioLevelRecord record{};
    if (all.size() == 1) {
        ffmpeg_ext::av_audio_level_calc(all[0].data(), samples, numberOfChannels(), mSampleFormat, &record);
    } else {
        for (std::size_t i = 0; i < std::min(all.size(), std::size(record.peak)); ++i) {
            ffmpeg_ext::AudioLevelRecord channel{};
            ffmpeg_ext::av_audio_level_calc(all[i].data(), samples, 1, mSampleFormat, &channel);
            record.peak[i] = channel.peak[0];
            record.rms[i] = channel.rms[0];
        }
    }
    AudioLevel level;
    std::copy(std::begin(record.peak), std::end(record.peak), level.peak.begin());
    std::copy(std::begin(record.rms), std::end(record.rms), level.rms.begin());
    return level;
}

Timestamp AudioBuffer::duration() const {
    if (mSampleRate <= 0) {
        return {Timebase(), 0};
    }
    return Timestamp({1, mSampleRate}, static_cast<std::int64_t>(mNumberOfSamples)).rescale(Timebase());
}

std::string AudioBuffer::debugDescription() const {
    if (empty()) {
        return "(empty)";
    }
    std::ostringstream format;
    format << mSampleFormat;
    return fmt::format("{} samples {}Hz {} {}", mNumberOfSamples, mSampleRate,
                       ffmpeg_ext::describeChannelMask(mChannelLayout), format.str());
}

void AudioBuffer::dumpPlane(std::ofstream& out, int plane) const {
    const MemBuffer& buffer = planes().at(static_cast<std::size_t>(plane));
    if (!buffer.empty()) {
        out.write(reinterpret_cast<const char*>(buffer.data()), static_cast<std::streamsize>(buffer.size()));
    }
}

std::ostream& operator<<(std::ostream& stream, const AudioBuffer& buffer) {
    return stream << buffer.debugDescription();
}

}  // namespace vidorra
