#include "mux/whole_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "io/descriptor_output.h"

namespace vidorra {
namespace {

[[noreturn]] void fail(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

// The file itself, where the path is a link to it.
std::string resolved(const std::string& path) {
    std::error_code none;
    const std::filesystem::path target = std::filesystem::canonical(path, none);
    return none ? path : target.string();
}

bool isSpecial(const std::string& path) {
    std::error_code none;
    const std::filesystem::file_status status = std::filesystem::status(path, none);
    return std::filesystem::exists(status) && !std::filesystem::is_regular_file(status);
}

}  // namespace

WholeFile::WholeFile(const std::string& path, bool inPlace) : mPath(resolved(path)) {
    mWorkingPath = inPlace || isSpecial(mPath) ? mPath : mPath + ".part";
    mDescriptor.reset(open(mWorkingPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
    if (!mDescriptor) {
        fail("cannot create " + mWorkingPath);
    }
}

WholeFile::~WholeFile() = default;

void WholeFile::write(const std::uint8_t* data, std::size_t size) {
    writeAll(mDescriptor.get(), data, size, mWorkingPath);
}

bool WholeFile::seek(std::uint64_t position) {
    return lseek(mDescriptor.get(), static_cast<off_t>(position), SEEK_SET) >= 0;
}

void WholeFile::close() {
    if (mWorkingPath != mPath && fsync(mDescriptor.get()) != 0) {
        fail("cannot write to " + mWorkingPath);
    }
    if (::close(mDescriptor.release()) != 0 && errno != EINTR) {
        fail("cannot close " + mWorkingPath);
    }
}

void WholeFile::rename() const {
    if (mWorkingPath != mPath && std::rename(mWorkingPath.c_str(), mPath.c_str()) != 0) {
        fail("cannot rename " + mWorkingPath);
    }
}

void WholeFile::discard() noexcept {
    mDescriptor.reset();
    if (mWorkingPath != mPath) {
        unlink(mWorkingPath.c_str());
    }
}

}  // namespace vidorra
