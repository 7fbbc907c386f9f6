#include "vidorra/core/av_error.h"

#include <array>
#include <cstdint>

#include "vidorra/core/format.h"

extern "C" {
#include <libavutil/error.h>
}

namespace vidorra {

static_assert(AvError::Unknown.code() == AVERROR_UNKNOWN);
static_assert(AvError::InvalidData.code() == AVERROR_INVALIDDATA);
static_assert(AvError::Eof.code() == AVERROR_EOF);
static_assert(AvError::Again.code() == AVERROR(EAGAIN));
static_assert(AvError::OutOfRange.code() == AVERROR(ERANGE));
static_assert(AvError::OptionNotFound.code() == AVERROR_OPTION_NOT_FOUND);
static_assert(AvError::DecoderNotFound.code() == AVERROR_DECODER_NOT_FOUND);
static_assert(AvError::OutOfMemory.code() == AVERROR(ENOMEM));
static_assert(AvError::InvalidArgument.code() == AVERROR(EINVAL));

std::string AvError::toString() const {
    std::string text = fmt::format("#{}", mCode);
    std::array<char, AV_ERROR_MAX_STRING_SIZE> buffer{};
    if (av_strerror(mCode, buffer.data(), buffer.size()) >= 0) {
        text.append(": ").append(buffer.data());
    }
    return text;
}

}  // namespace vidorra
