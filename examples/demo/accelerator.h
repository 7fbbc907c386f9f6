#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include <vidorra/vidorra.h>

namespace demo {

/// A hardware accelerator and the memory that it can reach. The object makes and removes files that replace
/// the devices, so that code that uses an accelerator runs on any machine. On a device, use a
/// vidorra::UdmaBufPictureAllocator for the memory, and the name of the accelerator's device.
class Accelerator {
public:
    /// Makes the files under names that begin with `path`. Throws std::system_error when that fails.
    explicit Accelerator(const std::string& path);
    Accelerator(const Accelerator&) = delete;
    Accelerator& operator=(const Accelerator&) = delete;
    ~Accelerator();

    [[nodiscard]] vidorra::PictureAllocator& memory() { return *mMemory; }
    [[nodiscard]] vidorra::z5::PictureScaler& scaler() { return *mScaler; }
    [[nodiscard]] const vidorra::z5::PictureComposer& composer() const { return *mComposer; }

private:
    /// The mapping of a file.
    struct Region {
        std::uint8_t* data = nullptr;
        std::size_t size = 0;

        Region(const std::string& path, std::size_t bytes);
        Region(const Region&) = delete;
        Region& operator=(const Region&) = delete;
        ~Region();
    };

    std::string mMemoryFile;
    std::string mDeviceFile;
    std::unique_ptr<Region> mRegion;
    std::unique_ptr<vidorra::BestFitPictureAllocator> mMemory;
    std::unique_ptr<vidorra::z5::PictureScaler> mScaler;
    std::unique_ptr<vidorra::z5::PictureComposer> mComposer;
};

}  // namespace demo
