#pragma once

struct AVDictionary;
struct AVPacket;

/// Packets and the strings in their side data.
namespace vidorra::ffmpeg_ext {

/// Brings an uninitialised packet, or one whose references have gone, into the empty state.
void resetPacket(AVPacket& packet);

/// Copies the strings of the side data AV_PKT_DATA_STRINGS_METADATA into `strings`, which the caller frees,
/// also after a failure. Gives a negative FFmpeg code when they cannot be read.
int packetStrings(const AVPacket& packet, AVDictionary** strings);

/// Puts `strings`, at least one, in the place of that side data. Gives 0 or a negative FFmpeg code.
int setPacketStrings(AVPacket& packet, const AVDictionary* strings);

}  // namespace vidorra::ffmpeg_ext
