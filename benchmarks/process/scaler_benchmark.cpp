// What Scaler costs above sws_scale() with a context that is kept. Both make a new picture each time, from
// the same allocator, whose memory is written before anything is timed. "Hot": always the same source.
#include <cstdint>
#include <cstdio>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>

#include <fmt/format.h>
#include <vidorra/vidorra.h>

#include "support/measure.h"
#include "support/memory.h"

extern "C" {
#include <libswscale/swscale.h>
}

namespace {

using namespace vidorra;
using bench::Comparison;
using bench::Stopwatch;

struct Case {
    const char* title;
    Size srcSize;
    AVPixelFormat srcFormat;
    AVColorRange srcRange;
    Size dstSize;
    AVPixelFormat dstFormat;
    AVColorRange dstRange;
    Scaler::ScalingAlgorithm algorithm;
    int pictures;
};

using Context = std::unique_ptr<SwsContext, void (*)(SwsContext*)>;

Context makeContext(const Case& kind) {
    Context context(sws_getContext(kind.srcSize.width, kind.srcSize.height, kind.srcFormat,
                                   kind.dstSize.width, kind.dstSize.height, kind.dstFormat,
                                   static_cast<int>(kind.algorithm), nullptr, nullptr, nullptr),
                    sws_freeContext);
    if (!context) {
        throw std::runtime_error("sws_getContext failed");
    }
    const int* coefficients = sws_getCoefficients(SWS_CS_DEFAULT);
    sws_setColorspaceDetails(context.get(), coefficients, kind.srcRange == AVCOL_RANGE_JPEG ? 1 : 0,
                             coefficients, kind.dstRange == AVCOL_RANGE_JPEG ? 1 : 0, 0, 1 << 16, 1 << 16);
    return context;
}

Picture scalePlainly(SwsContext* context, const Case& kind, PictureAllocator& allocator, const Picture& src) {
    Picture result = allocator.allocate(kind.dstSize, kind.dstFormat, kind.dstRange);
    sws_scale(context, src.data().data(), src.linesize().data(), 0, src.frameSize().height,
              result.data().data(), result.linesize().data());
    return result;
}

void benchmark(const Case& kind, const bench::Options& options) {
    if (!options.wants(kind.title)) {
        return;
    }
    const std::string plain = "sws_scale";
    const std::string ours = "Scaler::scale";
    const int pictures = options.shortRun ? 1 : kind.pictures;
    constexpr std::size_t kRegion = std::size_t{64} << 20;
    const bench::Memory region = bench::makeMemory(kRegion);
    BestFitPictureAllocator allocator(region.get(), kRegion, 64, 4096, false);
    const Picture src = allocator.allocate(kind.srcSize, kind.srcFormat, kind.srcRange);
    const Context context = makeContext(kind);
    Scaler scaler;
    scaler.setAlgorithm(kind.algorithm);
    scaler.setPictureAllocator(&allocator);
    const auto byUs = [&] { return scaler.scale(src, kind.dstSize, kind.dstFormat, kind.dstRange); };
    const auto byThem = [&] { return scalePlainly(context.get(), kind, allocator, src); };
    if (!comparePictures(byUs(), byThem(), 0, false, nullptr)) {
        throw std::runtime_error(fmt::format("{}: the pictures differ", kind.title));
    }

    Comparison comparison(kind.title);
    const auto add = [&](const std::string& name, auto once) {
        comparison.add(name, [once, pictures](Stopwatch& stopwatch) {
            stopwatch.start();
            for (int i = 0; i < pictures; ++i) {
                static_cast<void>(once());
            }
            stopwatch.stop();
        });
    };
    add(plain, byThem);
    add(ours, byUs);
    comparison.run(options.repetitions);
    bench::report({kind.title, "a picture", comparison.seconds(ours) / pictures * 1e6, "us"});
    comparison.reportRatio(ours, plain, bench::atMost(1.02));
}

}  // namespace

int main(int argc, char** argv) try {
    const bench::Options options = bench::parseOptions(argc, argv, 31);
    using Algorithm = Scaler::ScalingAlgorithm;
    constexpr AVColorRange kLimited = AVCOL_RANGE_MPEG;
    constexpr AVColorRange kFull = AVCOL_RANGE_JPEG;
    for (const Case& kind : {
             Case{"yuv420p 1080p to 720p",
                  {1920, 1080},
                  AV_PIX_FMT_YUV420P,
                  kLimited,
                  {1280, 720},
                  AV_PIX_FMT_YUV420P,
                  kLimited,
                  Algorithm::Bilinear,
                  4},
             Case{"nv12 1080p to 640x360, bicubic",
                  {1920, 1080},
                  AV_PIX_FMT_NV12,
                  kLimited,
                  {640, 360},
                  AV_PIX_FMT_NV12,
                  kLimited,
                  Algorithm::Bicubic,
                  4},
             Case{"nv12 1080p to rgb24 1080p",
                  {1920, 1080},
                  AV_PIX_FMT_NV12,
                  kLimited,
                  {1920, 1080},
                  AV_PIX_FMT_RGB24,
                  kFull,
                  Algorithm::Bilinear,
                  4},
             Case{"nv12 720p limited to yuv420p 540p full",
                  {1280, 720},
                  AV_PIX_FMT_NV12,
                  kLimited,
                  {960, 540},
                  AV_PIX_FMT_YUV420P,
                  kFull,
                  Algorithm::Bilinear,
                  4},
             Case{"rgba 720p to yuv420p 1080p",
                  {1280, 720},
                  AV_PIX_FMT_RGBA,
                  kFull,
                  {1920, 1080},
                  AV_PIX_FMT_YUV420P,
                  kLimited,
                  Algorithm::Bilinear,
                  4},
             Case{"yuv420p 320x180 to nv12 160x90, point",
                  {320, 180},
                  AV_PIX_FMT_YUV420P,
                  kLimited,
                  {160, 90},
                  AV_PIX_FMT_NV12,
                  kLimited,
                  Algorithm::Point,
                  200},
         }) {
        benchmark(kind, options);
    }
} catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
}
