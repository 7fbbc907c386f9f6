// How a resampler handles FFmpeg calls that fail. The linker redirects them here.
#include <gtest/gtest.h>

#include <cerrno>
#include <new>
#include <stdexcept>

#include "vidorra/audio/resampler.h"

extern "C" {
#include <libavutil/error.h>
#include <libswresample/swresample.h>
}

namespace {

// The code that the next call of each returns, 0 to call FFmpeg.
int initialisation = 0;
int conversion = 0;

}  // namespace

extern "C" {

int __real_swr_init(SwrContext* context);
int __wrap_swr_init(SwrContext* context) {
    return initialisation != 0 ? initialisation : __real_swr_init(context);
}

// The constness of the planes differs between FFmpeg versions, and does not matter to the linker.
int __real_swr_convert(SwrContext* context, void* out, int outCount, const void* in, int inCount);
int __wrap_swr_convert(SwrContext* context, void* out, int outCount, const void* in, int inCount) {
    return conversion != 0 ? conversion : __real_swr_convert(context, out, outCount, in, inCount);
}
}

namespace vidorra::test {
namespace {

class ResamplerCalls : public testing::Test {
protected:
    ResamplerCalls() : mInput(3, AV_SAMPLE_FMT_S16) {
        mInput.setSampleRate(48000);
        mInput.loadSamples(std::vector<short>(2000, 1000));
    }
    ~ResamplerCalls() override {
        initialisation = 0;
        conversion = 0;
    }

    unsigned long samplesOut() {
        return mResampler.resample(mInput, 44100, 3, AV_SAMPLE_FMT_S16).numberOfSamples();
    }

    AudioBuffer mInput;
    Resampler mResampler;
};

TEST_F(ResamplerCalls, AFailureOfFfmpegIsOverWithTheCall) {
    const unsigned long expected = samplesOut();
    for (int* failing : {&initialisation, &conversion}) {
        // Another rate, for which a new filter is made.
        static_cast<void>(mResampler.remap(mInput));
        *failing = AVERROR(ENOMEM);
        EXPECT_THROW(samplesOut(), std::bad_alloc);
        EXPECT_EQ(mResampler.getDelay().value, 0);
        *failing = AVERROR(EINVAL);
        EXPECT_THROW(samplesOut(), std::runtime_error);
        *failing = 0;
        EXPECT_EQ(samplesOut(), expected);
    }
}

}  // namespace
}  // namespace vidorra::test
