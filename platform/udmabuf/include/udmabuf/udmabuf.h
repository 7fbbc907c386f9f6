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
/// Owns: the mapping and the open files, until the destructor. Threads: syncForDevice() from any number of
/// threads at a time, like the other questions; who writes the bytes is the callers' business. Errors: only
/// the constructor throws.
class UDMABUF_API UdmaBuf {
public:
    /// Opens and maps the whole of /dev/`name`, whose size and controls lie in /sys/class/u-dma-buf/`name`/.
    /// With `uncached` the device is opened with O_SYNC, for which the driver gives a mapping that bypasses
    /// the CPU's cache, in the way that its sync_mode says; without, the CPU works through its cache, as fast
    /// as on any memory, and syncForDevice() matters.
    ///
    /// Throws std::system_error that names the path when a file cannot be opened, read or mapped, and
    /// std::runtime_error when `name` is empty or holds a slash, or when the driver reports a size that is no
    /// number, below 16 bytes or above 4 GiB: the driver's sync control cannot express such ranges.
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

    /// Makes what the CPU has written in this range visible to the device. The range is widened to whole
    /// units of 16 bytes; what lies outside of the mapping is left out. It returns when the device may read.
    /// A refusal of the driver is written to the log as an error, once for each object, since there is nobody
    /// to report it to.
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
