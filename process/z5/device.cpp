#include "process/z5/device.h"

#include <fcntl.h>

#include <cerrno>
#include <string>
#include <system_error>

#include "vidorra/core/enum_text.h"

namespace vidorra::z5 {
namespace {

// The largest size that the accelerator takes.
constexpr int kMaxWidth = 4096;
constexpr int kMaxHeight = 2160;
constexpr int kMaxLinesize = 4096;

}  // namespace

Device openDevice(std::string_view name) {
    const std::string path = std::string("/dev/").append(name);
    const int descriptor = open(path.c_str(), O_RDWR);
    if (descriptor < 0) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    return Device(descriptor);
}

bool isCompatible(const Picture& picture) {
    const Picture::Linesizes& linesize = picture.linesize();
    return picture.isBufferDMA() && picture.frameSize().width <= kMaxWidth &&
           picture.frameSize().height <= kMaxHeight && linesize[0] <= kMaxLinesize &&
           ((picture.pixelFormat() == AV_PIX_FMT_NV12 && linesize[1] == linesize[0]) ||
            (picture.pixelFormat() == NVA12 && linesize[1] == linesize[0] && linesize[3] == linesize[0]));
}

}  // namespace vidorra::z5
