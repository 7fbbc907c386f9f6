#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <set>
#include <string>
#include <thread>

#include "support/descriptors.h"

namespace vidorra::test {

/// The threads of this process.
inline std::set<int> runningThreads() {
    std::set<int> result;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
        result.insert(std::stoi(entry.path().filename()));
    }
    return result;
}

/// Expects in its destructor that the process has the same file descriptors and threads as at the start.
class NothingLeftOpen {
public:
    NothingLeftOpen() : mDescriptors(openDescriptors()), mThreads(runningThreads()) {}
    NothingLeftOpen(const NothingLeftOpen&) = delete;
    NothingLeftOpen& operator=(const NothingLeftOpen&) = delete;
    ~NothingLeftOpen() {
        EXPECT_EQ(openDescriptors(), mDescriptors);
        // The kernel lists a thread for a moment after it has been joined.
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        while (runningThreads() != mThreads && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::yield();
        }
        EXPECT_EQ(runningThreads(), mThreads);
    }

private:
    std::set<int> mDescriptors;
    std::set<int> mThreads;
};

}  // namespace vidorra::test
