#pragma once

#include <cstdint>

namespace vidorra::ffmpeg_ext {

/// av_timecode_get_smpte, which some FFmpeg versions lack: packs a timecode into the word of SMPTE ST 12-1
/// for a frame rate of rateNum/rateDen. Frame numbers of rates above 30 are halved, and their lowest bit
/// becomes the field mark.
std::uint32_t smpteTimecode(int rateNum, int rateDen, bool drop, unsigned hours, unsigned minutes,
                            unsigned seconds, unsigned frames) noexcept;

}  // namespace vidorra::ffmpeg_ext
