#include "udmabuf/udmabuf.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cinttypes>
#include <cstdio>
#include <stdexcept>
#include <system_error>

#include "logger/logger.h"
#include "udmabuf_paths.h"

namespace {

constexpr auto kLogError = static_cast<logger::Level>(1);

// One sync command is a 64-bit number. The upper half is the offset. The lower half is the size, except for
// its last four bits, which hold the direction, from bit 2, and a 1 that starts the command.
constexpr std::uint64_t kUnit = 16;
constexpr std::uint64_t kMaxCommandSize = 0xFFFFFFF0;
constexpr std::uint64_t kMaxMapping = std::uint64_t{1} << 32;
constexpr std::uint64_t kDirectionToDevice = 1;

constexpr std::uint64_t wholeUnits(std::uint64_t size) {
    return (size + kUnit - 1) / kUnit * kUnit;
}

[[noreturn]] void throwErrno(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), "UdmaBuf: " + what);
}

std::string checkedName(std::string_view name) {
    if (name.empty() || name.find('/') != std::string_view::npos) {
        throw std::runtime_error("UdmaBuf: \"" + std::string(name) + "\" is not the name of a device");
    }
    return std::string(name);
}

ssize_t retried(auto call) {
    ssize_t result = 0;
    do {
        result = call();
    } while (result < 0 && errno == EINTR);
    return result;
}

std::uint64_t readSize(int descriptor, const std::string& path) {
    std::array<char, 32> buffer{};
    const ssize_t length = retried([&] { return read(descriptor, buffer.data(), buffer.size()); });
    if (length < 0) {
        throwErrno("cannot read " + path);
    }
    std::string_view text(buffer.data(), static_cast<std::size_t>(length));
    text = text.substr(0, text.find('\n'));
    const char* end = text.data() + text.size();
    std::uint64_t size = 0;
    const auto [rest, error] = std::from_chars(text.data(), end, size);
    if (error != std::errc() || rest != end || size < kUnit || size > kMaxMapping) {
        throw std::runtime_error("UdmaBuf: " + path + ": \"" + std::string(text) +
                                 "\" is not a size from 16 to 4294967296 bytes");
    }
    return size;
}

}  // namespace

UdmaBuf::File::File(const std::string& path, int flags)
    : mDescriptor(static_cast<int>(retried([&] { return open(path.c_str(), flags | O_CLOEXEC); }))) {
    if (mDescriptor < 0) {
        throwErrno("cannot open " + path);
    }
}

UdmaBuf::File::~File() {
    close(mDescriptor);
}

UdmaBuf::UdmaBuf(std::string_view name, bool uncached)
    : mControlPath(udmabuf::controlFolder() + "/" + checkedName(name) + "/"),
      mDevice(udmabuf::deviceFolder() + "/" + std::string(name), O_RDWR | (uncached ? O_SYNC : 0)),
      mSyncControl(mControlPath + "sync_for_device", O_WRONLY),
      mSize(0),
      mData(nullptr) {
    const std::string sizePath = mControlPath + "size";
    mSize = readSize(File(sizePath, O_RDONLY).get(), sizePath);
    void* data = mmap(nullptr, mSize, PROT_READ | PROT_WRITE, MAP_SHARED, mDevice.get(), 0);
    if (data == MAP_FAILED) {
        throwErrno("cannot map " + udmabuf::deviceFolder() + "/" + std::string(name));
    }
    mData = static_cast<std::uint8_t*>(data);
}

UdmaBuf::~UdmaBuf() {
    munmap(mData, mSize);
}

std::size_t UdmaBuf::pageSize() noexcept {
    return static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

void UdmaBuf::syncForDevice(const void* data, std::size_t size) const {
    const auto base = reinterpret_cast<std::uintptr_t>(mData);
    const auto start = reinterpret_cast<std::uintptr_t>(data);
    if (start < base) {
        const std::size_t outside = base - start;
        size = size > outside ? size - outside : 0;
    }
    const std::uint64_t offset = start > base ? start - base : 0;
    if (size == 0 || offset >= mSize) {
        return;
    }
    const std::uint64_t end = offset + std::min<std::uint64_t>(size, mSize - offset);

    // One command is enough except for a range of 4 GiB, and for one that ends with a mapping that is not
    // whole units. The driver refuses a command that reaches past the end and cuts off an incomplete unit,
    // so the last unit then starts earlier.
    std::uint64_t position = offset / kUnit * kUnit;
    while (position < end) {
        std::uint64_t piece = std::min(wholeUnits(end - position), kMaxCommandSize);
        if (position + piece > mSize) {
            if (piece > kUnit) {
                piece -= kUnit;
            } else {
                position = mSize - kUnit;
            }
        }
        sendSyncCommand(position, piece);
        position += piece;
    }
}

void UdmaBuf::sendSyncCommand(std::uint64_t offset, std::uint64_t size) const {
    const std::uint64_t command = offset << 32 | size | kDirectionToDevice << 2 | 1;
    std::array<char, 24> text{};
    const int length = std::snprintf(text.data(), text.size(), "0x%016" PRIX64, command);
    // One write is one command, which the driver carries out under its own lock, so threads need no lock
    // here. Writing a range to the controls sync_offset, sync_size and sync_direction would need one, even
    // against other processes.
    const ssize_t written =
        retried([&] { return write(mSyncControl.get(), text.data(), static_cast<std::size_t>(length)); });
    const int error = written < 0 ? errno : EIO;
    if (written != length && !mRefusalLogged.exchange(true, std::memory_order_relaxed)) {
        logger::log(kLogError, "UdmaBuf: ") << "cannot write " << text.data() << " to " << mControlPath
                                            << "sync_for_device: " << std::generic_category().message(error);
    }
}
