#pragma once

#include <cstdint>

struct AVCodecParameters;
struct AVDictionary;
struct AVPacket;

/// What FFmpeg's generations (libavcodec 58 to 63) do under different names. Its source is the only file of
/// the project that asks for a version of FFmpeg.
namespace vidorra::ffmpeg_ext {

/// The channel mask of an audio stream, 0 when it has none.
std::uint64_t channelMask(const AVCodecParameters& parameters);

/// The number of channels of an audio stream, which can be known without a mask.
int channelCount(const AVCodecParameters& parameters);

/// Sets the mask and with it the number of channels. A mask of 0 leaves the parameters alone.
void setChannelMask(AVCodecParameters& parameters, std::uint64_t mask);

/// The usual mask for a number of channels, the same on every generation; 0 where there is none.
std::uint64_t defaultChannelMask(int channels);

/// Brings an uninitialised packet, or one whose references have gone, into the empty state.
void resetPacket(AVPacket& packet);

/// Copies the strings of the side data AV_PKT_DATA_STRINGS_METADATA into `strings`, which the caller frees,
/// also after a failure. Gives a negative FFmpeg code when they cannot be read.
int packetStrings(const AVPacket& packet, AVDictionary** strings);

/// Puts `strings` in the place of that side data. Gives 0 or a negative FFmpeg code.
int setPacketStrings(AVPacket& packet, const AVDictionary* strings);

}  // namespace vidorra::ffmpeg_ext
