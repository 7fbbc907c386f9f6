#pragma once

struct AVPacket;

namespace vidorra::ffmpeg_ext {

/// Attaches a chapter to a packet as side data of the type AV_PKT_DATA_STRINGS_METADATA, with the keys
/// "chapter-first", "chapter-second" and "chapter-title"; other strings of the packet stay. The meaning of
/// the two numbers is the caller's. Returns 0, or a negative FFmpeg code, after which the packet is
/// unchanged. Some FFmpeg builds have this function, under the same name.
int av_side_data_set_chapter_metadata(AVPacket* packet, long first, unsigned long second, const char* title);

}  // namespace vidorra::ffmpeg_ext
