#pragma once

#include <iosfwd>
#include <string>

#include "vidorra/core/export.h"
#include "vidorra/core/ffmpeg_fwd.h"

/// The text forms of four FFmpeg enumerations, by FFmpeg's own names: "yuv420p", "tv", "fltp", "h264". The
/// operators are in the global namespace because the enumerations are.
///
///     std::cout << picture.pixelFormat() << ", " << picture.colorRange() << '\n';
///
/// Output writes the name. For a value without a name it writes the enumeration and the number:
/// "AVPixelFormat(9999)".
///
/// Input reads one word and throws vidorra::BadCast if it is not a name, for example if the stream is
/// exhausted and the word therefore empty. The target is then -1 for a pixel or sample format, and unchanged
/// for a colour range or codec. FFmpeg decides which words are names; it also accepts a pixel format without
/// its byte order. A colour range must match as a whole word with every FFmpeg version. "nva12" is always a
/// pixel format here, whatever the FFmpeg in use knows, and the format that has its number in other builds
/// has no name.

VIDORRA_API std::ostream& operator<<(std::ostream& stream, AVPixelFormat format);
VIDORRA_API std::ostream& operator<<(std::ostream& stream, AVColorRange range);
VIDORRA_API std::ostream& operator<<(std::ostream& stream, AVSampleFormat format);
VIDORRA_API std::ostream& operator<<(std::ostream& stream, AVCodecID id);

VIDORRA_API std::istream& operator>>(std::istream& stream, AVPixelFormat& format);
VIDORRA_API std::istream& operator>>(std::istream& stream, AVColorRange& range);
VIDORRA_API std::istream& operator>>(std::istream& stream, AVSampleFormat& format);
VIDORRA_API std::istream& operator>>(std::istream& stream, AVCodecID& id);

namespace vidorra {

/// NV12 with an alpha plane of full resolution in plane 3 (plane 2 is absent). It is a pixel format of this
/// library: FFmpeg builds that lack it use its number for another format, so pass pictures in this format to
/// this library only.
inline constexpr auto NVA12 = static_cast<AVPixelFormat>(193);

/// The text that stream output writes.
[[nodiscard]] VIDORRA_API std::string to_string(AVPixelFormat format);
[[nodiscard]] VIDORRA_API std::string to_string(AVColorRange range);
[[nodiscard]] VIDORRA_API std::string to_string(AVCodecID id);

}  // namespace vidorra
