#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "io/descriptor.h"
#include "vidorra/io/byte_source.h"

namespace vidorra {
namespace {

[[noreturn]] void throwSystemError(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

std::uint64_t sizeOf(const Descriptor& file, const std::string& path) {
    struct stat status {};
    if (fstat(file.get(), &status) != 0) {
        throwSystemError("cannot read the size of " + path);
    }
    if (!S_ISREG(status.st_mode)) {
        throw std::invalid_argument("mappedSource(): " + path + " is not a regular file");
    }
    return static_cast<std::uint64_t>(status.st_size);
}

class MappedSource : public ByteSource {
public:
    explicit MappedSource(std::string path)
        : mPath(std::move(path)), mFile(::open(mPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
        if (mFile.get() < 0) {
            throwSystemError("cannot open " + mPath);
        }
        mMapped = sizeOf(mFile, mPath);
        if (mMapped == 0) {
            return;
        }
        mData = mmap(nullptr, mMapped, PROT_READ, MAP_SHARED, mFile.get(), 0);
        if (mData == MAP_FAILED) {
            throwSystemError("cannot map " + mPath);
        }
        // Only advice: it does not matter when it is not followed.
        madvise(mData, mMapped, MADV_SEQUENTIAL);
    }
    MappedSource(const MappedSource&) = delete;
    MappedSource& operator=(const MappedSource&) = delete;
    ~MappedSource() override {
        if (mMapped != 0) {
            munmap(mData, mMapped);
        }
    }

    std::optional<std::size_t> read(std::uint8_t* target, std::size_t size) override {
        // Touching mapped pages past the end of a file that has shrunk would end the process.
        const std::uint64_t end = std::min(mMapped, sizeOf(mFile, mPath));
        if (mPosition >= end) {
            return std::nullopt;
        }
        const std::size_t count = std::min<std::uint64_t>(size, end - mPosition);
        std::memcpy(target, static_cast<const std::uint8_t*>(mData) + mPosition, count);
        mPosition += count;
        return count;
    }

    bool seek(std::uint64_t position) override {
        mPosition = position;
        return true;
    }

    [[nodiscard]] std::optional<std::uint64_t> size() const override { return mMapped; }

    [[nodiscard]] std::string name() const override { return mPath; }

private:
    std::string mPath;
    Descriptor mFile;
    void* mData = nullptr;
    std::uint64_t mMapped = 0;
    std::uint64_t mPosition = 0;
};

}  // namespace

std::shared_ptr<ByteSource> mappedSource(const std::string& path) {
    return std::make_shared<MappedSource>(path);
}

}  // namespace vidorra
