#include "io/byte_stream.h"

#include <chrono>
#include <new>
#include <stdexcept>
#include <thread>
#include <utility>

#include "vidorra/io/byte_source.h"

extern "C" {
#include <libavformat/avio.h>
#include <libavutil/error.h>
#include <libavutil/mem.h>
}

namespace vidorra {
namespace {

constexpr int kBufferSize = 32768;
constexpr std::chrono::milliseconds kPause{1};

}  // namespace

ByteStream::ByteStream(std::shared_ptr<ByteSource> source, std::function<bool()> interrupted)
    : mSource(std::move(source)), mInterrupted(std::move(interrupted)) {
    const bool canSeek = mSource->seek(0);
    auto* buffer = static_cast<unsigned char*>(av_malloc(kBufferSize));
    if (buffer == nullptr) {
        throw std::bad_alloc();
    }
    mContext =
        avio_alloc_context(buffer, kBufferSize, 0, this, readPacket, nullptr, canSeek ? seek : nullptr);
    if (mContext == nullptr) {
        av_free(buffer);
        throw std::bad_alloc();
    }
}

ByteStream::~ByteStream() {
    // FFmpeg may have put another buffer in the place of the first.
    av_freep(static_cast<void*>(&mContext->buffer));
    avio_context_free(&mContext);
}

void ByteStream::rethrow() {
    if (mThrown) {
        std::rethrow_exception(std::exchange(mThrown, nullptr));
    }
}

// What `call` gives, and an error when it throws, and ever after until rethrow().
template <class Result, class Call>
Result ByteStream::guarded(Call call) noexcept {
    if (mThrown) {
        return AVERROR_EXTERNAL;
    }
    try {
        return mInterrupted() ? Result(AVERROR_EXIT) : Result(call());
    } catch (...) {
        mThrown = std::current_exception();
        return AVERROR_EXTERNAL;
    }
}

int ByteStream::readPacket(void* opaque, std::uint8_t* target, int size) noexcept {
    auto& self = *static_cast<ByteStream*>(opaque);
    return self.guarded<int>([&] { return self.read(target, size); });
}

int ByteStream::read(std::uint8_t* target, int size) {
    for (;;) {
        const std::optional<std::size_t> count = mSource->read(target, static_cast<std::size_t>(size));
        if (!count) {
            return AVERROR_EOF;
        }
        if (*count > static_cast<std::size_t>(size)) {
            throw std::logic_error("ByteSource::read() gave more bytes than asked");
        }
        if (*count > 0) {
            return static_cast<int>(*count);
        }
        if (mInterrupted()) {
            return AVERROR_EXIT;
        }
        std::this_thread::sleep_for(kPause);
    }
}

std::int64_t ByteStream::seek(void* opaque, std::int64_t offset, int whence) noexcept {
    auto& self = *static_cast<ByteStream*>(opaque);
    return self.guarded<std::int64_t>([&]() -> std::int64_t {
        if (whence == AVSEEK_SIZE) {
            const std::optional<std::uint64_t> size = self.mSource->size();
            return size ? static_cast<std::int64_t>(*size) : AVERROR(ENOSYS);
        }
        // FFmpeg works out positions itself, but for an unknown size.
        if ((whence & ~AVSEEK_FORCE) != SEEK_SET || offset < 0) {
            return AVERROR(EINVAL);
        }
        return self.mSource->seek(static_cast<std::uint64_t>(offset)) ? offset : AVERROR(ESPIPE);
    });
}

}  // namespace vidorra
