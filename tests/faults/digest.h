#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "vidorra/picture/audio_frame.h"
#include "vidorra/picture/video_frame.h"

namespace vidorra::test {

/// A sum over what a scenario gives, in the order in which it is added (FNV-1a). Takes no memory for
/// pictures.
class Digest {
public:
    void add(std::integral auto value) { addBytes(&value, sizeof value); }
    void add(std::string_view text) { addBytes(text.data(), text.size()); }
    /// Shape and pixels.
    void add(const Picture& picture);
    /// Shape and samples.
    void add(const AudioBuffer& buffer);
    /// Time and content.
    void add(const VideoFrame& frame);
    void add(const AudioFrame& frame);

    std::uint64_t value() const { return mValue; }

private:
    void addBytes(const void* bytes, std::size_t count);

    std::uint64_t mValue = 14695981039346656037U;
};

}  // namespace vidorra::test
