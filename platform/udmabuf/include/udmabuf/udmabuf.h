#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#define UDMABUF_API __attribute__((visibility("default")))

/// The memory of one DMA buffer of the u-dma-buf driver, mapped into the process: physically contiguous, so
/// that a device can read and write it.
///
///     UdmaBuf buffer("udmabuf0", false);
///     std::memset(buffer.get(), 0, buffer.size());
///     buffer.syncForDevice(buffer.get(), buffer.size());
///
/// Owns: the mapping and the open files. Threads: all operations are thread-safe; callers have to coordinate
/// writes to the bytes themselves. Errors: only the constructor throws.
class UDMABUF_API UdmaBuf {
public:
    /// Opens and maps the whole of /dev/`name`, whose size and controls are in /sys/class/u-dma-buf/`name`/.
    /// With `uncached` the device is opened with O_SYNC, and the mapping bypasses the CPU's cache in the way
    /// that the driver's sync_mode defines. Otherwise the CPU uses its cache, the memory is as fast as any
    /// other, and syncForDevice() is needed.
    ///
    /// Throws std::system_error with the path when a file cannot be opened, read or mapped. Throws
    /// std::runtime_error when `name` is empty or contains a slash, and when the driver reports a size that
    /// is not a number, or is below 16 bytes or above 4 GiB, which its sync control cannot express.
    UdmaBuf(std::string_view name, bool uncached);
    UdmaBuf(const UdmaBuf&) = delete;
    UdmaBuf& operator=(const UdmaBuf&) = delete;

    /// Unmaps and closes: nothing may point into the memory any more.
    ~UdmaBuf();

    /// The first mapped byte, on a page boundary.
    [[nodiscard]] std::uint8_t* get() noexcept { return mData; }

    /// How many bytes are mapped.
    [[nodiscard]] std::size_t size() const noexcept { return mSize; }

    /// The system's page size in bytes, a power of two.
    [[nodiscard]] static std::size_t pageSize() noexcept;

    /// Makes what the CPU has written in this range visible to the device, and returns when the device may
    /// read. The range is extended to whole units of 16 bytes; what is outside the mapping is ignored. If
    /// the driver refuses, this is logged as an error, once for each object; callers are not told.
    void syncForDevice(const void* data, std::size_t size) const;

private:
    /// An open file.
    class File {
    public:
        File(const std::string& path, int flags);
        File(const File&) = delete;
        File& operator=(const File&) = delete;
        ~File();
        [[nodiscard]] int get() const noexcept { return mDescriptor; }

    private:
        int mDescriptor;
    };

    void sendSyncCommand(std::uint64_t offset, std::uint64_t size) const;

    std::string mControlPath;
    File mDevice;
    File mSyncControl;
    std::size_t mSize;
    std::uint8_t* mData;
    mutable std::atomic<bool> mRefusalLogged{false};
};
