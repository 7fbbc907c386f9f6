// The functions of FFmpeg in which much happens, defined here to stand between them and the library. No
// header of FFmpeg: it would declare them with types of its own.
#include "faults/ffmpeg_calls.h"

#include <dlfcn.h>

#include <atomic>
#include <cerrno>
#include <cstdint>

namespace {

using vidorra::test::Told;

std::atomic<long> calls{0};
std::atomic<long> shortCall{0};
std::atomic<Told> told{Told::Shortage};
thread_local long ownCall = 0;

Told toldBy(int result) {
    constexpr int kEnd = -541478725;
    if (result >= 0 || result == -EAGAIN || result == kEnd) {
        return Told::Nothing;
    }
    return result == -ENOMEM ? Told::Shortage : Told::AnotherError;
}

Told toldBy(const void* result) {
    return result == nullptr ? Told::Shortage : Told::Nothing;
}

class Call {
public:
    Call() : mIsOuter(ownCall == 0) {
        if (mIsOuter) {
            ownCall = ++calls;
        }
    }
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;
    ~Call() {
        if (mIsOuter) {
            ownCall = 0;
        }
    }

    template <class Result>
    Result ended(Result result) const {
        if (mIsOuter && shortCall == ownCall) {
            told = toldBy(result);
        }
        return result;
    }

private:
    bool mIsOuter;
};

}  // namespace

#define EXPORTED extern "C" __attribute__((visibility("default")))

#define COUNTED(result, name, parameters, arguments)                                              \
    EXPORTED result name parameters {                                                             \
        static const auto next = reinterpret_cast<result(*) parameters>(dlsym(RTLD_NEXT, #name)); \
        const Call call;                                                                          \
        return call.ended(next arguments);                                                        \
    }

// Functions that give nothing.
#define COUNTED_VOID(name, parameters, arguments)                                               \
    EXPORTED void name parameters {                                                             \
        static const auto next = reinterpret_cast<void(*) parameters>(dlsym(RTLD_NEXT, #name)); \
        const Call call;                                                                        \
        next arguments;                                                                         \
        static_cast<void>(call.ended(0));                                                       \
    }

COUNTED(int, avformat_open_input, (void** a, const char* b, const void* c, void** d), (a, b, c, d))
COUNTED(int, avformat_find_stream_info, (void* a, void** b), (a, b))
COUNTED_VOID(avformat_close_input, (void** a), (a))
COUNTED(int, av_read_frame, (void* a, void* b), (a, b))
COUNTED(int, av_seek_frame, (void* a, int b, std::int64_t c, int d), (a, b, c, d))
COUNTED(int, avio_open, (void** a, const char* b, int c), (a, b, c))
COUNTED(int, avio_open2, (void** a, const char* b, int c, const void* d, void** e), (a, b, c, d, e))
COUNTED(void*, avcodec_alloc_context3, (const void* a), (a))
COUNTED(int, avcodec_open2, (void* a, const void* b, void** c), (a, b, c))
COUNTED(int, avcodec_send_packet, (void* a, const void* b), (a, b))
COUNTED(int, avcodec_receive_frame, (void* a, void* b), (a, b))
COUNTED(int, avcodec_send_frame, (void* a, const void* b), (a, b))
COUNTED(int, avcodec_receive_packet, (void* a, void* b), (a, b))
COUNTED_VOID(avcodec_flush_buffers, (void* a), (a))
COUNTED_VOID(avcodec_free_context, (void** a), (a))
COUNTED(int, avfilter_graph_create_filter,
        (void** a, const void* b, const char* c, const char* d, void* e, void* f), (a, b, c, d, e, f))
COUNTED(int, avfilter_graph_parse_ptr, (void* a, const char* b, void** c, void** d, void* e), (a, b, c, d, e))
COUNTED(int, avfilter_graph_config, (void* a, void* b), (a, b))
COUNTED_VOID(avfilter_graph_free, (void** a), (a))
COUNTED_VOID(avfilter_free, (void* a), (a))
COUNTED(int, av_buffersrc_add_frame_flags, (void* a, void* b, int c), (a, b, c))
COUNTED(int, av_buffersink_get_frame, (void* a, void* b), (a, b))
COUNTED(int, av_buffersink_get_frame_flags, (void* a, void* b, int c), (a, b, c))
COUNTED(int, swr_init, (void* a), (a))
COUNTED(int, swr_convert, (void* a, void* b, int c, void* d, int e), (a, b, c, d, e))
COUNTED(void*, sws_getCachedContext,
        (void* a, int b, int c, int d, int e, int f, int g, int h, void* i, void* j, const double* k),
        (a, b, c, d, e, f, g, h, i, j, k))
COUNTED(int, sws_scale, (void* a, const void* b, const int* c, int d, int e, const void* f, const int* g),
        (a, b, c, d, e, f, g))

namespace vidorra::test {

long currentFFmpegCall() {
    return ownCall != 0 ? ownCall : calls.load();
}

bool isInFFmpegCall() {
    return ownCall != 0;
}

void noteShortageInFFmpeg() {
    shortCall = currentFFmpegCall();
}

Told toldOfShortage() {
    return told;
}

}  // namespace vidorra::test
