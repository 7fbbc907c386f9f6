#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "vidorra/core/export.h"

namespace vidorra {

/// Receives the bytes of a media file instead of a path: in memory, a descriptor, or a class of your own.
///
///     class Upload : public ByteSink {
///         void write(const std::uint8_t* data, std::size_t size) override { ... }
///     };
///     MediaFileWriter writer(std::make_shared<Upload>(), {"mpegts"});
///
/// Threads: called by one thread at a time, the one that uses the writer. Errors: every function may throw.
/// The exception passes unchanged through the writer's call that had bytes to write.
class VIDORRA_API ByteSink {
public:
    ByteSink() = default;
    ByteSink(const ByteSink&) = delete;
    ByteSink& operator=(const ByteSink&) = delete;
    virtual ~ByteSink();

    /// Takes all `size` bytes, at least one. They are valid during the call only.
    virtual void write(const std::uint8_t* data, std::size_t size) = 0;

    /// Continues at `position`, in bytes from the first byte of the file, which is never past its end.
    /// Existing bytes are overwritten. Returns false and changes nothing when the sink cannot seek, which is
    /// the default. The writer first seeks to position 0 to find out.
    [[nodiscard]] virtual bool seek(std::uint64_t position);

    /// The file is complete: MediaFileWriter::finish() calls this, and nothing else does. Does nothing by
    /// default.
    virtual void close();
};

/// Collects a file in memory.
///
///     const auto sink = std::make_shared<MemorySink>();
///     MediaFileWriter writer(sink, {"mp4"});
///     ...
///     writer.finish();
///     const std::vector<std::uint8_t> file = sink->take();
class VIDORRA_API MemorySink final : public ByteSink {
public:
    MemorySink();
    ~MemorySink() override;

    void write(const std::uint8_t* data, std::size_t size) override;
    [[nodiscard]] bool seek(std::uint64_t position) override;

    /// The bytes so far.
    [[nodiscard]] const std::vector<std::uint8_t>& bytes() const noexcept;

    /// Moves the bytes out. Call it when the file is complete.
    [[nodiscard]] std::vector<std::uint8_t> take() noexcept;

private:
    struct Fields;
    std::unique_ptr<Fields> mFields;
};

/// Writes to a file descriptor: a pipe, a socket, a terminal or a file, from its current position on. Waits
/// until the descriptor takes the bytes; a non-blocking one is polled. Can seek if the descriptor can,
/// unless it was opened for appending. Owns the descriptor and closes it. Throws std::invalid_argument for a
/// negative descriptor. The sink throws std::system_error when the system refuses bytes. Writing to a pipe
/// or a socket that nobody reads also raises SIGPIPE; ignore the signal to see the error.
[[nodiscard]] VIDORRA_API std::shared_ptr<ByteSink> descriptorSink(int descriptor);

}  // namespace vidorra
