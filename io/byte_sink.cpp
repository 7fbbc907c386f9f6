#include "vidorra/io/byte_sink.h"

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "io/descriptor_output.h"
#include "vdr_utils/file_descriptor_deleter.h"

namespace vidorra {
namespace {

class DescriptorSink final : public ByteSink {
public:
    explicit DescriptorSink(int descriptor) : mDescriptor(descriptor), mStart(startOf(descriptor)) {}

    void write(const std::uint8_t* data, std::size_t size) override {
        writeAll(mDescriptor.get(), data, size, "the descriptor");
    }

    bool seek(std::uint64_t position) override {
        return mStart >= 0 && lseek(mDescriptor.get(), mStart + static_cast<off_t>(position), SEEK_SET) >= 0;
    }

    void close() override {
        // Some file systems tell of lost bytes no earlier.
        if (::close(mDescriptor.release()) != 0 && errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "cannot close the descriptor");
        }
    }

private:
    // Where what is written to a descriptor for appending ends up does not depend on its position.
    static off_t startOf(int descriptor) {
        return (fcntl(descriptor, F_GETFL) & O_APPEND) != 0 ? -1 : lseek(descriptor, 0, SEEK_CUR);
    }

    std::unique_ptr<int, vx::utils::priv::FileDescriptorDeleter> mDescriptor;
    // Where the file begins; negative for a descriptor that cannot seek.
    off_t mStart;
};

}  // namespace

ByteSink::~ByteSink() = default;

bool ByteSink::seek(std::uint64_t /*position*/) {
    return false;
}

void ByteSink::close() {}

struct MemorySink::Fields {
    std::vector<std::uint8_t> bytes;
    std::size_t position = 0;
};

MemorySink::MemorySink() : mFields(std::make_unique<Fields>()) {}

MemorySink::~MemorySink() = default;

void MemorySink::write(const std::uint8_t* data, std::size_t size) {
    std::vector<std::uint8_t>& bytes = mFields->bytes;
    const std::size_t overwritten = std::min(size, bytes.size() - mFields->position);
    std::copy_n(data, overwritten, bytes.begin() + static_cast<std::ptrdiff_t>(mFields->position));
    bytes.insert(bytes.end(), data + overwritten, data + size);
    mFields->position += size;
}

bool MemorySink::seek(std::uint64_t position) {
    if (position > mFields->bytes.size()) {
        return false;
    }
    mFields->position = position;
    return true;
}

const std::vector<std::uint8_t>& MemorySink::bytes() const noexcept {
    return mFields->bytes;
}

std::vector<std::uint8_t> MemorySink::take() noexcept {
    mFields->position = 0;
    return std::exchange(mFields->bytes, {});
}

std::shared_ptr<ByteSink> descriptorSink(int descriptor) {
    if (descriptor < 0) {
        throw std::invalid_argument("descriptorSink: the descriptor is negative");
    }
    return std::make_shared<DescriptorSink>(descriptor);
}

}  // namespace vidorra
