// Configurations as JSON: a text is either refused, or gives an object whose own text gives the same object
// again.
#include <cstring>

#include "objstream/json.h"
#include "support/target.h"

namespace {

using vidorra::fuzz::expect;

void readAgain(const objstream::object& value, objstream::JsonLayout layout) {
    const std::string text = objstream::toJson(value, layout);
    expect(objstream::parseJson(text) == value, "an object is read back from its own text");
}

}  // namespace

std::vector<std::string> vidorra::fuzz::seeds() {
    return {
        R"({"codec": "libx264", "options": {"b": 2000000, "x": 1.5e3, "y": "\u00e9\ud83d\ude00"}, "list": [null, true]})",
        "[1, -0, 2147483648, -9223372036854775808, 0.1, 1e-400, -0.0]",
        "9223372036854775808",
        R"({"a": 1, "a": 2})",
        "\xef\xbb\xbf\"\xff\"",
        std::string(300, '['),
        "{\"a\":",
        "1e999",
        "\x8c",
        "",
    };
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = vidorra::fuzz::Input(data, size).rest();
    objstream::object value;
    try {
        value = objstream::parseJson(text);
    } catch (const objstream::JsonError& error) {
        expect(error.line() >= 1 && error.column() >= 1, "an error has a line and a column");
        expect(error.line() <= text.size() + 1 && error.column() <= text.size() + 1,
               "an error lies in the text");
        // The message is UTF-8, whatever the text is.
        static_cast<void>(objstream::toJson(objstream::object(error.what())));
        expect(std::strlen(error.what()) < 1000, "an error has a length that can be read");
        return 0;
    }
    readAgain(value, objstream::JsonLayout::Compact);
    readAgain(value, objstream::JsonLayout::Pretty);
    return 0;
}
