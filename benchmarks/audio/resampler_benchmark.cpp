// The overhead of the resampler over libswresample itself, which writes into existing memory. A program that
// passes its buffers on also has to allocate them.
#include <cstdio>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <vector>

#include <vidorra/vidorra.h>

#include "support/measure.h"

extern "C" {
#include <libavutil/mem.h>
#include <libavutil/opt.h>
#include <libavutil/samplefmt.h>
#include <libswresample/swresample.h>
}

namespace {

using namespace vidorra;
using bench::Comparison;
using bench::Stopwatch;

constexpr long kStereo = 3;
constexpr int kRoom = 8192;

struct Case {
    const char* title;
    int inRate;
    AVSampleFormat inFormat;
    int outRate;
    AVSampleFormat outFormat;
};

AudioBuffer noise(const Case& kind, int samples) {
    AudioBuffer buffer(kStereo, kind.inFormat);
    buffer.setSampleRate(kind.inRate);
    buffer.resize(static_cast<unsigned long>(samples));
    std::uint32_t state = 1;
    const auto next = [&state] { return static_cast<short>((state = state * 1664525 + 1013904223) >> 16); };
    for (std::uint8_t* plane : buffer.getPointersToPlanes()) {
        for (int i = 0; i < samples; ++i) {
            if (kind.inFormat == AV_SAMPLE_FMT_FLTP) {
                reinterpret_cast<float*>(plane)[i] = static_cast<float>(next()) / 32768;
            } else {
                reinterpret_cast<short*>(plane)[2 * i] = next();
                reinterpret_cast<short*>(plane)[2 * i + 1] = next();
            }
        }
    }
    return buffer;
}

// One of the two options exists in every FFmpeg version.
void setStereo(SwrContext* context, const char* option, const char* oldOption) {
    if (av_opt_set(context, option, "stereo", 0) < 0) {
        av_opt_set_int(context, oldOption, kStereo, 0);
    }
}

void runPlain(const Case& kind, const AudioBuffer& input, int buffers, bool intoNewMemory,
              Stopwatch& stopwatch) {
    std::unique_ptr<SwrContext, void (*)(SwrContext*)> context(swr_alloc(),
                                                               [](SwrContext* freed) { swr_free(&freed); });
    setStereo(context.get(), "in_chlayout", "in_channel_layout");
    setStereo(context.get(), "out_chlayout", "out_channel_layout");
    av_opt_set_sample_fmt(context.get(), "in_sample_fmt", kind.inFormat, 0);
    av_opt_set_int(context.get(), "in_sample_rate", kind.inRate, 0);
    av_opt_set_sample_fmt(context.get(), "out_sample_fmt", kind.outFormat, 0);
    av_opt_set_int(context.get(), "out_sample_rate", kind.outRate, 0);
    av_opt_set_int(context.get(), "filter_size", 32, 0);
    av_opt_set_int(context.get(), "phase_shift", 5, 0);
    av_opt_set_double(context.get(), "cutoff", 1.0, 0);
    if (swr_init(context.get()) < 0) {
        throw std::runtime_error("swr_init failed");
    }
    AudioBuffer output(kStereo, kind.outFormat);
    output.resize(kRoom);
    const std::vector<std::uint8_t*> kept = output.getPointersToPlanes();
    const std::vector<const std::uint8_t*> in = input.getPointersToPlanes();
    const int samples = static_cast<int>(input.numberOfSamples());
    const auto convert = [&] {
        std::uint8_t* out[2] = {kept[0], kept.size() > 1 ? kept[1] : nullptr};
        const int room =
            static_cast<int>(static_cast<std::int64_t>(samples) * kind.outRate / kind.inRate) + 32;
        if (intoNewMemory && av_samples_alloc(out, nullptr, 2, room, kind.outFormat, 1) < 0) {
            throw std::bad_alloc();
        }
        const int converted =
            swr_convert(context.get(), out, room, const_cast<const std::uint8_t**>(in.data()), samples);
        if (intoNewMemory) {
            av_freep(&out[0]);
        }
        return converted;
    };
    // The first one fills the filter.
    convert();
    stopwatch.start();
    for (int i = 0; i < buffers; ++i) {
        if (convert() <= 0) {
            throw std::runtime_error("swr_convert gave nothing");
        }
    }
    stopwatch.stop();
}

void runOurs(const Case& kind, const AudioBuffer& input, int buffers, Stopwatch& stopwatch) {
    Resampler resampler;
    const auto convert = [&] { return resampler.resample(input, kind.outRate, kStereo, kind.outFormat); };
    static_cast<void>(convert());
    stopwatch.start();
    for (int i = 0; i < buffers; ++i) {
        if (convert().numberOfSamples() == 0) {
            throw std::runtime_error("the resampler gave nothing");
        }
    }
    stopwatch.stop();
}

void benchmark(const Case& kind, const bench::Options& options) {
    if (!options.wants(kind.title)) {
        return;
    }
    const std::string plain = "swr_convert";
    const std::string intoNew = "swr_convert into new memory";
    const std::string ours = "Resampler::resample";
    const int buffers = options.shortRun ? 10 : 5000;
    const AudioBuffer input = noise(kind, 1024);
    Comparison comparison(kind.title);
    comparison.add(plain, [&](Stopwatch& stopwatch) { runPlain(kind, input, buffers, false, stopwatch); });
    comparison.add(intoNew, [&](Stopwatch& stopwatch) { runPlain(kind, input, buffers, true, stopwatch); });
    comparison.add(ours, [&](Stopwatch& stopwatch) { runOurs(kind, input, buffers, stopwatch); });
    comparison.run(options.repetitions);
    comparison.printTable();
    bench::report({kind.title, "a buffer costs more by",
                   (comparison.seconds(ours) - comparison.seconds(plain)) * 1e6 / buffers, "us"});
    comparison.reportRatio(ours, intoNew, std::nullopt);
    // Without a change of rate the conversion takes less time than allocating the result.
    const bool resamples = kind.inRate != kind.outRate;
    comparison.reportRatio(ours, plain, resamples ? std::optional(bench::atMost(1.05)) : std::nullopt);
}

}  // namespace

int main(int argc, char** argv) try {
    const bench::Options options = bench::parseOptions(argc, argv);
    for (const Case& kind : {
             Case{"44100 to 48000 Hz, stereo fltp", 44100, AV_SAMPLE_FMT_FLTP, 48000, AV_SAMPLE_FMT_FLTP},
             Case{"48000 to 44100 Hz, stereo s16 to fltp", 48000, AV_SAMPLE_FMT_S16, 44100,
                  AV_SAMPLE_FMT_FLTP},
             Case{"48000 Hz, stereo s16 to fltp", 48000, AV_SAMPLE_FMT_S16, 48000, AV_SAMPLE_FMT_FLTP},
         }) {
        benchmark(kind, options);
    }
} catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
}
