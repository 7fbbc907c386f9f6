#pragma once

struct AVDictionary;
struct AVPacket;

/// Packets and the strings in their side data.
namespace vidorra::ffmpeg_ext {

/// Makes an uninitialised packet, or one whose references have been released, an empty packet.
void resetPacket(AVPacket& packet);

/// Copies the strings of the side data AV_PKT_DATA_STRINGS_METADATA into `strings`, which the caller frees,
/// even after a failure. Returns a negative FFmpeg code when they cannot be read.
int packetStrings(const AVPacket& packet, AVDictionary** strings);

/// Replaces that side data with `strings`, at least one. Returns 0 or a negative FFmpeg code.
int setPacketStrings(AVPacket& packet, const AVDictionary* strings);

}  // namespace vidorra::ffmpeg_ext
