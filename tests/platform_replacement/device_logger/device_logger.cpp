#include <array>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <utility>

#include "logger/logger.h"

namespace logger {
namespace {

std::mutex gMutex;
std::string gLog;  // guarded by gMutex

void write(Level level, const std::string& text) {
    const std::lock_guard lock(gMutex);
    gLog += std::to_string(static_cast<int>(level)) + '|' + text + '\n';
}

void printLine(Level level, const char* format, std::va_list args) {
    std::array<char, 1024> buffer{};
    std::vsnprintf(buffer.data(), buffer.size(), format, args);
    write(level, buffer.data());
}

}  // namespace

MessageOstream::MessageOstream(Level level, const std::string& prefix) : mLevel(level) {
    mStream << prefix;
}

MessageOstream::MessageOstream(MessageOstream&& other) noexcept
    : mLevel(other.mLevel), mActive(std::exchange(other.mActive, false)), mStream(std::move(other.mStream)) {}

MessageOstream::~MessageOstream() {
    if (mActive) {
        write(mLevel, mStream.str());
    }
}

MessageOstream log(Level level) {
    return {level, {}};
}

MessageOstream log(Level level, const std::string& prefix) {
    return {level, prefix};
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
    printLine(static_cast<Level>(2), format, args);
    va_end(args);
}

std::string deviceLog() {
    const std::lock_guard lock(gMutex);
    return gLog;
}

}  // namespace logger
