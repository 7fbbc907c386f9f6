#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "vidorra/core/export.h"

namespace vidorra {

/// Supplies the bytes of a media file instead of a URL: from memory, a mapped file, a descriptor, or a class
/// of your own.
///
///     class Download : public ByteSource {
///         std::optional<std::size_t> read(std::uint8_t* target, std::size_t size) override {
///             ...
///             return size;  // or fewer
///         }
///     };
///     ClipReader reader(std::make_shared<Download>());
///
/// Threads: read(), seek() and size() are called by one thread at a time, the one that uses the reader;
/// interrupt() is called by any thread, even during another call. Errors: read(), seek() and size() may
/// throw. The exception passes through the reader's call that needed the bytes.
class VIDORRA_API ByteSource {
public:
    ByteSource() = default;
    ByteSource(const ByteSource&) = delete;
    ByteSource& operator=(const ByteSource&) = delete;
    virtual ~ByteSource();

    /// Copies the next bytes to `target`: at least one and at most `size`, which is never 0. Nothing means
    /// the end of the data. 0 means that no bytes are available yet: the reader tries again until its
    /// timeout passes or it is stopped. May wait for bytes. A count above `size` makes the reader throw
    /// std::logic_error.
    [[nodiscard]] virtual std::optional<std::size_t> read(std::uint8_t* target, std::size_t size) = 0;

    /// Continues at `position`, in bytes from the start; it can be past the end, where read() returns the
    /// end. Returns false and changes nothing when the source cannot seek, which is the default. The reader
    /// first seeks to position 0 to find out.
    [[nodiscard]] virtual bool seek(std::uint64_t position);

    /// The total number of bytes; nothing, the default, when it is unknown.
    [[nodiscard]] virtual std::optional<std::uint64_t> size() const;

    /// Makes a waiting read() and all later ones return soon with the bytes that they have, which may be 0.
    /// Does nothing by default, which suits sources that never wait long.
    virtual void interrupt() noexcept;

    /// The name of the source in error messages, "byte source" by default.
    [[nodiscard]] virtual std::string name() const;
};

/// Reads from memory. Owns the bytes.
[[nodiscard]] VIDORRA_API std::shared_ptr<ByteSource> memorySource(std::vector<std::uint8_t> bytes);

/// Reads from `size` bytes at `data`, which the caller keeps alive and unchanged as long as the source lives.
/// Throws std::invalid_argument when `data` is null and `size` is not 0.
[[nodiscard]] VIDORRA_API std::shared_ptr<ByteSource> memorySource(const std::uint8_t* data,
                                                                   std::size_t size);

/// Reads from a regular file mapped into memory. A file that shrinks while it is read ends at its new end.
/// Throws std::system_error when the file cannot be opened or mapped, std::invalid_argument when it is not a
/// regular file.
[[nodiscard]] VIDORRA_API std::shared_ptr<ByteSource> mappedSource(const std::string& path);

/// Reads from a file descriptor: a pipe, a FIFO, a socket, a terminal or a file. Waits for bytes, and
/// interrupt() ends the wait at once. Can seek if the descriptor can. Owns the descriptor and closes it.
/// Throws std::invalid_argument for a negative descriptor, std::system_error when the system provides no
/// event to wait on; the descriptor is then not closed.
[[nodiscard]] VIDORRA_API std::shared_ptr<ByteSource> descriptorSource(int descriptor);

}  // namespace vidorra
