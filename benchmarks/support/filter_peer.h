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

/// A graph of FFmpeg's filters that uses pictures in place, in this process and on the calling thread.
///
///     FilterPeer overlay("[in0][in1]overlay", {{AV_PIX_FMT_YUV420P, 1920, 1080}, {AV_PIX_FMT_YUVA420P, 640,
///     360}}); overlay.run({screen, logo});
///
/// Input pictures are not copied, and a filter may write into the first one in place, as overlay does. This
/// measures the filter, with the frames that a program has to make for it.
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

    /// Pushes one picture into each input, takes the output picture and passes it to `look`. Throws
    /// std::runtime_error when none comes out.
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
