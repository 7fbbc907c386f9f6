#include "logger/logger.h"

#include <array>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <sstream>
#include <utility>

namespace logger {
namespace {

std::atomic<Level> gLevel{Level::Warning};

struct SinkSlot {
    // Guards `sink`. It is held while the sink runs, which keeps lines whole and in order.
    std::mutex mutex;
    // Null for the initial sink. Shared with a running call, since a sink may replace itself.
    std::shared_ptr<const Sink> sink;
};

// Never destroyed, since static objects may log while the process exits.
SinkSlot& sinkSlot() {
    static auto* slot = new SinkSlot;
    return *slot;
}

// Set while this thread runs the sink, so that a sink that logs neither calls itself nor takes the lock
// again.
thread_local bool tInsideSink = false;

const char* levelName(Level level) {
    switch (level) {
    case Level::Error:
        return "error";
    case Level::Warning:
        return "warning";
    case Level::Notice:
        return "notice";
    case Level::Info:
        return "info";
    case Level::Debug:
        return "debug";
    case Level::Trace:
        return "trace";
    }
    return "log";
}

void writeToStderr(Level level, std::string_view line) {
    std::string text;
    text.reserve(line.size() + 16);
    text.append(levelName(level)).append(": ").append(line).append("\n");
    std::fwrite(text.data(), 1, text.size(), stderr);
}

bool enabled(Level level) noexcept {
    return level <= gLevel.load(std::memory_order_relaxed);
}

void write(Level level, std::string_view line) noexcept {
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) {
        line.remove_suffix(1);
    }
    try {
        if (tInsideSink) {
            writeToStderr(level, line);
            return;
        }
        auto& slot = sinkSlot();
        const std::lock_guard lock(slot.mutex);
        if (!slot.sink) {
            writeToStderr(level, line);
            return;
        }
        tInsideSink = true;
        struct Leave {
            ~Leave() { tInsideSink = false; }
        } leave;
        const std::shared_ptr<const Sink> sink = slot.sink;
        (*sink)(level, line);
    } catch (...) {
        // Deliberate: destructors and callbacks from C log, and must not throw.
    }
}

void printLine(Level level, const char* format, std::va_list args) {
    if (!enabled(level)) {
        return;
    }
    std::array<char, 1024> buffer{};
    std::va_list copy;
    va_copy(copy, args);
    const int length = std::vsnprintf(buffer.data(), buffer.size(), format, copy);
    va_end(copy);
    if (length < 0) {
        return;
    }
    if (static_cast<std::size_t>(length) < buffer.size()) {
        write(level, {buffer.data(), static_cast<std::size_t>(length)});
        return;
    }
    std::string text(static_cast<std::size_t>(length), '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, args);
    write(level, text);
}

}  // namespace

void setLevel(Level level) noexcept {
    gLevel.store(level, std::memory_order_relaxed);
}

Level level() noexcept {
    return gLevel.load(std::memory_order_relaxed);
}

void setSink(Sink sink) {
    auto shared = sink ? std::make_shared<const Sink>(std::move(sink)) : nullptr;
    auto& slot = sinkSlot();
    if (tInsideSink) {
        // This thread holds the lock already.
        slot.sink.swap(shared);
        return;
    }
    const std::lock_guard lock(slot.mutex);
    slot.sink.swap(shared);
}

struct MessageOstream::Line {
    Level level;
    std::ostringstream stream;
};

MessageOstream::MessageOstream(Level level, std::string_view prefix) {
    if (enabled(level)) {
        mLine.reset(new Line{level, {}});
        mLine->stream << prefix;
    }
}

MessageOstream::MessageOstream(MessageOstream&& other) noexcept = default;

MessageOstream::~MessageOstream() {
    if (mLine) {
        try {
            write(mLine->level, mLine->stream.str());
        } catch (...) {
            // There is no memory for the line, nor for reporting that.
        }
    }
}

std::ostream& MessageOstream::ostream() noexcept {
    return mLine->stream;
}

MessageOstream log(Level level) {
    return MessageOstream(level);
}

MessageOstream log(Level level, const std::string& prefix) {
    return MessageOstream(level, prefix);
}

void print(Level level, const char* format, ...) {
    std::va_list args;
    va_start(args, format);
    printLine(level, format, args);
    va_end(args);
}

void warning(const char* format, ...) {
    std::va_list args;
    va_start(args, format);
    printLine(Level::Warning, format, args);
    va_end(args);
}

}  // namespace logger
