#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <thread>

namespace vidorra::test {

/// Takes over stderr with a pipe while it lives.
class StderrPipe {
public:
    StderrPipe() {
        std::array<int, 2> ends{};
        std::fflush(stderr);
        mOld = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
        if (mOld < 0 || pipe2(ends.data(), O_CLOEXEC) != 0) {
            throw std::runtime_error("no pipe for stderr");
        }
        dup2(ends[1], STDERR_FILENO);
        close(ends[1]);
        mReader = std::thread([this, end = ends[0]] {
            std::array<char, 4096> buffer{};
            for (ssize_t count; (count = read(end, buffer.data(), buffer.size())) > 0;) {
                mText.append(buffer.data(), static_cast<std::size_t>(count));
            }
            close(end);
        });
    }
    StderrPipe(const StderrPipe&) = delete;
    StderrPipe& operator=(const StderrPipe&) = delete;
    ~StderrPipe() { restore(); }

    /// Restores stderr and returns what was written to it meanwhile.
    std::string text() {
        restore();
        return mText;
    }

private:
    void restore() {
        if (mOld >= 0) {
            std::fflush(stderr);
            // This closes the last writing end of the pipe, which ends the reader.
            dup2(mOld, STDERR_FILENO);
            close(mOld);
            mOld = -1;
            mReader.join();
        }
    }

    int mOld = -1;
    // Written by the reader, to be read once that has been joined.
    std::string mText;
    std::thread mReader;
};

}  // namespace vidorra::test
