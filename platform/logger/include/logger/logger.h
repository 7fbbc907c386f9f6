#pragma once

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>

#define LOGGER_API __attribute__((visibility("default")))

/// The logging interface: whole lines at a level, passed to one sink.
///
///     logger::setLevel(logger::Level::Info);
///     logger::log(logger::Level::Info, "mixer: ") << "started with " << inputs << " inputs";
///     logger::warning("input %d has no signal", index);
///
/// Threads: thread-safe. Lines never interleave: each call of the sink gets one whole line, and calls never
/// overlap.
///
/// Errors: nothing here throws, except std::bad_alloc while a line is built; exceptions of a sink are
/// dropped.
namespace logger {

/// The importance of a line; lower values are more important. Level 3 is free for applications.
enum class Level : int {
    Error = 1,
    Warning = 2,
    Notice = 3,
    Info = 4,
    Debug = 5,
    Trace = 6,
};

/// Receives one line, without a line end. A sink runs on the thread that logs, under the logger's lock, so
/// it should be fast. A line that is logged from inside a sink always goes to stderr.
using Sink = std::function<void(Level level, std::string_view line)>;

/// Sets the highest level that is written; lines above it cost one comparison. Initially Level::Warning.
LOGGER_API void setLevel(Level level) noexcept;

/// The level that setLevel() set last.
[[nodiscard]] LOGGER_API Level level() noexcept;

/// Replaces the sink. An empty one restores the initial sink, which writes "error: ", "warning: " and so on,
/// the line and a line end to stderr in one piece. When this returns, no call of the old sink is running,
/// unless it is called from inside the old sink itself.
LOGGER_API void setSink(Sink sink);

/// A line under construction, which the destructor writes. It converts to false when its level is disabled;
/// insertions then do nothing and format nothing.
///
/// Threads: one at a time.
class LOGGER_API MessageOstream {
public:
    /// A line at `level` that starts with `prefix`.
    explicit MessageOstream(Level level, std::string_view prefix = {});
    MessageOstream(MessageOstream&& other) noexcept;
    MessageOstream& operator=(MessageOstream&&) = delete;
    ~MessageOstream();

    /// Whether the line will be written.
    explicit operator bool() const noexcept { return mLine != nullptr; }

    /// Where the line is built. Only for a message that converts to true.
    [[nodiscard]] std::ostream& ostream() noexcept;

private:
    struct Line;
    std::unique_ptr<Line> mLine;
};

/// Inserts into the line if it will be written.
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

/// Starts a line at `level`.
[[nodiscard]] LOGGER_API MessageOstream log(Level level);

/// Starts a line at `level` with `prefix`, which is written unchanged.
[[nodiscard]] LOGGER_API MessageOstream log(Level level, const std::string& prefix);

/// Writes one line in printf style. Line ends at the end of the text are dropped, and so is a line that the C
/// library cannot format, such as one with a wide character that the locale lacks.
LOGGER_API void print(Level level, const char* format, ...) __attribute__((format(printf, 2, 3)));

/// print() at Level::Warning.
LOGGER_API void warning(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace logger
