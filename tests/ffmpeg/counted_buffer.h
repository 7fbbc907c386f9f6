#pragma once

#include <cstdint>
#include <vector>

#include "ffmpeg/buffers.h"

extern "C" {
#include <libavutil/buffer.h>
}

namespace vidorra::test {

/// Memory that a buffer of av_buffer_create2 wraps, with a record of its callbacks' arguments.
///
/// Threads: one at a time.
struct CountedMemory {
    struct FlushCall {
        void* opaque;
        std::uint8_t* data;
        int size;

        friend bool operator==(const FlushCall&, const FlushCall&) = default;
    };
    struct FreeCall {
        void* opaque;
        std::uint8_t* data;

        friend bool operator==(const FreeCall&, const FreeCall&) = default;
    };

    std::vector<std::uint8_t> bytes;
    std::vector<FlushCall> flushes;
    std::vector<FreeCall> frees;

    explicit CountedMemory(int size) : bytes(static_cast<std::size_t>(size)) {}

    AVBufferRef* wrap(int flags = ffmpeg_ext::kBufferFlagDma) {
        return ffmpeg_ext::av_buffer_create2(bytes.data(), static_cast<int>(bytes.size()), free, flush,
                                             nullptr, 0, this, flags);
    }

    static void free(void* opaque, std::uint8_t* data) {
        static_cast<CountedMemory*>(opaque)->frees.push_back({opaque, data});
    }
    static void flush(void* opaque, std::uint8_t* data, int size) {
        static_cast<CountedMemory*>(opaque)->flushes.push_back({opaque, data, size});
    }
};

}  // namespace vidorra::test
