#include "demux/clips.h"

#include <ostream>
#include <stdexcept>

#include "support/media.h"

namespace vidorra::test {
namespace {

using Arguments = std::vector<std::string>;

Arguments picture() {
    return movingPicture("160x120", 1.2);
}

Arguments pictureAndSound(const std::string& soundCodec) {
    return joined({picture(), {"-f", "lavfi", "-i", "sine=d=1.2", "-c:a", soundCodec, "-strict", "-2"}});
}

// Groups of 12 pictures with two B-frames in a row.
Arguments h264() {
    return {"-c:v", "libx264", "-preset", "veryfast", "-pix_fmt", "yuv420p",     "-g",
            "12",   "-bf",     "2",       "-threads", "1",        "-b_strategy", "0"};
}

Arguments hevc() {
    return {"-c:v", "libx265", "-preset", "ultrafast", "-x265-params", "bframes=2:keyint=12:log-level=none"};
}

// As many slices as a picture has rows of macroblocks: more than 40 start codes a packet.
Arguments manySlices() {
    return joined({movingPicture("96x640", 1.2), h264(), {"-x264-params", "slices=40"}});
}

std::vector<Clip> makeClips() {
    return {
        // Without Annex B start codes a packet holds nothing that the scan could find.
        {.name = "H264InMp4",
         .file = "h264.mp4",
         .arguments = joined({pictureAndSound("aac"), h264()}),
         .codec = "h264",
         .keys = Keys::None},
        {.name = "H264InMatroska",
         .file = "h264.mkv",
         .arguments = joined({picture(), h264()}),
         .codec = "h264",
         .keys = Keys::None},
        {.name = "H264InTransportStream",
         .file = "h264.ts",
         .arguments = joined({pictureAndSound("mp2"), h264()}),
         .codec = "h264",
         .keys = Keys::Some},
        {.name = "H264InFlash",
         .file = "h264.flv",
         .arguments = joined({pictureAndSound("libmp3lame"), {"-ar", "44100"}, h264()}),
         .codec = "h264",
         .keys = Keys::None},
        {.name = "H264Interlaced",
         .file = "interlaced.ts",
         .arguments = joined({picture(), h264(), {"-flags", "+ildct+ilme"}}),
         .codec = "h264",
         .keys = Keys::Some},
        {.name = "H264InFortySlicesInTransportStream",
         .file = "slices.ts",
         .arguments = manySlices(),
         .codec = "h264",
         .keys = Keys::Some},
        {.name = "H264InFortySlicesInAnnexB",
         .file = "slices.h264",
         .arguments = manySlices(),
         .codec = "h264",
         .keys = Keys::Some,
         .allTimesKnown = false},
        {.name = "Mpeg2InTransportStream",
         .file = "mpeg2.ts",
         .arguments = joined({pictureAndSound("mp2"), {"-c:v", "mpeg2video", "-bf", "2", "-g", "12"}}),
         .codec = "mpeg2video"},
        {.name = "Mpeg2InProgramStream",
         .file = "mpeg2.mpg",
         .arguments =
             joined({pictureAndSound("mp2"), {"-c:v", "mpeg2video", "-bf", "2", "-g", "12", "-f", "vob"}}),
         .codec = "mpeg2video",
         .allTimesKnown = false},
        {.name = "Mpeg4InAvi",
         .file = "mpeg4.avi",
         .arguments = joined({pictureAndSound("libmp3lame"), {"-c:v", "mpeg4", "-bf", "2", "-g", "12"}}),
         .codec = "mpeg4",
         .allTimesKnown = false},
        {.name = "Mpeg4InMp4",
         .file = "mpeg4.mp4",
         .arguments = joined({picture(), {"-c:v", "mpeg4", "-bf", "2", "-g", "12"}}),
         .codec = "mpeg4"},
        {.name = "Vp9InWebm",
         .file = "vp9.webm",
         .arguments = joined(
             {pictureAndSound("libopus"),
              {"-c:v", "libvpx-vp9", "-deadline", "realtime", "-cpu-used", "8", "-pix_fmt", "yuv420p"}}),
         .codec = "vp9"},
        {.name = "Vp8InWebm",
         .file = "vp8.webm",
         .arguments = joined(
             {pictureAndSound("libvorbis"), {"-c:v", "libvpx", "-deadline", "realtime", "-cpu-used", "8"}}),
         .codec = "vp8"},
        // FFmpeg decodes this one to yuvj420p.
        {.name = "MotionJpegInAvi",
         .file = "mjpeg.avi",
         .arguments = joined(
             {pictureAndSound("pcm_s16le"), {"-c:v", "mjpeg", "-pix_fmt", "yuvj420p", "-threads", "1"}}),
         .codec = "mjpeg"},
        {.name = "MotionJpeg444InMov",
         .file = "mjpeg444.mov",
         .arguments = joined({picture(), {"-c:v", "mjpeg", "-pix_fmt", "yuvj444p", "-threads", "1"}}),
         .codec = "mjpeg",
         .pixelFormat = "yuv444p"},
        {.name = "Ffv1WithTenBitsInMatroska",
         .file = "ffv1.mkv",
         .arguments =
             joined({pictureAndSound("flac"), {"-c:v", "ffv1", "-pix_fmt", "yuv420p10le", "-threads", "1"}}),
         .codec = "ffv1",
         .pixelFormat = "yuv420p10le"},
        {.name = "HevcInMp4", .file = "hevc.mp4", .arguments = joined({picture(), hevc()}), .codec = "hevc"},
        {.name = "HevcInMatroska",
         .file = "hevc.mkv",
         .arguments = joined({picture(), hevc()}),
         .codec = "hevc"},
        {.name = "PngSequence",
         .file = "%03d.png",
         .arguments = joined({picture(), {"-c:v", "png", "-threads", "1"}}),
         .codec = "png",
         .pixelFormat = "rgb24"},
        {.name = "PaletteInMatroska",
         .file = "palette.mkv",
         .arguments = joined({movingPicture("64x48", 0.4), {"-vf", "format=pal8", "-c:v", "png"}}),
         .codec = "png",
         .pixelFormat = "pal8"},
        // Odd sizes: chroma planes are rounded up.
        {.name = "RawVideoInNut",
         .file = "raw.nut",
         .arguments = joined({movingPicture("33x17", 0.4), {"-c:v", "rawvideo", "-pix_fmt", "yuv420p"}}),
         .codec = "rawvideo"},
        {.name = "CoverInMp3",
         .file = "cover.mp3",
         .arguments = {"-f", "lavfi", "-i", "sine=d=0.5", "-f", "lavfi", "-i", "testsrc2=s=32x32:d=0.04",
                       "-map", "0", "-map", "1", "-c:a", "libmp3lame", "-c:v", "png", "-disposition:v",
                       "attached_pic"},
         .codec = "png",
         .pixelFormat = "rgb24",
         .allTimesKnown = false},
        {.name = "CoverInMp4",
         .file = "cover.m4a",
         .arguments = {"-f",
                       "lavfi",
                       "-i",
                       "sine=d=0.5",
                       "-f",
                       "lavfi",
                       "-i",
                       "testsrc2=s=32x32:d=0.04",
                       "-map",
                       "0",
                       "-map",
                       "1",
                       "-c:a",
                       "aac",
                       "-c:v",
                       "mjpeg",
                       "-pix_fmt",
                       "yuvj420p",
                       "-frames:v",
                       "1",
                       "-disposition:v",
                       "attached_pic"},
         .codec = "mjpeg",
         .allTimesKnown = false},
    };
}

}  // namespace

const std::vector<Clip>& clips() {
    static const std::vector<Clip> all = makeClips();
    return all;
}

const Clip& clip(const std::string& name) {
    for (const Clip& candidate : clips()) {
        if (candidate.name == name) {
            return candidate;
        }
    }
    throw std::invalid_argument("no clip " + name);
}

std::filesystem::path fileOf(const Clip& clip) {
    return mediaFile(clip.file, clip.arguments);
}

std::filesystem::path fileOf(const std::string& clipName) {
    return fileOf(clip(clipName));
}

std::vector<std::string> movingPicture(const std::string& size, double seconds) {
    return {"-f", "lavfi", "-i", "testsrc2=r=25:s=" + size + ":d=" + std::to_string(seconds)};
}

std::vector<std::string> joined(std::vector<std::vector<std::string>> parts) {
    std::vector<std::string> result;
    for (std::vector<std::string>& part : parts) {
        result.insert(result.end(), part.begin(), part.end());
    }
    return result;
}

void PrintTo(const Clip& clip, std::ostream* stream) {
    *stream << clip.name;
}

}  // namespace vidorra::test
