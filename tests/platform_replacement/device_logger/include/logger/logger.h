#pragma once

#include <ostream>
#include <sstream>
#include <string>

/// Another logger, with only the five operations that the library calls. It keeps every line as its level, a
/// bar and the text. It has its own names for the levels.
namespace logger {

enum class Level : int { Fatal = 0, Verbose = 9 };

class MessageOstream {
public:
    MessageOstream(Level level, const std::string& prefix);
    MessageOstream(MessageOstream&& other) noexcept;
    ~MessageOstream();

    explicit operator bool() const { return mActive; }
    std::ostream& ostream() { return mStream; }

private:
    Level mLevel;
    bool mActive = true;
    std::ostringstream mStream;
};

template <class T>
MessageOstream& operator<<(MessageOstream& message, const T& value) {
    if (message) {
        message.ostream() << value;
    }
    return message;
}

template <class T>
MessageOstream& operator<<(MessageOstream&& message, const T& value) {
    return message << value;
}

MessageOstream log(Level level);
MessageOstream log(Level level, const std::string& prefix);
void print(Level level, const char* format, ...) __attribute__((format(printf, 2, 3)));
void warning(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// All lines so far, each with a line end. Only this make has it.
std::string deviceLog();

}  // namespace logger
