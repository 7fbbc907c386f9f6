#include "support/decoding.h"

#include <cstdint>
#include <cstdlib>
#include <stdexcept>

#include "support/media.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#ifdef VIDORRA_BENCHMARK_OPENCV
#include <opencv2/videoio.hpp>
#endif

namespace vidorra::bench {
namespace {

void check(int result, const char* what) {
    if (result < 0) {
        throw std::runtime_error(what);
    }
}

}  // namespace

std::filesystem::path h264File(bool shortRun) {
    const std::string size = shortRun ? "320x180" : "1920x1080";
    const std::string seconds = shortRun ? "0.4" : "5";
    return vidorra::test::mediaFile(
        "benchmark.mp4",
        {"-f", "lavfi", "-i", "testsrc2=size=" + size + ":rate=30,noise=alls=8:allf=t", "-t", seconds, "-c:v",
         "libx264", "-preset", "veryfast", "-bf", "2", "-g", "60", "-b:v", "8M", "-pix_fmt", "yuv420p"});
}

std::filesystem::path h264FileWithAudio(bool shortRun) {
    return vidorra::test::mediaFile("benchmark_audio.mp4", {"-i", h264File(shortRun).string(), "-f", "lavfi",
                                                            "-i", "sine=frequency=440:sample_rate=48000",
                                                            "-shortest", "-c:v", "copy", "-c:a", "aac"});
}

PlainSource::PlainSource(const std::string& path) {
    AVDictionary* options = nullptr;
    av_dict_set_int(&options, "analyzeduration", std::chrono::microseconds(kAnalyzeDuration).count(), 0);
    check(avformat_open_input(&mContext, path.c_str(), nullptr, &options), "avformat_open_input");
    av_dict_free(&options);
    check(avformat_find_stream_info(mContext, nullptr), "avformat_find_stream_info");
}

PlainSource::~PlainSource() {
    avformat_close_input(&mContext);
}

int decodeByPlainLoop(const std::string& path, Stopwatch& stopwatch) {
    const PlainSource source(path);
    const AVCodecParameters* parameters = source.context()->streams[0]->codecpar;
    const AVCodec* codec = avcodec_find_decoder(parameters->codec_id);
    AVCodecContext* decoder = avcodec_alloc_context3(codec);
    check(avcodec_parameters_to_context(decoder, parameters), "avcodec_parameters_to_context");
    decoder->thread_count = 1;
    decoder->thread_type = 0;
    check(avcodec_open2(decoder, codec, nullptr), "avcodec_open2");
    AVPacket* packet = av_packet_alloc();
    AVFrame* frame = av_frame_alloc();
    int frames = 0;
    stopwatch.start();
    while (av_read_frame(source.context(), packet) >= 0) {
        check(avcodec_send_packet(decoder, packet), "avcodec_send_packet");
        av_packet_unref(packet);
        while (avcodec_receive_frame(decoder, frame) >= 0) {
            ++frames;
            av_frame_unref(frame);
        }
    }
    stopwatch.stop();
    av_frame_free(&frame);
    av_packet_free(&packet);
    avcodec_free_context(&decoder);
    return frames;
}

#ifdef VIDORRA_BENCHMARK_OPENCV
void decodeByOpenCv(const std::string& path, Stopwatch& stopwatch) {
    setenv("OPENCV_FFMPEG_CAPTURE_OPTIONS", "threads;1", 1);
    cv::VideoCapture capture(path, cv::CAP_FFMPEG);
    cv::Mat image;
    stopwatch.start();
    while (capture.read(image)) {
    }
    stopwatch.stop();
}
#endif

}  // namespace vidorra::bench
