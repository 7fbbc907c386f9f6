#include "process/z5/device_pictures.h"

#include <cstdlib>
#include <memory>
#include <new>

#include "ffmpeg/buffers.h"
#include "support/media.h"

namespace fs = std::filesystem;

namespace vidorra::test {
namespace {

void freeMemory(void* name, std::uint8_t* data) {
    delete static_cast<std::string*>(name);
    std::free(data);
}

void recordFlush(void* name, std::uint8_t* /*data*/, int /*size*/) {
    events().push_back("flush " + *static_cast<std::string*>(name));
}

}  // namespace

std::vector<std::string>& events() {
    static std::vector<std::string> events;
    return events;
}

Picture devicePicture(const std::string& name, const DevicePictureShape& shape) {
    const int even = (shape.size.width + 1) & ~1;
    const int linesize = shape.linesize != 0 ? shape.linesize : even;
    const int chromaLinesize = shape.chromaLinesize != 0 ? shape.chromaLinesize : linesize;
    const int alphaLinesize = shape.alphaLinesize != 0 ? shape.alphaLinesize : linesize;
    const int lumaSize = linesize * shape.size.height;
    const int chromaSize = chromaLinesize * ((shape.size.height + 1) / 2);
    const int alphaSize = alphaLinesize * shape.size.height;
    const int size = lumaSize + chromaSize + alphaSize;
    // Not touched, so that a large picture costs nothing.
    auto* const data = static_cast<std::uint8_t*>(std::calloc(static_cast<std::size_t>(size) + 1, 1));
    if (data == nullptr) {
        throw std::bad_alloc();
    }
    AVBufferRef* ref = ffmpeg_ext::av_buffer_create2(data, size, freeMemory, recordFlush, nullptr, 0,
                                                     std::make_unique<std::string>(name).release(),
                                                     shape.dma ? ffmpeg_ext::kBufferFlagDma : 0);
    std::uint8_t* planes[4] = {data, data + lumaSize};
    int linesizes[4] = {linesize, chromaLinesize};
    if (shape.format == NVA12) {
        planes[3] = data + lumaSize + chromaSize;
        linesizes[3] = alphaLinesize;
    } else if (shape.format == AV_PIX_FMT_YUV420P) {
        planes[2] = planes[1] + chromaSize / 2;
        linesizes[2] = chromaLinesize;
    }
    return Picture(MemBuffer(&ref), shape.size, planes, linesizes, shape.format, shape.range);
}

Picture DevicePictureAllocator::allocate(Size size, AVPixelFormat format, AVColorRange range) {
    requests.push_back({size, format, range});
    if (fails) {
        throw std::bad_alloc();
    }
    return devicePicture("allocated", {.size = size, .format = format, .dma = dma, .range = range});
}

AcceleratorFile::AcceleratorFile() : mPath(temporaryFile("accelerator", "")) {}

AcceleratorFile::~AcceleratorFile() {
    fs::remove(mPath);
}

std::string AcceleratorFile::name() const {
    return ".." + mPath.string();
}

fs::path fileOf(int descriptor) {
    return fs::read_symlink("/proc/self/fd/" + std::to_string(descriptor));
}

}  // namespace vidorra::test
