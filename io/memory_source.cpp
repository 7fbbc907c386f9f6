#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "vidorra/io/byte_source.h"

namespace vidorra {
namespace {

class MemorySource : public ByteSource {
public:
    explicit MemorySource(std::vector<std::uint8_t> bytes)
        : mOwned(std::move(bytes)), mData(mOwned.data()), mSize(mOwned.size()) {}
    MemorySource(const std::uint8_t* data, std::size_t size) : mData(data), mSize(size) {}

    std::optional<std::size_t> read(std::uint8_t* target, std::size_t size) override {
        if (mPosition >= mSize) {
            return std::nullopt;
        }
        const std::size_t count = std::min<std::uint64_t>(size, mSize - mPosition);
        std::memcpy(target, mData + mPosition, count);
        mPosition += count;
        return count;
    }

    bool seek(std::uint64_t position) override {
        mPosition = position;
        return true;
    }

    [[nodiscard]] std::optional<std::uint64_t> size() const override { return mSize; }

    [[nodiscard]] std::string name() const override { return "memory"; }

private:
    std::vector<std::uint8_t> mOwned;
    const std::uint8_t* mData;
    std::size_t mSize;
    std::uint64_t mPosition = 0;
};

}  // namespace

std::shared_ptr<ByteSource> memorySource(std::vector<std::uint8_t> bytes) {
    return std::make_shared<MemorySource>(std::move(bytes));
}

std::shared_ptr<ByteSource> memorySource(const std::uint8_t* data, std::size_t size) {
    if (data == nullptr && size != 0) {
        throw std::invalid_argument("memorySource(): no memory at null");
    }
    return std::make_shared<MemorySource>(data, size);
}

}  // namespace vidorra
