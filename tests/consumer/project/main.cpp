// A caller of the installed library: C++17, one header, a bit of everything.
#include <vidorra/vidorra.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <vector>

namespace {

int gFailures = 0;

template <class A, class B>
void expectEqual(const char* what, const A& actual, const B& expected) {
    if (!(actual == expected)) {
        std::cerr << what << " is \"" << actual << "\", expected \"" << expected << "\"\n";
        ++gFailures;
    }
}

template <class T>
std::string text(const T& value) {
    std::ostringstream stream;
    stream << value;
    return stream.str();
}

void useValues() {
    const vidorra::Timestamp second(vidorra::Timebase{1, 25}, 25);
    expectEqual("a second in microseconds", second.rescale(vidorra::Timebase()).value, 1000000);
    expectEqual("a format as text", text(vidorra::NVA12), "nva12");
    expectEqual("a codec through fmt", fmt::format("{:>6}", AV_CODEC_ID_H264), "  h264");
    expectEqual("an overlap", text(vidorra::Rect{0, 0, 4, 4}.intersected({2, 2, 4, 4})),
                "x:2, y:2, w:2, h:2");
    vidorra::Metadata metadata;
    metadata.addValue("source", "camera");
    expectEqual("metadata", metadata["source"], "camera");
}

void usePictures() {
    vidorra::Picture picture(vidorra::Size{64, 32}, AV_PIX_FMT_YUV420P, AVCOL_RANGE_MPEG, 32);
    expectEqual("a new picture", text(picture), "64x32, yuv420p (tv,editable)");
    const vidorra::Picture copy = picture;
    expectEqual("editable() of a shared picture", picture.editable(), false);
    picture.makeEditable();
    expectEqual("editable() of a private picture", picture.editable(), true);
    expectEqual("the first planes differ", copy.data()[0] != picture.data()[0], true);
}

// Runs a statement that must throw, and returns the text of the exception.
template <class Error, class Statement>
std::string textOf(const Statement& statement) {
    try {
        statement();
    } catch (const Error& error) {
        return error.what();
    }
    return "nothing was thrown";
}

// Exceptions of the library are caught by their own types, across the border of the shared library.
void catchErrors() {
    using vidorra::AvError;
    const auto refused = [] { vidorra::Picture(vidorra::Size{8, 8}, AV_PIX_FMT_NONE, AVCOL_RANGE_MPEG, 32); };
    expectEqual("the text of FFmpegError",
                textOf<vidorra::FFmpegError>(refused).find("Invalid argument") != std::string::npos, true);
    try {
        vidorra::AvRes(AvError::Eof).throwIfError("{} of {}", 1, 2);
        expectEqual("throwIfError() returned", true, false);
    } catch (const vidorra::FFmpegError& error) {
        expectEqual("error()", error.error().toString(), AvError::Eof.toString());
        expectEqual("what()", error.what(), "1 of 2 FFmpeg AV_ERROR: " + AvError::Eof.toString());
    }
    const auto unknown = [] {
        AVPixelFormat format{};
        std::istringstream("no-such-format") >> format;
    };
    expectEqual("the text of BadCast", textOf<vidorra::BadCast>(unknown) != "nothing was thrown", true);
    vidorra::FormatContext missing;
    missing.setUrl("/no/such/file");
    const auto open = [&] { missing.open("", true, std::chrono::seconds(1)); };
    expectEqual("a missing file", textOf<std::runtime_error>(open) != "nothing was thrown", true);
}

void readFile(const char* path) {
    std::vector<std::string> lines;
    logger::setLevel(logger::Level::Trace);
    logger::setSink([&lines](logger::Level, std::string_view line) { lines.emplace_back(line); });

    vidorra::FormatContext source;
    source.setUrl(path);
    source.open("", true, std::chrono::seconds(1));
    expectEqual("tracksNumber()", source.tracksNumber(), 1U);
    int packets = 0;
    int frames = 0;
    vidorra::Timestamp last;
    for (vidorra::Packet packet = source.readPacket(); packet.size > 0; packet = source.readPacket()) {
        ++packets;
        const vidorra::VideoFrame frame = source.decodeVideoPacket(packet);
        if (!frame.empty()) {
            ++frames;
            expectEqual("size", frame.picture().frameSize() == vidorra::Size{160, 90}, true);
            expectEqual("time stamps rise", frames == 1 || last < frame.timestamp(), true);
            last = frame.timestamp();
        }
    }
    expectEqual("isEOF()", source.isEOF(), true);
    expectEqual("packets", packets, 25);
    expectEqual("frames, but for those that the decoder keeps", frames > 20 && frames <= packets, true);
    source.close();
    logger::setSink({});
    const std::string opened = std::string(path) + " opened, time origin 0";
    expectEqual("the sink got the line of open()", std::count(lines.begin(), lines.end(), opened), 1);
    const std::string closed = std::string(path) + " closed, 25 packets read";
    expectEqual("the sink got the line of close()", std::count(lines.begin(), lines.end(), closed), 1);
}

}  // namespace

int main(int argc, char** argv) try {
    if (argc != 2) {
        std::cerr << "usage: consumer FILE\n";
        return 2;
    }
    useValues();
    usePictures();
    catchErrors();
    readFile(argv[1]);
    return gFailures == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
} catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return EXIT_FAILURE;
}
