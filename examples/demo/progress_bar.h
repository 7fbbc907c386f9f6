#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace demo {

/// A bar in the last line of a terminal. It is invisible if stdout is not a terminal.
class ProgressBar {
public:
    ProgressBar();
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;
    /// Erases the bar.
    ~ProgressBar();

    /// Whether the bar would be drawn now; it is drawn at most ten times a second.
    [[nodiscard]] bool isDue() const;

    /// Draws the bar, filled by the fraction `done`, followed by a text. Without `done` draws only the text.
    void draw(std::optional<double> done, const std::string& text);

    /// Erases the bar until it is drawn again.
    void clear();

private:
    using Clock = std::chrono::steady_clock;

    bool mVisible;
    bool mDrawn = false;
    Clock::time_point mNext = Clock::now();
};

}  // namespace demo
