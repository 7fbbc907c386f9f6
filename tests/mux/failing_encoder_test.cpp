#include <dlfcn.h>
#include <gmock/gmock.h>

#include "mux/recordings.h"
#include "support/ffprobe.h"
#include "support/throw_text.h"
#include "vidorra/core/ffmpeg_error.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace {
// The frame at which the encoder fails; never when 0.
int gFailAt = 0;
}  // namespace

extern "C" __attribute__((visibility("default"))) int avcodec_send_frame(AVCodecContext* context,
                                                                         const AVFrame* frame) {
    using Function = int (*)(AVCodecContext*, const AVFrame*);
    static const auto kNext = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "avcodec_send_frame"));
    if (gFailAt > 0 && --gFailAt == 0) {
        return AVERROR(EIO);
    }
    return kNext(context, frame);
}

namespace vidorra::test {
namespace {

TEST(FailingEncoder, IsAnErrorAtTheCallThatTellsWhereTheRestIs) {
    const auto path = freshPath("failing.mp4");
    const std::string part = path.string() + ".part";
    MediaFileWriter writer(path);
    const auto video = writer.addVideo(videoConfig());
    for (int i = 0; i < 5; ++i) {
        writer.write(video, numberedPicture(i));
    }
    gFailAt = 1;
    EXPECT_THROW_TEXT(FFmpegError,
                      "track 0 (mpeg4) cannot be encoded, which leaves " + part +
                          " incomplete: FFmpeg AV_ERROR: #-5: Input/output error",
                      writer.write(video, numberedPicture(5)));
    EXPECT_THROW_TEXT(std::logic_error, path.string() + ": the writer has failed",
                      writer.write(video, numberedPicture(6)));
    EXPECT_FALSE(std::filesystem::exists(path));
    // What had been encoded, but for the picture whose duration nobody knows.
    EXPECT_EQ(probe(part).packets.size(), 4U);
}

}  // namespace
}  // namespace vidorra::test
