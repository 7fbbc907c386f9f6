#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace demo {

/// A bar in the last line of a terminal. Where stdout is no terminal it stays invisible.
class ProgressBar {
public:
    ProgressBar();
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;
    /// Wipes the bar away.
    ~ProgressBar();

    /// Whether the bar would be drawn now: it is at most ten times a second.
    [[nodiscard]] bool isDue() const;

    /// Draws the bar, `done` of 1 filled, with a text behind it. Without `done` the text stands alone.
    void draw(std::optional<double> done, const std::string& text);

    /// Wipes the bar away until it is drawn again.
    void clear();

private:
    using Clock = std::chrono::steady_clock;

    bool mVisible;
    bool mDrawn = false;
    Clock::time_point mNext = Clock::now();
};

}  // namespace demo
