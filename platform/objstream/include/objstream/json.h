#pragma once

#include <cstddef>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>

#include "objstream/export.h"
#include "objstream/object.h"

/// Objects as JSON, UTF-8, by RFC 8259: a map is a JSON object, nothing is null. This is an addition to the
/// interface that an object library must have.
///
///     const objstream::object config = objstream::readJsonFile("encoder.json");
///     vidorra::VideoEncoder encoder(config);
///
/// A number without a fraction and an exponent becomes an int if it fits, otherwise a long long. A number
/// with either becomes a double, and a double is written with one of them. So a scalar that is written and
/// read back keeps its type, except for a long long that fits in an int.
namespace objstream {

/// How deep maps and arrays may be nested: [[1]] has depth 2.
inline constexpr std::size_t kMaxJsonDepth = 256;

/// A text that is not JSON, or that contains what an object cannot hold.
class OBJSTREAM_API JsonError : public std::runtime_error {
public:
    /// `file` may be empty.
    JsonError(const std::string& file, std::size_t line, std::size_t column, const std::string& reason);

    /// Where reading stopped, counted from 1: the line, and the last character read in it.
    [[nodiscard]] std::size_t line() const noexcept { return mLine; }
    [[nodiscard]] std::size_t column() const noexcept { return mColumn; }

private:
    std::size_t mLine;
    std::size_t mColumn;
};

/// Reads one value; white space may surround it and a byte order mark precede it. Throws JsonError with a
/// text like "line 3, column 14: the key \"codec\" is there twice" for
///
/// - a text that is not JSON or not UTF-8;
/// - a key that occurs twice in a map;
/// - an integer outside the range of long long, whose digits a double would lose, and a number outside the
/// range of double;
/// - more than kMaxJsonDepth maps and arrays inside each other.
[[nodiscard]] OBJSTREAM_API object parseJson(std::string_view text);

/// The same from a file; the text of a JsonError begins with the name of the file. Throws std::runtime_error
/// for a file that cannot be read.
[[nodiscard]] OBJSTREAM_API object readJsonFile(const std::filesystem::path& path);

enum class JsonLayout {
    /// One line without blanks.
    Compact,
    /// One line for each value, indented by four blanks a level, with a line end at the end.
    Pretty,
};

/// The text of an object, with the keys in byte order. Throws std::invalid_argument, with the keys that lead
/// to the place, for what JSON cannot express: a double that is infinite or not a number, or a string or key
/// that is not UTF-8; and for more than kMaxJsonDepth levels.
[[nodiscard]] OBJSTREAM_API std::string toJson(const object& value, JsonLayout layout = JsonLayout::Compact);

}  // namespace objstream
