#include "ffmpeg/timecode.h"

#include <algorithm>

extern "C" {
#include <libavutil/rational.h>
}

namespace vidorra::ffmpeg_ext {

std::uint32_t smpteTimecode(int rateNum, int rateDen, bool drop, unsigned hours, unsigned minutes,
                            unsigned seconds, unsigned frames) noexcept {
    const AVRational rate{rateNum, rateDen};
    std::uint32_t word = drop ? 1U << 30U : 0;
    if (av_cmp_q(rate, AVRational{30, 1}) == 1) {
        const unsigned fieldMark = av_cmp_q(rate, AVRational{50, 1}) == 0 ? 7 : 23;
        word |= frames % 2 << fieldMark;
        frames /= 2;
    }
    const auto digits = [&word](unsigned number, unsigned bit) {
        word |= number / 10 << (bit + 4) | number % 10 << bit;
    };
    // A value that does not fit its digits must not change the bits beside them.
    digits(frames % 40, 24);
    digits(std::min(seconds, 59U), 16);
    digits(std::min(minutes, 59U), 8);
    digits(hours % 24, 0);
    return word;
}

}  // namespace vidorra::ffmpeg_ext
