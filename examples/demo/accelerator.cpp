#include "accelerator.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace demo {
namespace {

// Room for some 2160p pictures. The file is sparse.
constexpr std::size_t kMemorySize = std::size_t{256} << 20;

[[noreturn]] void fail(const std::string& path) {
    throw std::system_error(errno, std::generic_category(), path);
}

}  // namespace

Accelerator::Region::Region(const std::string& path, std::size_t bytes) : size(bytes) {
    const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (file < 0) {
        fail(path);
    }
    void* const memory = ftruncate(file, static_cast<off_t>(bytes)) == 0
                             ? mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0)
                             : MAP_FAILED;
    close(file);
    if (memory == MAP_FAILED) {
        fail(path);
    }
    data = static_cast<std::uint8_t*>(memory);
}

Accelerator::Region::~Region() {
    munmap(data, size);
}

Accelerator::Accelerator(const std::string& path)
    : mMemoryFile(path + ".memory"),
      mDeviceFile(path + ".device"),
      mRegion(std::make_unique<Region>(mMemoryFile, kMemorySize)) {
    constexpr std::size_t kLineAlignment = 32;
    constexpr std::size_t kPage = 4096;
    mMemory = std::make_unique<vidorra::BestFitPictureAllocator>(mRegion->data, mRegion->size, kLineAlignment,
                                                                 kPage, true);
    if (!std::ofstream(mDeviceFile)) {
        fail(mDeviceFile);
    }
    // Device names are relative to /dev.
    const std::string name = ".." + std::filesystem::absolute(mDeviceFile).string();
    mScaler = std::make_unique<vidorra::z5::PictureScaler>(name);
    mScaler->setPictureAllocator(mMemory.get());
    mComposer = std::make_unique<vidorra::z5::PictureComposer>(name);
}

Accelerator::~Accelerator() {
    std::error_code ignored;
    std::filesystem::remove(mMemoryFile, ignored);
    std::filesystem::remove(mDeviceFile, ignored);
}

}  // namespace demo
