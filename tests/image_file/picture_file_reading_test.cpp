// Files of samples that can be opened and measured, but not read.

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <stdexcept>
#include <string>

#include "support/descriptors.h"
#include "support/media.h"
#include "support/throw_text.h"
#include "vidorra/image_file/picture_file.h"

namespace {

// Bytes of files that can still be read before reading fails; not limited while negative.
ssize_t gReadable = -1;

}  // namespace

// The standard library's streams call this one.
extern "C" __attribute__((visibility("default"))) ssize_t read(int descriptor, void* buffer,
                                                               std::size_t size) {
    if (gReadable >= 0) {
        if (gReadable == 0) {
            errno = EIO;
            return -1;
        }
        size = std::min(size, static_cast<std::size_t>(gReadable));
    }
    const ssize_t result = syscall(SYS_read, descriptor, buffer, size);
    if (gReadable >= 0 && result > 0) {
        gReadable -= result;
    }
    return result;
}

namespace vidorra {
namespace {

constexpr Size kSize{64, 32};
constexpr int kBytes = 64 * 32 * 3 / 2;

TEST(LoadPictureFromYuv420pFile, SaysWhichFileCannotBeRead) {
    const std::string path = test::temporaryFile("unreadable.yuv", std::string(kBytes, 'x')).string();
    const auto load = [&path] { return loadPictureFromYUV420PFile(path, kSize, AVCOL_RANGE_MPEG); };
    const auto descriptors = test::openDescriptors();
    // In each of the planes, and not at all.
    for (const int readable : {0, 1000, 64 * 32, 64 * 32 + 100, 64 * 40 + 16, kBytes - 1}) {
        SCOPED_TRACE(readable);
        gReadable = readable;
        EXPECT_THROW_TEXT(std::runtime_error, "Could not read file " + path, (void)load());
        gReadable = -1;
    }
    EXPECT_EQ(test::openDescriptors(), descriptors);
    gReadable = kBytes;
    EXPECT_EQ(load().frameSize(), kSize);
    gReadable = -1;
}

}  // namespace
}  // namespace vidorra
