#pragma once

#include <iosfwd>
#include <string>

#include "vidorra/core/export.h"
#include "vidorra/core/ffmpeg_fwd.h"

/// The text forms of four enumerations of FFmpeg, by its own names: "yuv420p", "tv", "fltp", "h264". The
/// operators stand in the global namespace because the enumerations do.
///
///     std::cout << picture.pixelFormat() << ", " << picture.colorRange() << '\n';
///
/// Output writes the name, or where a value has none the enumeration's name with the number:
/// "AVPixelFormat(9999)".
///
/// Input reads one word and throws vidorra::BadCast when it names nothing, also when the stream is exhausted
/// and the word thus empty. The target of an unknown pixel or sample format is then -1, that of an unknown
/// colour range or codec is unchanged. Which words are names is up to FFmpeg, which also takes a pixel format
/// without its byte order; a colour range is compared as a whole word with any version of it. "nva12" is a
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

/// NV12 with an alpha plane of full resolution in plane 3 (plane 2 is absent). A pixel format of this
/// library: its number means another format to FFmpeg builds that lack it, so hand pictures of this format to
/// the library only.
inline constexpr auto NVA12 = static_cast<AVPixelFormat>(193);

/// The text that stream output writes.
[[nodiscard]] VIDORRA_API std::string to_string(AVPixelFormat format);
[[nodiscard]] VIDORRA_API std::string to_string(AVColorRange range);
[[nodiscard]] VIDORRA_API std::string to_string(AVCodecID id);

}  // namespace vidorra
