#pragma once

struct AVPacket;

namespace vidorra::ffmpeg_ext {

/// Attaches a chapter to a packet as side data of the type AV_PKT_DATA_STRINGS_METADATA, with the keys
/// "chapter-first", "chapter-second" and "chapter-title"; other strings that the packet carries stay. The
/// meaning of the two numbers is the caller's. Gives 0, or a negative FFmpeg code with the packet as it was.
/// An addition that some builds of FFmpeg have, under its name there.
int av_side_data_set_chapter_metadata(AVPacket* packet, long first, unsigned long second, const char* title);

}  // namespace vidorra::ffmpeg_ext
