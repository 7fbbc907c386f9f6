#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "clips.h"
#include "support/ffprobe.h"

namespace vidorra {
namespace {

struct Codec {
    const char* name;
    std::string file;
    std::vector<std::string> encoder;
};

class ClipReaderThreads : public testing::TestWithParam<Codec> {
protected:
    // Large enough that each decoder is given several threads by default.
    static std::string path() {
        std::vector<std::string> arguments = {"-f", "lavfi", "-i", "testsrc2=s=1280x720:r=25:d=0.6", "-c:v"};
        const Codec& codec = GetParam();
        arguments.insert(arguments.end(), codec.encoder.begin(), codec.encoder.end());
        return test::mediaFile(codec.file, arguments);
    }
};

TEST_P(ClipReaderThreads, DoNotChangeThePictures) {
    const std::vector<std::string> expected = test::frameHashes(path());
    ASSERT_EQ(expected.size(), 15U);
    EXPECT_EQ(test::readAll(path()).hashes, expected) << "by default";
    for (const char* type : {"slice", "frame"}) {
        for (const int threads : {1, 2, 4}) {
            ClipOptions options;
            options.threads = threads;
            options.options = {{"thread_type", type}};
            EXPECT_EQ(test::readAll(path(), options).hashes, expected) << threads << ' ' << type;
        }
    }
}

TEST_P(ClipReaderThreads, DoNotChangeAPassBetweenTwoPoints) {
    const std::vector<std::string> all = test::frameHashes(path());
    std::vector<std::string> expected(all.begin() + 5, all.begin() + 12);
    expected.insert(expected.end(), all.begin() + 5, all.begin() + 12);
    for (const int threads : {1, 2, 4}) {
        ClipOptions options;
        options.threads = threads;
        options.passes = 2;
        options.in = test::microseconds(200000);
        options.out = test::microseconds(480000);
        EXPECT_EQ(test::readAll(path(), options).hashes, expected) << threads;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Codecs, ClipReaderThreads,
    testing::Values(
        Codec{"H264",
              "threads_h264.mp4",
              {"libx264", "-preset", "ultrafast", "-bf", "2", "-g", "10", "-x264-params", "slices=4"}},
        Codec{"HEVC",
              "threads_hevc.mp4",
              {"libx265", "-preset", "ultrafast", "-x265-params", "log-level=none:slices=4:bframes=2"}},
        Codec{"VP9",
              "threads_vp9.webm",
              {"libvpx-vp9", "-deadline", "realtime", "-cpu-used", "8", "-tile-columns", "2", "-b:v", "2M"}},
        Codec{"MPEG2", "threads_mpeg2.ts", {"mpeg2video", "-bf", "2", "-b:v", "4M"}}),
    [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace vidorra
