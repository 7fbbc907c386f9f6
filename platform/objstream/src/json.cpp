#include "objstream/json.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <limits>
#include <system_error>
#include <vector>

#include <nlohmann/json.hpp>

namespace objstream {
namespace {

bool isUtf8(const std::string& text) {
    try {
        static_cast<void>(nlohmann::json(text).dump());
        return true;
    } catch (const nlohmann::json::type_error&) {
        return false;
    }
}

// A text and how far it has been read.
class Source {
public:
    Source(const std::string& file, std::string_view text) : mFile(file), mText(text) {}

    // Iterates over the text for the parser, which reads each byte once and in order.
    class Iterator {
    public:
        using iterator_category = std::input_iterator_tag;
        using value_type = char;
        using difference_type = std::ptrdiff_t;
        using pointer = const char*;
        using reference = const char&;

        Iterator(Source* source, std::size_t offset) : mSource(source), mOffset(offset) {}
        reference operator*() const { return mSource->mText[mOffset]; }
        Iterator& operator++() {
            mSource->mRead = ++mOffset;
            return *this;
        }
        Iterator operator++(int) {
            const Iterator old = *this;
            ++*this;
            return old;
        }
        [[maybe_unused]] friend bool operator==(const Iterator& a, const Iterator& b) {
            return a.mOffset == b.mOffset;
        }
        friend bool operator!=(const Iterator& a, const Iterator& b) { return a.mOffset != b.mOffset; }

    private:
        Source* mSource;
        std::size_t mOffset;
    };

    Iterator begin() { return {this, 0}; }
    Iterator end() { return {this, mText.size()}; }

    // Reports an error at the last byte that was read.
    [[noreturn]] void fail(const std::string& reason) const { failAfter(mRead, reason); }

    // Reports an error at the last of so many bytes. The parser counts the end of the text as one more.
    [[noreturn]] void failAfter(std::size_t read, const std::string& reason) const {
        raise(std::min(read, mText.size()), reason);
    }

    // Reports an error at the last byte of a number. Unless the text ends there, one more byte has been read
    // to find its end.
    [[noreturn]] void failInNumber(const std::string& reason) const {
        const bool ends = mRead > 0 && std::strchr("0123456789", mText[mRead - 1]) != nullptr;
        failAfter(ends || mRead == 0 ? mRead : mRead - 1, reason);
    }

private:
    // Columns count characters. Each character has exactly one byte that is not a continuation byte.
    [[noreturn]] void raise(std::size_t read, const std::string& reason) const {
        const std::string_view before = mText.substr(0, read == 0 ? 0 : read - 1);
        const auto lines = std::count(before.begin(), before.end(), '\n');
        const std::size_t lineStart = before.rfind('\n') + 1;
        const std::string_view line = mText.substr(lineStart, read - lineStart);
        const auto column = std::count_if(line.begin(), line.end(), [](char byte) {
            return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80U;
        });
        throw JsonError(mFile, static_cast<std::size_t>(lines) + 1,
                        std::max<std::size_t>(static_cast<std::size_t>(column), 1), reason);
    }

    const std::string& mFile;
    std::string_view mText;
    std::size_t mRead = 0;
};

// Builds the object from what the parser finds. The parser does not recurse, so a deep text only costs
// memory.
class Builder : public nlohmann::json_sax<nlohmann::json> {
public:
    explicit Builder(Source& source) : mSource(source) {}

    object take() { return std::move(mRoot); }

    bool null() override { return add(object()); }
    bool boolean(bool value) override { return add(object(value)); }
    bool number_integer(number_integer_t value) override {
        using Int = std::numeric_limits<int>;
        const bool fits = value >= Int::min() && value <= Int::max();
        return add(fits ? object(static_cast<int>(value)) : object(static_cast<long long>(value)));
    }
    bool number_unsigned(number_unsigned_t value) override {
        if (value > static_cast<number_unsigned_t>(std::numeric_limits<long long>::max())) {
            failForInteger(std::to_string(value));
        }
        return number_integer(static_cast<number_integer_t>(value));
    }
    bool number_float(number_float_t value, const string_t& text) override {
        // The parser turns an integer that is too long into a double.
        if (text.find_first_of(".eE") == std::string::npos) {
            failForInteger(text);
        }
        return add(object(value));
    }
    bool string(string_t& value) override { return add(object(value)); }
    bool binary(binary_t&) override { return false; }  // JSON has none

    bool start_object(std::size_t) override { return enter(object::map()); }
    bool key(string_t& value) override {
        object& map = *mOpen.back();
        if (map.hasKey(value)) {
            mSource.fail(fmt::format("the key {} is there twice", nlohmann::json(value).dump()));
        }
        mNext = &map[value];
        return true;
    }
    bool end_object() override { return leave(); }
    bool start_array(std::size_t) override { return enter(object::array()); }
    bool end_array() override { return leave(); }

    bool parse_error(std::size_t read, const std::string&,
                     const nlohmann::detail::exception& error) override {
        // The parser's text begins with its own names and with the position, counted in bytes.
        std::string reason = error.what();
        const std::size_t bracket = reason.find("] ");
        reason.erase(0, bracket == std::string::npos ? 0 : bracket + 2);
        const std::size_t place = reason.find(": ");
        if (reason.compare(0, 11, "parse error") == 0 && place != std::string::npos) {
            reason.erase(0, place + 2);
        }
        // It quotes the last word, however long, even if it is not UTF-8.
        if (!isUtf8(reason)) {
            reason.erase(std::min(reason.find("; last read"), reason.size()));
        }
        constexpr std::size_t kLongest = 300;
        if (reason.size() > kLongest) {
            std::size_t end = kLongest;
            while (end > 0 && (static_cast<unsigned char>(reason[end]) & 0xC0U) == 0x80U) {
                --end;
            }
            reason.resize(end);
            reason += "...";
        }
        mSource.failAfter(read, reason);
    }

private:
    [[noreturn]] void failForInteger(const std::string& digits) {
        constexpr std::size_t kLongest = 40;
        const std::string shown = digits.size() > kLongest ? digits.substr(0, kLongest) + "..." : digits;
        mSource.failInNumber(fmt::format("the integer {} does not fit in 64 bits", shown));
    }

    // Where the next value goes: the entry of the key, the end of the array, or the whole object.
    object& place() {
        if (mOpen.empty()) {
            return mRoot;
        }
        object& open = *mOpen.back();
        return open.kind() == object::Kind::Array ? append(open) : *mNext;
    }

    // The elements of an open array move when it grows, but none of them is open at that time.
    static object& append(object& array) {
        array.append(object());
        return const_cast<object&>(array.at(array.size() - 1));
    }

    bool add(object&& value) {
        place() = std::move(value);
        return true;
    }
    bool enter(object&& value) {
        if (mOpen.size() == kMaxJsonDepth) {
            mSource.fail(fmt::format("maps and arrays are nested deeper than {} levels", kMaxJsonDepth));
        }
        object& entered = place();
        entered = std::move(value);
        mOpen.push_back(&entered);
        return true;
    }
    bool leave() {
        mOpen.pop_back();
        return true;
    }

    Source& mSource;
    object mRoot;
    std::vector<object*> mOpen;
    object* mNext = nullptr;
};

object parse(const std::string& file, std::string_view text) {
    Source source(file, text);
    Builder builder(source);
    nlohmann::json::sax_parse(source.begin(), source.end(), &builder);
    return builder.take();
}

class Writer {
public:
    explicit Writer(JsonLayout layout) : mPretty(layout == JsonLayout::Pretty) {}

    std::string text(const object& value) {
        write(value);
        if (mPretty) {
            mText += '\n';
        }
        return std::move(mText);
    }

private:
    void write(const object& value) {
        switch (value.kind()) {
        case object::Kind::Nothing:
            mText += "null";
            break;
        case object::Kind::Scalar:
            std::visit([this](const auto& held) { writeScalar(held); }, *value.scalar());
            break;
        case object::Kind::Map:
            writeMap(value);
            break;
        case object::Kind::Array:
            writeArray(value);
            break;
        }
    }

    void writeMap(const object& map) {
        open('{');
        bool first = true;
        map.for_each_kv([this, &first](const std::string& key, const object& value) {
            mPath.back() = key;
            nextLine(first);
            first = false;
            writeScalar(key);
            mText += mPretty ? ": " : ":";
            write(value);
            return true;
        });
        close('}', first);
    }

    void writeArray(const object& array) {
        open('[');
        for (std::size_t i = 0; i < array.size(); ++i) {
            mPath.back() = std::to_string(i);
            nextLine(i == 0);
            write(array.at(i));
        }
        close(']', array.size() == 0);
    }

    void open(char bracket) {
        if (mPath.size() == kMaxJsonDepth) {
            throw std::invalid_argument(
                fmt::format("toJson: maps and arrays are nested deeper than {} levels", kMaxJsonDepth));
        }
        mText += bracket;
        mPath.emplace_back();
    }
    void close(char bracket, bool wasEmpty) {
        mPath.pop_back();
        if (!wasEmpty) {
            indent();
        }
        mText += bracket;
    }
    void nextLine(bool first) {
        if (!first) {
            mText += ',';
        }
        indent();
    }
    void indent() {
        if (mPretty) {
            mText += '\n';
            mText.append(mPath.size() * 4, ' ');
        }
    }

    void writeScalar(bool value) { mText += value ? "true" : "false"; }
    void writeScalar(int value) { mText += std::to_string(value); }
    void writeScalar(long long value) { mText += std::to_string(value); }
    void writeScalar(double value) {
        if (!std::isfinite(value)) {
            fail(std::isnan(value) ? "the number nan" : value > 0 ? "the number inf" : "the number -inf");
        }
        mText += nlohmann::json(value).dump();
    }
    void writeScalar(const std::string& value) {
        if (!isUtf8(value)) {
            fail("a string that is not UTF-8");
        }
        mText += nlohmann::json(value).dump();
    }

    [[noreturn]] void fail(const std::string& what) const {
        std::string path;
        for (const std::string& step : mPath) {
            path += path.empty() ? " at " : ".";
            path += nlohmann::json(step).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
        }
        throw std::invalid_argument(fmt::format("toJson: JSON does not have {}{}", what, path));
    }

    bool mPretty;
    std::string mText;
    // The keys and indices that lead to what is being written.
    std::vector<std::string> mPath;
};

}  // namespace

JsonError::JsonError(const std::string& file, std::size_t line, std::size_t column, const std::string& reason)
    : std::runtime_error(
          fmt::format("{}{}line {}, column {}: {}", file, file.empty() ? "" : ": ", line, column, reason)),
      mLine(line),
      mColumn(column) {}

object parseJson(std::string_view text) {
    return parse({}, text);
}

object readJsonFile(const std::filesystem::path& path) {
    const auto fail = [&path](int error) {
        throw std::runtime_error(
            fmt::format("Could not read {}: {}", path.string(), std::generic_category().message(error)));
    };
    errno = 0;
    std::ifstream stream(path, std::ios::binary);
    if (!stream) {
        fail(errno);
    }
    std::string text;
    constexpr std::size_t kPiece = 65536;
    while (stream) {
        const std::size_t size = text.size();
        text.resize(size + kPiece);
        stream.read(text.data() + size, kPiece);
        text.resize(size + static_cast<std::size_t>(stream.gcount()));
    }
    if (stream.bad()) {
        fail(errno);
    }
    return parse(path.string(), text);
}

std::string toJson(const object& value, JsonLayout layout) {
    return Writer(layout).text(value);
}

}  // namespace objstream
