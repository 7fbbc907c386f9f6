#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "support/media.h"
#include "vidorra/clip/clip_reader.h"

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/md5.h>
}

namespace vidorra::test {

/// 25 pictures, H.264 with B-frames and a key picture every 10, and a second of sound.
inline std::string clip() {
    return mediaFile("clip.mov", {"-f", "lavfi", "-i", "testsrc2=s=64x48:r=25:d=1", "-f", "lavfi", "-i",
                                  "sine=f=500:r=48000:d=1", "-c:v", "libx264", "-preset", "veryfast", "-bf",
                                  "2", "-g", "10", "-c:a", "pcm_s16le"});
}

/// A second of sound alone; the extension chooses the container.
inline std::string soundFile(const std::string& name, const std::string& encoder) {
    return mediaFile(
        name, {"-f", "lavfi", "-i", "aevalsrc=exprs=random(0)-0.5|random(1)-0.5:s=48000:c=stereo:d=1", "-c:a",
               encoder});
}

/// The MD5 of a picture's rows without padding, plane after plane, as frameHashes() gives it.
inline std::string hashOf(const Picture& picture) {
    const Size size = picture.frameSize();
    const int count = av_image_get_buffer_size(picture.pixelFormat(), size.width, size.height, 1);
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(count));
    const std::uint8_t* data[4];
    std::copy(picture.data().begin(), picture.data().end(), data);
    av_image_copy_to_buffer(bytes.data(), count, data, picture.linesize().data(), picture.pixelFormat(),
                            size.width, size.height, 1);
    std::uint8_t digest[16];
    av_md5_sum(digest, bytes.data(), count);
    std::string text;
    for (const std::uint8_t byte : digest) {
        text += "0123456789abcdef"[byte >> 4];
        text += "0123456789abcdef"[byte & 15];
    }
    return text;
}

/// What a reader gave.
struct Reading {
    struct Place {
        std::uint64_t pass;
        std::int64_t time;
        std::int64_t duration;
        std::int64_t sourceTime;
    };
    std::vector<Place> pictures;
    std::vector<std::string> hashes;
    std::vector<Place> sounds;
    std::int64_t samples = 0;
    /// Of the first channel's plane.
    std::vector<std::uint8_t> sound;

    std::vector<std::int64_t> times() const {
        std::vector<std::int64_t> result;
        for (const Place& picture : pictures) {
            result.push_back(picture.time);
        }
        return result;
    }
};

/// Adds a frame.
inline void add(Reading& reading, const ClipFrame& frame) {
    if (const VideoFrame* video = frame.video()) {
        reading.pictures.push_back(
            {frame.pass, video->timestamp().value, frame.duration.value, frame.sourceTime.value});
        reading.hashes.push_back(hashOf(video->picture()));
    } else if (const AudioFrame* audio = frame.audio()) {
        reading.sounds.push_back(
            {frame.pass, audio->timestamp().value, frame.duration.value, frame.sourceTime.value});
        const AudioBuffer& buffer = audio->audioBuffer();
        reading.samples += static_cast<std::int64_t>(buffer.numberOfSamples());
        const std::uint8_t* plane = buffer.getPointersToPlanes()[0];
        reading.sound.insert(reading.sound.end(), plane, plane + buffer.planeSize(buffer.numberOfSamples()));
    }
}

/// All frames, or the next `most`.
inline Reading readAll(ClipReader& reader, std::size_t most = ~std::size_t{0}) {
    Reading reading;
    for (; most > 0; --most) {
        const ClipFrame frame = reader.read();
        if (!frame) {
            break;
        }
        add(reading, frame);
    }
    return reading;
}

inline Reading readAll(const std::string& path, const ClipOptions& options = {}) {
    ClipReader reader(path, options);
    return readAll(reader);
}

inline Timestamp microseconds(std::int64_t count) {
    return {Timebase(), count};
}

}  // namespace vidorra::test
