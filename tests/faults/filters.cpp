// Filters for frames by themselves. Those between frames and an encoder are in encoders.cpp.
#include <string>

#include "faults/digest.h"
#include "faults/scenario.h"
#include "faults/test_pictures.h"
#include "vidorra/filter/ffmpeg_filter_wrapper.h"

namespace vidorra::test {
namespace {

class FilteredPictures : public Scenario {
public:
    std::uint64_t run() override {
        Digest digest;
        FirstFailure failure;
        failure.during([&] { mFilter.setFilterSpec("scale=32:24,hflip,format=rgba"); });
        for (const Size size : {Size{64, 48}, Size{64, 48}, Size{40, 30}, Size{40, 30}, Size{40, 30}}) {
            failure.during([&] {
                VideoFrame frame(testPicture(size, AV_PIX_FMT_YUV420P), Timestamp(Timebase(), 40000),
                                 Frame::NoFlags);
                digest.add(mFilter.processVideoFrame(frame));
            });
        }
        failure.rethrow();
        return digest.value();
    }

    std::uint64_t runAgain() override { return run(); }

private:
    FFmpegFilterWrapper mFilter;
};

class FilteredSamples : public Scenario {
public:
    std::uint64_t run() override {
        Digest digest;
        FirstFailure failure;
        failure.during([&] { mFilter.setFilterSpec("volume=0.5,aformat=sample_fmts=fltp"); });
        for (int i = 0; i < 4; ++i) {
            failure.during([&] {
                AudioFrame frame(testSamples(441, AV_SAMPLE_FMT_S16, 48000),
                                 Timestamp(Timebase(), 40000 * i));
                digest.add(mFilter.processAudioFrame(frame));
            });
        }
        failure.rethrow();
        return digest.value();
    }

    std::uint64_t runAgain() override { return run(); }

private:
    FFmpegFilterWrapper mFilter;
};

}  // namespace

std::vector<NamedScenario> filterScenarios() {
    return {{"filtered_pictures", makeScenario<FilteredPictures>},
            {"filtered_samples", makeScenario<FilteredSamples>}};
}

}  // namespace vidorra::test
