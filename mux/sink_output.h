#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>

#include "vidorra/io/byte_sink.h"

struct AVIOContext;

namespace vidorra {

/// Lets FFmpeg write into a sink. What the sink throws cannot pass through FFmpeg: it is kept, FFmpeg sees a
/// failure, and rethrow() throws it again. After that the sink gets nothing more.
class SinkOutput {
public:
    /// Asks the sink whether it can seek.
    explicit SinkOutput(std::shared_ptr<ByteSink> sink);
    SinkOutput(const SinkOutput&) = delete;
    SinkOutput& operator=(const SinkOutput&) = delete;
    ~SinkOutput();

    /// For FFmpeg; it does not outlive this object.
    [[nodiscard]] AVIOContext* context() noexcept { return mContext; }
    [[nodiscard]] bool canSeek() const noexcept { return mCanSeek; }

    /// Throws what the sink threw, if it did.
    void rethrow() const;

private:
    int write(const std::uint8_t* data, int size) noexcept;
    std::int64_t seek(std::int64_t offset, int whence) noexcept;

    std::shared_ptr<ByteSink> mSink;
    bool mCanSeek;
    std::exception_ptr mException;
    std::int64_t mPosition = 0;
    std::int64_t mEnd = 0;
    AVIOContext* mContext = nullptr;
};

}  // namespace vidorra
