#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "vdr_utils/file_descriptor_deleter.h"
#include "vidorra/io/byte_sink.h"

namespace vidorra {

/// A file that gets its name when it is complete. Until then it is beside its place, under that name and
/// ".part"; a file that is already in its place stays whole. What is no regular file, such as a device or a
/// FIFO, is written in place.
class WholeFile final : public ByteSink {
public:
    /// Creates the file, or empties the one that an earlier run left. With `inPlace` it has its name from the
    /// start. Throws std::system_error when that fails, as all functions do.
    WholeFile(const std::string& path, bool inPlace);
    ~WholeFile() override;

    void write(const std::uint8_t* data, std::size_t size) override;
    [[nodiscard]] bool seek(std::uint64_t position) override;

    /// Where the bytes are until rename().
    [[nodiscard]] const std::string& workingPath() const noexcept { return mWorkingPath; }

    /// Makes the bytes safe on the disk.
    void close() override;

    /// Gives the closed file its name.
    void rename() const;

    /// Removes the file, unless it was to be written in place.
    void discard() noexcept;

private:
    std::string mPath;
    std::string mWorkingPath;
    std::unique_ptr<int, vx::utils::priv::FileDescriptorDeleter> mDescriptor;
};

}  // namespace vidorra
