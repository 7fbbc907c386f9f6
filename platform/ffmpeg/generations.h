#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

extern "C" {
#include <libavutil/pixfmt.h>
#include <libavutil/samplefmt.h>
}

struct AVCodec;
struct AVCodecContext;
struct AVCodecParameters;
struct AVDictionary;
struct AVFrame;
struct AVPacket;

/// What FFmpeg's generations (libavcodec 58 to 63) do under different names. Its source is the only file of
/// the project that asks for a version of FFmpeg.
namespace vidorra::ffmpeg_ext {

/// The channel mask of an audio stream, codec or frame, 0 when it has none.
std::uint64_t channelMask(const AVCodecParameters& parameters);
std::uint64_t channelMask(const AVCodecContext& context);
std::uint64_t channelMask(const AVFrame& frame);

/// The number of channels of an audio stream, codec or frame, which can be known without a mask.
int channelCount(const AVCodecParameters& parameters);
int channelCount(const AVCodecContext& context);
int channelCount(const AVFrame& frame);

/// Sets the mask and with it the number of channels. A mask of 0 leaves both alone.
void setChannelMask(AVCodecParameters& parameters, std::uint64_t mask);
void setChannelMask(AVCodecContext& context, std::uint64_t mask);
void setChannelMask(AVFrame& frame, std::uint64_t mask);

/// Sets an option of a codec context, or of its codec, by name; gives 0 or what av_opt_set gives. The options
/// for channels are known on every generation:
///
/// - "ac", a number of channels. It keeps a mask that has as many and drops another one. A negative number is
///   AVERROR(ERANGE).
/// - "channel_layout", a mask as a number or by name, which gives the number of channels too. It is passed
///   over when "ac" has set another number, and 0 unsets it.
/// - "ch_layout", by name, or a number of channels such as "6 channels".
int setCodecOption(AVCodecContext& context, const char* name, const char* value);

/// The first of the sample formats that an encoder lists, AV_SAMPLE_FMT_NONE when it lists none.
AVSampleFormat firstSampleFormat(const AVCodec& codec);

/// The pixel formats that an encoder takes, the best first; nothing where it has no list. The format to which
/// a build of FFmpeg gave the number of NVA12 is not among them.
std::optional<std::vector<AVPixelFormat>> encoderPixelFormats(const AVCodec& encoder);

/// Whether two audio streams have the same channels in the same order.
bool sameChannels(const AVCodecParameters& a, const AVCodecParameters& b);

/// FFmpeg's text for a mask, such as "stereo"; "0 channels" for 0.
std::string describeChannelMask(std::uint64_t mask);

/// The duration of the packet that a frame came from, in the packet's unit; 0 when it is not known.
std::int64_t frameDuration(const AVFrame& frame);
void setFrameDuration(AVFrame& frame, std::int64_t duration);

/// The usual mask for a number of channels, the same on every generation; 0 where there is none.
std::uint64_t defaultChannelMask(int channels);

/// The mask for FFmpeg's name of a channel or a layout, 0 for an unknown one.
std::uint64_t channelMaskFromName(const std::string& name);

/// Brings an uninitialised packet, or one whose references have gone, into the empty state.
void resetPacket(AVPacket& packet);

/// Copies the strings of the side data AV_PKT_DATA_STRINGS_METADATA into `strings`, which the caller frees,
/// also after a failure. Gives a negative FFmpeg code when they cannot be read.
int packetStrings(const AVPacket& packet, AVDictionary** strings);

/// Puts `strings`, at least one, in the place of that side data. Gives 0 or a negative FFmpeg code.
int setPacketStrings(AVPacket& packet, const AVDictionary* strings);

}  // namespace vidorra::ffmpeg_ext
