#include "udmabuf_paths.h"

namespace udmabuf {

std::string deviceFolder() {
    return "/dev";
}

std::string controlFolder() {
    return "/sys/class/u-dma-buf";
}

}  // namespace udmabuf
