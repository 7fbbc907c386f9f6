#pragma once

#include <poll.h>
#include <ctime>

#include <cstdint>
#include <functional>
#include <utility>

namespace vidorra::test {

/// A function of another library that this program defines itself, so that the calls of libvidorra.so come
/// here first. They are passed to the other library unless a test has replaced the function.
template <class Signature>
class Call;

template <class Result, class... Arguments>
class Call<Result(Arguments...)> {
public:
    explicit Call(const char* name) : mName(name) {}

    Result operator()(Arguments... arguments) {
        return mReplacement ? mReplacement(arguments...) : real(arguments...);
    }

    /// The other library's own function.
    Result real(Arguments... arguments) {
        if (mReal == nullptr) {
            mReal = reinterpret_cast<Result (*)(Arguments...)>(find(mName));
        }
        return mReal(arguments...);
    }

    /// Keeps a replacement in place during its lifetime.
    class Replaced {
    public:
        Replaced(Call& call, std::function<Result(Arguments...)> replacement) : mCall(call) {
            mCall.mReplacement = std::move(replacement);
        }
        Replaced(const Replaced&) = delete;
        Replaced& operator=(const Replaced&) = delete;
        ~Replaced() { mCall.mReplacement = nullptr; }

    private:
        Call& mCall;
    };

    [[nodiscard]] Replaced replace(std::function<Result(Arguments...)> replacement) {
        return Replaced(*this, std::move(replacement));
    }

private:
    static void* find(const char* name);

    const char* mName;
    Result (*mReal)(Arguments...) = nullptr;
    std::function<Result(Arguments...)> mReplacement;
};

void* findNextFunction(const char* name);

template <class Result, class... Arguments>
void* Call<Result(Arguments...)>::find(const char* name) {
    return findNextFunction(name);
}

/// FFmpeg's structures are void here, since their constness differs between FFmpeg versions.
struct Calls {
    Call<void*()> avformatAllocContext{"avformat_alloc_context"};
    Call<const void*(const char*)> avFindInputFormat{"av_find_input_format"};
    Call<int(void**, const char*, std::int64_t, int)> avDictSetInt{"av_dict_set_int"};
    Call<int(void**, const char*, const void*, void**)> avformatOpenInput{"avformat_open_input"};
    Call<int(void*, void**)> avformatFindStreamInfo{"avformat_find_stream_info"};
    Call<void(void**)> avformatCloseInput{"avformat_close_input"};
    Call<int(void*, void*)> avReadFrame{"av_read_frame"};
    Call<int(void*, int, std::int64_t, int)> avSeekFrame{"av_seek_frame"};
    Call<void*()> avPacketAlloc{"av_packet_alloc"};
    Call<void*()> avFrameAlloc{"av_frame_alloc"};
    Call<const void*(const char*)> avcodecFindDecoderByName{"avcodec_find_decoder_by_name"};
    Call<void*(const void*)> avcodecAllocContext3{"avcodec_alloc_context3"};
    Call<int(void*, const void*)> avcodecParametersToContext{"avcodec_parameters_to_context"};
    Call<int(void*, const void*, void**)> avcodecOpen2{"avcodec_open2"};
    Call<int(void*, const void*)> avcodecSendPacket{"avcodec_send_packet"};
    Call<int(void*, void*)> avcodecReceiveFrame{"avcodec_receive_frame"};
    Call<void(void*)> avcodecFlushBuffers{"avcodec_flush_buffers"};
    Call<int(pollfd*, nfds_t, int)> poll{"poll"};
    /// What the clocks of the standard library read.
    Call<int(clockid_t, timespec*)> clockGettime{"clock_gettime"};
};

Calls& calls();

}  // namespace vidorra::test
