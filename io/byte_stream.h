#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>

struct AVIOContext;

namespace vidorra {

class ByteSource;

/// Lets FFmpeg read from a ByteSource. Exceptions of the source do not pass through FFmpeg: it sees an error,
/// and rethrow() throws them afterwards.
///
/// Owns: FFmpeg's AVIOContext, and a share of the source.
/// Threads: one at a time.
class ByteStream {
public:
    /// Begins at the start of the source. `interrupted` is asked before each access and while nothing is
    /// there; once it says true, FFmpeg sees AVERROR_EXIT. Throws std::bad_alloc, and what the source throws.
    ByteStream(std::shared_ptr<ByteSource> source, std::function<bool()> interrupted);
    ByteStream(const ByteStream&) = delete;
    ByteStream& operator=(const ByteStream&) = delete;
    ~ByteStream();

    [[nodiscard]] AVIOContext* context() const noexcept { return mContext; }

    /// Throws what the source has thrown since the last call. Does nothing otherwise.
    void rethrow();

private:
    static int readPacket(void* opaque, std::uint8_t* target, int size) noexcept;
    static std::int64_t seek(void* opaque, std::int64_t offset, int whence) noexcept;

    int read(std::uint8_t* target, int size);
    template <class Result, class Call>
    Result guarded(Call call) noexcept;

    std::shared_ptr<ByteSource> mSource;
    std::function<bool()> mInterrupted;
    std::exception_ptr mThrown;
    AVIOContext* mContext = nullptr;
};

}  // namespace vidorra
