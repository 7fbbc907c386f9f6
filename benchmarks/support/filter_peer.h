#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

extern "C" {
#include <libavutil/pixfmt.h>
}

struct AVFilterContext;
struct AVFilterGraph;
struct AVFrame;

namespace vidorra::bench {

/// A graph of FFmpeg's filters that takes pictures where they lie, in this process and on the calling thread.
///
///     FilterPeer overlay("[in0][in1]overlay", {{AV_PIX_FMT_YUV420P, 1920, 1080}, {AV_PIX_FMT_YUVA420P, 640,
///     360}}); overlay.run({screen, logo});
///
/// The pictures are not copied on their way in, and a filter may write into the first one where it stands, as
/// overlay does: what is measured is the filter, with the frames that a program has to make for it.
class FilterPeer {
public:
    struct Input {
        AVPixelFormat format;
        int width;
        int height;
    };
    struct Planes {
        std::array<unsigned char*, 4> data;
        std::array<int, 4> linesize;
    };

    /// `filters` is a description as for the ffmpeg program, whose inputs are [in0], [in1] and so on. Throws
    /// std::runtime_error when FFmpeg refuses it.
    FilterPeer(const std::string& filters, std::vector<Input> inputs);
    FilterPeer(const FilterPeer&) = delete;
    FilterPeer& operator=(const FilterPeer&) = delete;
    ~FilterPeer();

    /// Pushes one picture into each input and takes the one that comes out, which `look` may see. Throws
    /// std::runtime_error when none comes.
    void run(const std::vector<Planes>& pictures, const std::function<void(const AVFrame&)>& look = {});

private:
    std::vector<Input> mInputs;
    AVFilterGraph* mGraph;
    std::vector<AVFilterContext*> mSources;
    AVFilterContext* mSink = nullptr;
    AVFrame* mFrame;
    std::int64_t mTime = 0;
};

}  // namespace vidorra::bench
