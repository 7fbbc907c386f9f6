#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace vidorra::test {

/// One command that reached the device, as the driver reads it.
struct SyncCommand {
    std::uint64_t offset;
    std::uint64_t size;
    int direction;
    bool start;

    friend bool operator==(const SyncCommand&, const SyncCommand&) = default;
};

/// Replaces a device's files with ordinary ones during its lifetime. A program that links this has all
/// devices in its own temporary folder.
class DeviceFiles {
public:
    /// A device of `size` zero bytes that reports its size as the driver does.
    DeviceFiles(std::string name, std::uint64_t size);
    /// A device of `size` zero bytes with this text as its file "size".
    DeviceFiles(std::string name, std::uint64_t size, const std::string& sizeText);
    DeviceFiles(const DeviceFiles&) = delete;
    DeviceFiles& operator=(const DeviceFiles&) = delete;
    ~DeviceFiles();

    [[nodiscard]] const std::string& name() const { return mName; }
    [[nodiscard]] std::filesystem::path device() const;
    [[nodiscard]] std::filesystem::path control(const std::string& file) const;

    /// What was written to sync_for_device so far.
    [[nodiscard]] std::vector<SyncCommand> syncCommands() const;

private:
    std::string mName;
};

void PrintTo(const SyncCommand& command, std::ostream* stream);

}  // namespace vidorra::test
