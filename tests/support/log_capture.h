#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "logger/logger.h"

namespace vidorra::test {

/// Collects the lines of the logger during its lifetime, and restores the initial sink and level afterwards.
class LogCapture {
public:
    struct Line {
        int level;
        std::string text;

        friend bool operator==(const Line& a, const Line& b) {
            return a.level == b.level && a.text == b.text;
        }
    };

    /// Collects lines up to this level.
    explicit LogCapture(int level = 2) : mOldLevel(logger::level()) {
        logger::setLevel(static_cast<logger::Level>(level));
        logger::setSink([this](logger::Level lineLevel, std::string_view line) {
            const std::lock_guard lock(mMutex);
            mLines.push_back({static_cast<int>(lineLevel), std::string(line)});
        });
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;
    ~LogCapture() {
        logger::setSink({});
        logger::setLevel(mOldLevel);
    }

    /// What was logged so far.
    std::vector<Line> lines() const {
        const std::lock_guard lock(mMutex);
        return mLines;
    }

    /// Only the texts.
    std::vector<std::string> texts() const {
        std::vector<std::string> result;
        for (const Line& line : lines()) {
            result.push_back(line.text);
        }
        return result;
    }

private:
    logger::Level mOldLevel;
    // Guards mLines.
    mutable std::mutex mMutex;
    std::vector<Line> mLines;
};

inline void PrintTo(const LogCapture::Line& line, std::ostream* stream) {
    *stream << line.level << ": " << line.text;
}

}  // namespace vidorra::test
