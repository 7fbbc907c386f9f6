// The whole demonstration, compared with the ffmpeg program doing the same. A clip is decoded once to see
// its content. Then it is played in a loop at 30 frames a second and scaled to 720p and full range. Three
// opaque windows and a moving half-transparent plate are composed on it, a title that fades in and a clock
// are drawn, and one second is black. The result is written as H.264 and AAC into an MP4 file. Decoder and
// audio encoder have one thread each; blending, filters and the video encoder have as many as the case says.
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "support/measure.h"
#include "support/media.h"
#include "support/process.h"

namespace {

using namespace vidorra;
using bench::Comparison;
using bench::Stopwatch;
using Column = Comparison::Column;
using Command = std::vector<std::string>;

constexpr const char* kFont = "/usr/share/fonts/truetype/dejavu/DejaVuSans-Bold.ttf";
constexpr int kLoops = 3;

std::filesystem::path makeClip(bool shortRun) {
    return test::mediaFile(
        shortRun ? "demo_short.ts" : "demo.ts",
        {"-f",          "lavfi",
         "-i",          fmt::format("testsrc2=size={}:rate=25", shortRun ? "320x180" : "1920x1080"),
         "-f",          "lavfi",
         "-i",          "sine=frequency=440:sample_rate=48000",
         "-t",          shortRun ? "1" : "5",
         "-c:v",        "libx264",
         "-preset",     "veryfast",
         "-bf",         "2",
         "-pix_fmt",    "yuv420p",
         "-c:a",        "aac",
         "-f",          "mpegts",
         "-muxdelay",   "0",
         "-muxpreload", "0"});
}

std::filesystem::path encoders(int threads) {
    return test::temporaryFile(fmt::format("encoders{}.json", threads),
                               fmt::format(R"({{"video": [{{"codec": "libx264", "width": 1280, "height": 720,
                                     "timebase_num": 1, "timebase_den": 30, "pix_fmt": "nv12",
                                     "options": {{"preset": "veryfast", "crf": 22, "g": 60, "threads": {}}}}}],
                         "audio": {{"codec": "aac", "options": {{"ar": 48000, "ac": 2, "b": 128000}}}}}})",
                                           threads));
}

// A half-transparent plate with a bright frame.
std::string plate() {
    const std::string inside = "between(X,6,W-7)*between(Y,6,H-7)";
    const std::string middle = "between(X,W/4,W*3/4-1)*between(Y,H/3,H*2/3-1)";
    const auto shade = [&](int in, int at, int outside) {
        return fmt::format("'if({},{},if({},{},{}))'", middle, in, inside, at, outside);
    };
    return fmt::format(
        "color=s=320x180:r=30,trim=end_frame=1,format=rgba,geq=r={}:g={}:b={}:a={},scale=out_range=full,"
        "format=yuva420p",
        shade(255, 20, 255), shade(200, 60, 255), shade(40, 140, 255), shade(128, 128, 160));
}

// The demonstration's picture, also in full range, as FFmpeg filters.
std::string filters() {
    const std::string signal = "enable='not(between(t,2,2.99))'";
    std::string graph = "[0:v]fps=30,scale=1280:720:flags=fast_bilinear:out_range=full[v0]";
    int layer = 0;
    const auto overlay = [&](const std::string& source, const std::string& place) {
        graph += fmt::format(";{0}[o{1}];[v{1}][o{1}]overlay={2}:{3}[v{4}]", source, layer, place, signal,
                             layer + 1);
        ++layer;
    };
    const auto window = [](const char* color) {
        return fmt::format(
            "color=c=0xEBEBEB:s=212x120:r=30,trim=end_frame=1,"
            "drawbox=x=4:y=4:w=204:h=112:t=fill:c={},scale=out_range=full",
            color);
    };
    overlay(window("0xBE3C32"), "x=960:y=360");
    overlay(window("0x3C9650"), "x=1002:y=408");
    overlay(window("0x3C5ABE"), "x=1044:y=456");
    overlay(plate(), "x='(W-w)*(0.5+0.5*sin(t))':y='(H-h)*(0.5+0.5*cos(t*1.7))'");
    const std::string text = fmt::format("drawtext=fontfile={}:fontcolor=white:{}", kFont, signal);
    graph += fmt::format(
        ";[v{}]{}:text=libvidorra:fontsize=80:x=(w-tw)/2:y=36:alpha='min(1,t/1.5)',"
        "{}:timecode='00\\:00\\:00\\:00':r=30:fontsize=36:box=1:boxcolor=black:boxborderw=10:x=46:y=h-82,"
        "drawbox=t=fill:c=black:enable='between(t,2,2.99)'[out]",
        layer, text, text);
    return graph;
}

void append(Command& command, const Command& more) {
    command.insert(command.end(), more.begin(), more.end());
}

void runFfmpeg(const std::filesystem::path& clip, const std::filesystem::path& output,
               const std::string& seconds, int threads) {
    const Command quiet = {"ffmpeg", "-nostdin", "-y", "-loglevel", "error"};
    Command look = quiet;
    append(look, {"-threads", "1", "-i", clip.string(), "-map", "0:v", "-f", "null", "-"});
    test::run(look);
    Command record = quiet;
    const std::string count = std::to_string(threads);
    // Looped by the program, this clip loses its pictures after the first time.
    std::string list;
    for (int i = 0; i < kLoops; ++i) {
        list += fmt::format("file '{}'\n", clip.string());
    }
    append(record, {"-f", "concat", "-safe", "0", "-threads", "1", "-i",
                    test::temporaryFile("list.txt", list).string()});
    append(record,
           {"-filter_threads", count, "-filter_complex_threads", count, "-filter_complex", filters()});
    append(record, {"-map", "[out]", "-c:v", "libx264", "-preset", "veryfast", "-crf", "22", "-g", "60"});
    append(record, {"-threads:v", count, "-map", "0:a", "-c:a", "aac", "-b:a", "128k", "-ac", "2"});
    append(record, {"-threads:a", "1", "-t", seconds, output.string()});
    test::run(record);
}

void runDemo(const std::filesystem::path& clip, const std::filesystem::path& config,
             const std::filesystem::path& output, const std::string& seconds, int threads) {
    test::run({"env", fmt::format("VDR_ALPHABLEND_NUM_THREADS={}", threads), VIDORRA_DEMO, clip.string(),
               "--seconds", seconds, "-o", output.string(), "--config", config.string(), "--font", kFont});
}

int videoPackets(const std::filesystem::path& file) {
    return std::stoi(test::run({"ffprobe", "-v", "error", "-select_streams", "v", "-count_packets",
                                "-show_entries", "stream=nb_read_packets", "-of", "csv=p=0", file.string()}));
}

// The same work gives about as many pictures and bytes.
void check(const std::filesystem::path& ours, const std::filesystem::path& theirs) {
    const int pictures = videoPackets(ours);
    const int others = videoPackets(theirs);
    const double share = static_cast<double>(std::filesystem::file_size(ours)) /
                         static_cast<double>(std::filesystem::file_size(theirs));
    std::printf("recorded %d pictures, ffmpeg %d; %.3f of its bytes\n", pictures, others, share);
    if (pictures != others || share < 0.8 || share > 1.25) {
        throw std::runtime_error("the two recordings are not alike");
    }
}

void benchmark(const bench::Options& options, int threads, Comparison::Pinning pinning) {
    const std::string title = pinning == Comparison::Pinning::OneCpu
                                  ? "the demonstration, on one CPU"
                                  : fmt::format("the demonstration, {} threads", threads);
    if (!options.wants(title)) {
        return;
    }
    const std::filesystem::path clip = makeClip(options.shortRun);
    const std::filesystem::path config = encoders(threads);
    const std::string seconds = options.shortRun ? "0.5" : "15";
    const std::filesystem::path ours = test::temporaryFolder() / "ours.mp4";
    const std::filesystem::path theirs = test::temporaryFolder() / "theirs.mp4";
    Comparison comparison(title);
    comparison.add("demo", [&](Stopwatch& stopwatch) {
        stopwatch.start();
        runDemo(clip, config, ours, seconds, threads);
        stopwatch.stop();
    });
    comparison.add("ffmpeg", [&](Stopwatch& stopwatch) {
        stopwatch.start();
        runFfmpeg(clip, theirs, seconds, threads);
        stopwatch.stop();
    });
    comparison.run(options.repetitions, pinning);
    check(ours, theirs);
    comparison.printTable();
    for (const Column column : {Column::Cpu, Column::Wall}) {
        comparison.reportRatio("demo", "ffmpeg", bench::atMost(0.98), column);
    }
}

}  // namespace

int main(int argc, char** argv) try {
    const bench::Options options = bench::parseOptions(argc, argv, 5);
    benchmark(options, 1, Comparison::Pinning::OneCpu);
    if (!options.shortRun) {
        benchmark(options, 2, Comparison::Pinning::None);
    }
} catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
}
