#include "demux/sounds.h"

#include <fmt/format.h>

#include <cstring>
#include <new>
#include <ostream>
#include <stdexcept>

#include "support/media.h"

namespace vidorra::test {
namespace {

std::vector<std::string> picture(double seconds) {
    return {"-f", "lavfi", "-i", fmt::format("testsrc2=s=64x48:r=25:d={}", seconds)};
}

}  // namespace

std::vector<std::string> signal(int rate, const std::string& layout, int channels, double seconds) {
    std::string expressions;
    for (int i = 0; i < channels; ++i) {
        expressions += fmt::format("{}{}*sin(2*PI*({}+{}*t)*t)+0.05*sin(2*PI*{}*t)", i == 0 ? "" : "|",
                                   0.6 - 0.05 * i, 300 + 110 * i, 400 - 60 * i, 1700 + 90 * i);
    }
    return {"-f", "lavfi", "-i",
            fmt::format("aevalsrc=exprs={}:s={}:c={}:d={}", expressions, rate, layout, seconds)};
}

std::vector<std::string> joined(std::vector<std::vector<std::string>> parts) {
    std::vector<std::string> all;
    for (std::vector<std::string>& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

const std::vector<Sound>& sounds() {
    static const std::vector<Sound> kSounds = {
        {.name = "AacInMp4",
         .file = "aac.mp4",
         .arguments = {"-c:a", "aac"},
         .decoder = "aac",
         .format = AV_SAMPLE_FMT_FLTP},
        {.name = "AacWithPictureInMp4",
         .file = "aac.mp4",
         .rate = 44100,
         .arguments = joined({picture(0.6), {"-map", "1:v", "-map", "0:a", "-c:v", "mpeg4", "-c:a", "aac"}}),
         .decoder = "aac",
         .format = AV_SAMPLE_FMT_FLTP,
         .stream = 1},
        {.name = "AacInMatroska",
         .file = "aac.mkv",
         .rate = 44100,
         .arguments = {"-c:a", "aac"},
         .decoder = "aac",
         .format = AV_SAMPLE_FMT_FLTP},
        {.name = "SurroundAacInTransportStream",
         .file = "aac.ts",
         .layout = "5.1",
         .channels = 6,
         .arguments = {"-c:a", "aac"},
         .decoder = "aac",
         .format = AV_SAMPLE_FMT_FLTP,
         .decodedLayout = "5.1"},
        {.name = "AacInAdts",
         .file = "aac.aac",
         .rate = 22050,
         .layout = "mono",
         .channels = 1,
         .arguments = {"-c:a", "aac"},
         .decoder = "aac",
         .format = AV_SAMPLE_FMT_FLTP,
         .decodedLayout = "mono"},
        {.name = "Mp3InMp3",
         .file = "mp3.mp3",
         .rate = 44100,
         .arguments = {"-c:a", "libmp3lame"},
         .decoder = "mp3float",
         .format = AV_SAMPLE_FMT_FLTP},
        {.name = "Mp3InAvi",
         .file = "mp3.avi",
         .rate = 24000,
         .layout = "mono",
         .channels = 1,
         .arguments =
             joined({picture(0.6), {"-map", "1:v", "-map", "0:a", "-c:v", "mpeg4", "-c:a", "libmp3lame"}}),
         .decoder = "mp3float",
         .format = AV_SAMPLE_FMT_FLTP,
         .decodedLayout = "mono",
         .stream = 1},
        {.name = "OpusInOgg",
         .file = "opus.ogg",
         .layout = "mono",
         .channels = 1,
         .arguments = {"-c:a", "libopus"},
         .decoder = "opus",
         .format = AV_SAMPLE_FMT_FLTP,
         .decodedLayout = "mono"},
        {.name = "OpusInWebm",
         .file = "opus.webm",
         .arguments = {"-c:a", "libopus"},
         .decoder = "opus",
         .format = AV_SAMPLE_FMT_FLTP},
        {.name = "VorbisInOgg",
         .file = "vorbis.ogg",
         .rate = 44100,
         .arguments = {"-c:a", "libvorbis"},
         .decoder = "vorbis",
         .format = AV_SAMPLE_FMT_FLTP},
        {.name = "FlacInFlac",
         .file = "flac.flac",
         .rate = 96000,
         .arguments = {"-c:a", "flac", "-sample_fmt", "s16"},
         .decoder = "flac",
         .format = AV_SAMPLE_FMT_S16},
        {.name = "SurroundFlacInMatroska",
         .file = "flac.mkv",
         .layout = "5.1",
         .channels = 6,
         .arguments = {"-c:a", "flac", "-sample_fmt", "s32"},
         .decoder = "flac",
         .format = AV_SAMPLE_FMT_S32,
         .decodedLayout = "5.1"},
        {.name = "SixteenBitsInWav",
         .file = "s16.wav",
         .rate = 8000,
         .layout = "mono",
         .channels = 1,
         .arguments = {"-c:a", "pcm_s16le"},
         .decoder = "pcm_s16le",
         .format = AV_SAMPLE_FMT_S16,
         .decodedLayout = "mono"},
        {.name = "TwentyFourBitsInWav",
         .file = "s24.wav",
         .arguments = {"-c:a", "pcm_s24le"},
         .decoder = "pcm_s24le",
         .format = AV_SAMPLE_FMT_S32},
        {.name = "SurroundFloatInWav",
         .file = "f32.wav",
         .rate = 96000,
         .layout = "5.1",
         .channels = 6,
         .arguments = {"-c:a", "pcm_f32le"},
         .decoder = "pcm_f32le",
         .format = AV_SAMPLE_FMT_FLT,
         .decodedLayout = "5.1"},
        {.name = "DoubleInWav",
         .file = "f64.wav",
         .rate = 16000,
         .arguments = {"-c:a", "pcm_f64le"},
         .decoder = "pcm_f64le",
         .format = AV_SAMPLE_FMT_DBL},
        {.name = "EightBitsInWav",
         .file = "u8.wav",
         .rate = 11025,
         .arguments = {"-c:a", "pcm_u8"},
         .decoder = "pcm_u8",
         .format = AV_SAMPLE_FMT_U8},
        {.name = "MuLawInAu",
         .file = "mulaw.au",
         .rate = 8000,
         .layout = "mono",
         .channels = 1,
         .arguments = {"-c:a", "pcm_mulaw"},
         .decoder = "pcm_mulaw",
         .format = AV_SAMPLE_FMT_S16,
         .decodedLayout = "mono"},
        {.name = "SurroundAc3InAc3",
         .file = "ac3.ac3",
         .layout = "5.1",
         .channels = 6,
         .arguments = {"-c:a", "ac3"},
         .decoder = "ac3",
         .format = AV_SAMPLE_FMT_FLTP,
         .decodedLayout = "5.1(side)"},
        {.name = "Ac3InTransportStream",
         .file = "ac3.ts",
         .arguments = {"-c:a", "ac3"},
         .decoder = "ac3",
         .format = AV_SAMPLE_FMT_FLTP},
        {.name = "Eac3InMatroska",
         .file = "eac3.mkv",
         .arguments = {"-c:a", "eac3"},
         .decoder = "eac3",
         .format = AV_SAMPLE_FMT_FLTP},
        {.name = "AlacInM4a",
         .file = "alac.m4a",
         .rate = 44100,
         .arguments = {"-c:a", "alac", "-sample_fmt", "s16p"},
         .decoder = "alac",
         .format = AV_SAMPLE_FMT_S16P},
        {.name = "Mp2InTransportStream",
         .file = "mp2.ts",
         .rate = 32000,
         .layout = "mono",
         .channels = 1,
         .arguments = {"-c:a", "mp2"},
         // The container's decoder; the packets are identified later.
         .decoder = "mp3float",
         .format = AV_SAMPLE_FMT_FLTP,
         .decodedLayout = "mono"},
        {.name = "Mp2InProgramStream",
         .file = "mp2.mpg",
         .rate = 48000,
         .arguments = {"-c:a", "mp2", "-f", "vob"},
         .decoder = "mp2",
         .format = AV_SAMPLE_FMT_S16P},
        {.name = "WmaInAsf",
         .file = "wma.wma",
         .rate = 44100,
         .arguments = {"-c:a", "wmav2"},
         .decoder = "wmav2",
         .format = AV_SAMPLE_FMT_FLTP},
        {.name = "WavpackInWavpack",
         .file = "wavpack.wv",
         .rate = 44100,
         .arguments = {"-c:a", "wavpack", "-sample_fmt", "s32p"},
         .decoder = "wavpack",
         .format = AV_SAMPLE_FMT_S32P},
        {.name = "AdpcmInMatroska",
         .file = "adpcm.mkv",
         .rate = 22050,
         .layout = "mono",
         .channels = 1,
         .arguments = {"-c:a", "adpcm_ms"},
         .decoder = "adpcm_ms",
         .format = AV_SAMPLE_FMT_S16,
         .decodedLayout = "mono"},
        {.name = "AdpcmInWav",
         .file = "adpcm.wav",
         .rate = 44100,
         .arguments = {"-c:a", "adpcm_ms"},
         .decoder = "adpcm_ms",
         .format = AV_SAMPLE_FMT_S16,
         .framing = Framing::SeveralInAPacket},
    };
    return kSounds;
}

const Sound& sound(const std::string& name) {
    for (const Sound& sound : sounds()) {
        if (sound.name == name) {
            return sound;
        }
    }
    throw std::out_of_range("no sound " + name);
}

void PrintTo(const Sound& sound, std::ostream* stream) {
    *stream << sound.name;
}

std::filesystem::path fileOf(const Sound& sound) {
    return mediaFile(sound.file,
                     joined({signal(sound.rate, sound.layout, sound.channels, 0.6), sound.arguments}));
}

std::filesystem::path fileOf(const std::string& soundName) {
    return fileOf(sound(soundName));
}

FormatContext opened(const std::filesystem::path& path) {
    FormatContext source;
    source.setUrl(path.string());
    source.open("", true, std::chrono::seconds(5));
    return source;
}

std::vector<Packet> packetsOf(FormatContext& source, int stream) {
    std::vector<Packet> packets;
    for (;;) {
        Packet packet = source.readPacket();
        if (source.isEOF()) {
            return packets;
        }
        if (packet.stream_index == stream) {
            packets.push_back(std::move(packet));
        }
    }
}

Packet makePacket(int size, int stream) {
    Packet packet;
    if (av_new_packet(&packet, size) != 0) {
        throw std::bad_alloc();
    }
    std::memset(packet.data, 0, static_cast<std::size_t>(size));
    packet.stream_index = stream;
    return packet;
}

}  // namespace vidorra::test
