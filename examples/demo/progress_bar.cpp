#include "progress_bar.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <iostream>

namespace demo {
namespace {

std::size_t terminalWidth() {
    winsize size{};
    const bool known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return known ? size.ws_col : 80;
}

}  // namespace

ProgressBar::ProgressBar() : mVisible(isatty(STDOUT_FILENO) == 1) {}

ProgressBar::~ProgressBar() {
    clear();
}

bool ProgressBar::isDue() const {
    return mVisible && Clock::now() >= mNext;
}

void ProgressBar::draw(std::optional<double> done, const std::string& text) {
    if (!isDue()) {
        return;
    }
    mNext = Clock::now() + std::chrono::milliseconds(100);
    // The last column stays free, so that no terminal wraps the line.
    const std::size_t width = terminalWidth() - 1;
    std::string line = text;
    if (done && width > text.size() + 10) {
        const std::size_t cells = std::min<std::size_t>(width - text.size() - 3, 50);
        const auto full = static_cast<std::size_t>(std::clamp(*done, 0.0, 1.0) * static_cast<double>(cells));
        line = '[' + std::string(full, '#') + std::string(cells - full, '.') + "] " + text;
    }
    line.resize(std::min(line.size(), width));
    std::cout << '\r' << line << "\033[K" << std::flush;
    mDrawn = true;
}

void ProgressBar::clear() {
    if (mDrawn) {
        std::cout << "\r\033[K" << std::flush;
        mDrawn = false;
    }
}

}  // namespace demo
