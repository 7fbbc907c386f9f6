#include "mux/sink_output.h"

#include <algorithm>
#include <new>
#include <utility>

extern "C" {
#include <libavformat/avio.h>
#include <libavutil/error.h>
#include <libavutil/mem.h>
}

namespace vidorra {
namespace {

constexpr int kBufferSize = 1 << 16;

}  // namespace

SinkOutput::SinkOutput(std::shared_ptr<ByteSink> sink) : mSink(std::move(sink)), mCanSeek(mSink->seek(0)) {
    // Lambdas with a parameter of any type: some versions of FFmpeg hand over bytes that are not constant.
    const auto writeTo = [](void* opaque, auto* data, int size) {
        return static_cast<SinkOutput*>(opaque)->write(data, size);
    };
    const auto seekTo = [](void* opaque, std::int64_t offset, int whence) {
        return static_cast<SinkOutput*>(opaque)->seek(offset, whence);
    };
    auto* buffer = static_cast<std::uint8_t*>(av_malloc(kBufferSize));
    if (buffer != nullptr) {
        mContext =
            avio_alloc_context(buffer, kBufferSize, 1, this, nullptr, writeTo, mCanSeek ? +seekTo : nullptr);
    }
    if (mContext == nullptr) {
        av_free(buffer);
        throw std::bad_alloc();
    }
}

SinkOutput::~SinkOutput() {
    av_freep(&mContext->buffer);
    avio_context_free(&mContext);
}

void SinkOutput::rethrow() const {
    if (mException) {
        std::rethrow_exception(mException);
    }
}

int SinkOutput::write(const std::uint8_t* data, int size) noexcept {
    if (mException) {
        return AVERROR_EXTERNAL;
    }
    try {
        mSink->write(data, static_cast<std::size_t>(size));
    } catch (...) {
        mException = std::current_exception();
        return AVERROR_EXTERNAL;
    }
    mPosition += size;
    mEnd = std::max(mEnd, mPosition);
    return size;
}

std::int64_t SinkOutput::seek(std::int64_t offset, int whence) noexcept {
    if (mException) {
        return AVERROR_EXTERNAL;
    }
    if (whence == AVSEEK_SIZE) {
        return mEnd;
    }
    const std::int64_t base = whence == SEEK_CUR ? mPosition : whence == SEEK_END ? mEnd : 0;
    const std::int64_t position = base + offset;
    if (position < 0 || position > mEnd) {
        return AVERROR(EINVAL);
    }
    try {
        if (!mSink->seek(static_cast<std::uint64_t>(position))) {
            return AVERROR(EIO);
        }
    } catch (...) {
        mException = std::current_exception();
        return AVERROR_EXTERNAL;
    }
    mPosition = position;
    return position;
}

}  // namespace vidorra
