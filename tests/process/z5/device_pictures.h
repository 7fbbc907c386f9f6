#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "vidorra/core/enum_text.h"
#include "vidorra/core/geometry.h"
#include "vidorra/picture/picture.h"
#include "vidorra/picture/picture_allocator.h"

namespace vidorra::test {

/// What happened, in order: "flush NAME" for pictures of these functions, and what tests add.
std::vector<std::string>& events();

/// The shape of a device's picture; members that are 0 are chosen to fit.
struct DevicePictureShape {
    Size size;
    AVPixelFormat format = AV_PIX_FMT_NV12;
    int linesize = 0;
    int chromaLinesize = 0;
    int alphaLinesize = 0;
    bool dma = true;
    AVColorRange range = AVCOL_RANGE_MPEG;
};

/// A picture in its own memory, which counts as a device's, with a name for its flushes. Its bytes are 0.
Picture devicePicture(const std::string& name, const DevicePictureShape& shape);

/// Allocates pictures named "allocated" and records the requests.
class DevicePictureAllocator : public PictureAllocator {
public:
    struct Request {
        Size size;
        AVPixelFormat format;
        AVColorRange range;

        friend bool operator==(const Request&, const Request&) = default;
    };

    [[nodiscard]] Picture allocate(Size size, AVPixelFormat format, AVColorRange range) override;

    std::vector<Request> requests;
    bool dma = true;
    bool fails = false;
};

/// A file that replaces the accelerator's device during its lifetime; its name is relative to /dev/, as for
/// devices.
class AcceleratorFile {
public:
    AcceleratorFile();
    AcceleratorFile(const AcceleratorFile&) = delete;
    AcceleratorFile& operator=(const AcceleratorFile&) = delete;
    ~AcceleratorFile();

    [[nodiscard]] std::string name() const;
    [[nodiscard]] const std::filesystem::path& path() const { return mPath; }

private:
    std::filesystem::path mPath;
};

/// The file of an open descriptor.
std::filesystem::path fileOf(int descriptor);

}  // namespace vidorra::test
