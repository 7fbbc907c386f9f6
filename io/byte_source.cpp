#include "vidorra/io/byte_source.h"

namespace vidorra {

ByteSource::~ByteSource() = default;

bool ByteSource::seek(std::uint64_t /*position*/) {
    return false;
}

std::optional<std::uint64_t> ByteSource::size() const {
    return std::nullopt;
}

void ByteSource::interrupt() noexcept {}

std::string ByteSource::name() const {
    return "byte source";
}

}  // namespace vidorra
