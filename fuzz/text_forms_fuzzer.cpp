// Values read from text: a word is either refused, or gives a value whose own text form gives the same value
// again.
#include <cstring>
#include <sstream>

#include <vidorra/vidorra.h>

#include "support/silence.h"
#include "support/target.h"

extern "C" {
#include <libavutil/samplefmt.h>
}

namespace {

using vidorra::fuzz::expect;

std::string firstWord(const std::string& text) {
    std::istringstream stream(text);
    std::string word;
    stream >> word;
    return word;
}

// what() ends at the first zero byte.
bool sameText(const char* what, const std::string& expected) {
    return std::strcmp(what, expected.c_str()) == 0;
}

template <class Value>
std::string textOf(Value value) {
    std::ostringstream stream;
    stream << value;
    return stream.str();
}

// Reads into a value that is `before`; after a refusal it must be `whenRefused`.
template <class Value>
void readEnum(const std::string& text, const std::string& complaint, Value before, Value whenRefused) {
    std::istringstream stream(text);
    Value value = before;
    try {
        stream >> value;
    } catch (const vidorra::BadCast& error) {
        expect(sameText(error.what(), complaint + firstWord(text)), "a refusal quotes the word");
        expect(value == whenRefused, "a refusal leaves the promised value");
        return;
    }
    std::istringstream again(textOf(value));
    Value second = before;
    again >> second;
    expect(second == value, "a value is read back from its own text");
}

void readColor(const std::string& text) {
    try {
        const vidorra::Color color(text);
        char hex[16];
        std::snprintf(hex, sizeof(hex), "#%02x%02x%02x%02x", color.red, color.green, color.blue, color.alpha);
        expect(vidorra::Color(hex) == color, "a colour is read back from its hexadecimal text");
    } catch (const std::runtime_error& error) {
        expect(sameText(error.what(), "Can not parse color value " + text), "a refusal quotes the text");
    }
    std::istringstream stream(text);
    vidorra::Color color;
    try {
        stream >> color;
        expect(textOf(color).size() == 6, "a colour is written in six characters");
    } catch (const std::runtime_error&) {
    }
}

void readSize(const std::string& text) {
    std::istringstream stream(text);
    vidorra::Size size;
    if (!(stream >> size)) {
        return;
    }
    std::istringstream again(std::to_string(size.width) + "x" + std::to_string(size.height));
    vidorra::Size second;
    again >> second;
    expect(!again.fail() && second == size, "a size is read back from its text");
}

// Every number that fits the enumeration's bits has a text.
void describeNumbers(int number) {
    expect(!vidorra::to_string(static_cast<AVPixelFormat>(number % 256)).empty(),
           "a pixel format has a text");
    expect(!vidorra::to_string(static_cast<AVColorRange>(number & 3)).empty(), "a colour range has a text");
    expect(!vidorra::to_string(static_cast<AVCodecID>(number & 0x1ffff)).empty(), "a codec has a text");
    expect(!textOf(static_cast<AVSampleFormat>(number & 7)).empty(), "a sample format has a text");
}

}  // namespace

std::vector<std::string> vidorra::fuzz::seeds() {
    return {
        std::string("\0 nv12 ", 7),
        std::string("\0nva12", 6),
        std::string("\0gray10", 7),
        "\1tv",
        "\1unknown",
        "\2fltp",
        "\3h264",
        "\3\n\t ",
        "\4red@0.5",
        "\4#ff8000",
        "\4 0x12345678",
        "\5 640x480",
        "\5-1:+2147483648",
        std::string("\6\0\0\0\301", 5),
    };
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    vidorra::fuzz::silence();
    vidorra::fuzz::Input input(data, size);
    switch (input.upTo(6)) {
    case 0:
        readEnum(input.rest(), "Unknown pixel format ", AV_PIX_FMT_RGB24, AV_PIX_FMT_NONE);
        break;
    case 1:
        readEnum(input.rest(), "Unknown color range ", AVCOL_RANGE_JPEG, AVCOL_RANGE_JPEG);
        break;
    case 2:
        readEnum(input.rest(), "Unknown sample format ", AV_SAMPLE_FMT_S16, AV_SAMPLE_FMT_NONE);
        break;
    case 3:
        readEnum(input.rest(), "Unknown codec id ", AV_CODEC_ID_H264, AV_CODEC_ID_H264);
        break;
    case 4:
        readColor(input.rest());
        break;
    case 5:
        readSize(input.rest());
        break;
    default:
        describeNumbers(input.number());
        break;
    }
    return 0;
}
