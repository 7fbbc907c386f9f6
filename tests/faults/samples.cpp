// Samples, and their resampling.
#include "faults/digest.h"
#include "faults/scenario.h"
#include "faults/test_pictures.h"
#include "vidorra/audio/resampler.h"
#include "vidorra/core/av_ptr.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/frame.h>
}

namespace vidorra::test {
namespace {

class Samples : public Scenario {
public:
    std::uint64_t run() override {
        Digest digest;
        for (const AVSampleFormat format : {AV_SAMPLE_FMT_S16, AV_SAMPLE_FMT_FLTP}) {
            const AudioFrame frame(testSamples(441, format, 48000), Timestamp(Timebase(), 7));
            const AudioFrame copy = frame;
            digest.add(copy.debugDescription());
            const AvPtr<AVFrame> filled = copy.toAvFrame();
            AudioBuffer loaded(AV_CH_LAYOUT_STEREO, format);
            loaded.loadAVFrame(filled.get());
            digest.add(loaded);
            loaded.resize(2000);
            loaded.loadSamples({1, 2, 3, 4});
            digest.add(loaded);
        }
        return digest.value();
    }

    std::uint64_t runAgain() override { return run(); }
};

class Resampling : public Scenario {
public:
    std::uint64_t run() override {
        // As without samples from before, whatever a call that failed has left.
        static_cast<void>(mResampler.remap(testSamples(8, AV_SAMPLE_FMT_S16, 8000)));
        Digest digest;
        FirstFailure failure;
        for (int i = 0; i < 3; ++i) {
            failure.during([&] { digest.add(resample(AV_CH_LAYOUT_STEREO)); });
        }
        failure.during([&] {
            mResampler.setChannelMapping("FR|FL");
            digest.add(resample(AV_CH_LAYOUT_MONO));
            digest.add(mResampler.remap(mSamples));
        });
        failure.rethrow();
        return digest.value();
    }

    std::uint64_t runAgain() override {
        mResampler.setChannelMapping("");
        return run();
    }

private:
    AudioBuffer resample(long layout) {
        return mResampler.resample(mSamples, 48000, layout, AV_SAMPLE_FMT_FLTP);
    }

    AudioBuffer mSamples = testSamples(1000, AV_SAMPLE_FMT_S16, 44100);
    Resampler mResampler;
};

}  // namespace

std::vector<NamedScenario> sampleScenarios() {
    return {{"samples", makeScenario<Samples>}, {"resampler", makeScenario<Resampling>}};
}

}  // namespace vidorra::test
