#include "ffmpeg/display_matrix.h"

#include <cmath>
#include <cstddef>
#include <cstdint>

#include "ffmpeg/versions.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/display.h>
}

namespace vidorra::ffmpeg_ext {
namespace {

// Nine numbers; null when there are none.
const std::int32_t* displayMatrix(const AVStream& stream) {
    constexpr std::size_t kSize = 9 * sizeof(std::int32_t);
#if HAVE_CODED_SIDE_DATA
    const AVCodecParameters& parameters = *stream.codecpar;
    const AVPacketSideData* const list = parameters.coded_side_data;
    const int count = parameters.nb_coded_side_data;
#else
    const AVPacketSideData* const list = stream.side_data;
    const int count = stream.nb_side_data;
#endif
    for (int i = 0; i < count; ++i) {
        if (list[i].type == AV_PKT_DATA_DISPLAYMATRIX && static_cast<std::size_t>(list[i].size) >= kSize) {
            return reinterpret_cast<const std::int32_t*>(list[i].data);
        }
    }
    return nullptr;
}

}  // namespace

int rotation(const AVStream& stream) {
    const std::int32_t* matrix = displayMatrix(stream);
    const double counterclockwise = matrix != nullptr ? av_display_rotation_get(matrix) : 0.0;
    if (std::isnan(counterclockwise)) {
        return 0;
    }
    const int degrees = static_cast<int>(std::lround(-counterclockwise)) % 360;
    return degrees < 0 ? degrees + 360 : degrees;
}

}  // namespace vidorra::ffmpeg_ext
