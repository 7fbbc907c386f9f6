#include <array>
#include <atomic>
#include <cstdio>
#include <latch>
#include <string>
#include <thread>
#include <vector>

#include "logger/logger.h"
#include "platform/logger/stderr_pipe.h"
#include "support/log_capture.h"
#include "support/process.h"

namespace {

using logger::Level;
using vidorra::test::LogCapture;
using vidorra::test::StderrPipe;

constexpr int kThreads = 8;
constexpr int kLines = 1000;

// A line that shows whether it is whole. Some lines are longer than the buffers that they pass.
std::string lineOf(int thread, int number) {
    const std::size_t length = number % 100 == 0 ? 6000 : 20 + static_cast<std::size_t>(number % 7);
    std::string line = std::to_string(thread) + " " + std::to_string(number) + " ";
    return line.append(length, static_cast<char>('a' + thread));
}

void logFromThreads() {
    std::latch start(kThreads);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&start, thread] {
            start.arrive_and_wait();
            for (int number = 0; number < kLines; ++number) {
                const std::string line = lineOf(thread, number);
                if (number % 2 == 0) {
                    logger::print(Level::Warning, "%s\n", line.c_str());
                } else {
                    logger::log(Level::Warning) << line.substr(0, 5) << line.substr(5);
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

void expectAllLinesWhole(const std::vector<std::string>& lines, const std::string& prefix) {
    EXPECT_EQ(lines.size(), std::size_t{kThreads * kLines});
    std::array<int, kThreads> next{};
    for (const std::string& line : lines) {
        int thread = -1;
        int number = -1;
        ASSERT_EQ(std::sscanf(line.c_str() + prefix.size(), "%d %d", &thread, &number), 2) << line;
        ASSERT_TRUE(thread >= 0 && thread < kThreads) << line;
        // Each thread's lines are in its order.
        EXPECT_EQ(number, next[static_cast<std::size_t>(thread)]++);
        ASSERT_EQ(line, prefix + lineOf(thread, number));
    }
}

TEST(LoggerThreads, LinesReachASinkWholeAndOneAtATime) {
    const LogCapture restoreLater;
    std::vector<std::string> lines;
    std::atomic<int> inside = 0;
    std::atomic<bool> alone = true;
    // No lock of its own: the logger's is enough.
    logger::setSink([&](Level, std::string_view line) {
        if (++inside != 1) {
            alone = false;
        }
        lines.emplace_back(line);
        --inside;
    });
    logFromThreads();
    logger::setSink({});
    EXPECT_TRUE(alone);
    expectAllLinesWhole(lines, "");
}

TEST(LoggerThreads, LinesReachStderrWhole) {
    const LogCapture restoreLater;
    logger::setSink({});
    StderrPipe pipe;
    logFromThreads();
    expectAllLinesWhole(vidorra::test::lines(pipe.text()), "warning: ");
}

TEST(LoggerThreads, NoCallOfTheOldSinkIsUnderWayWhenSetSinkReturns) {
    const LogCapture restoreLater;
    for (int round = 0; round < 10; ++round) {
        std::latch entered(1);
        bool finished = false;
        logger::setSink([&](Level, std::string_view) {
            entered.count_down();
            for (int i = 0; i < 20; ++i) {
                std::this_thread::yield();
            }
            finished = true;
        });
        std::thread thread([] { logger::warning("line"); });
        entered.wait();
        logger::setSink([](Level, std::string_view) {});
        EXPECT_TRUE(finished);
        thread.join();
    }
}

TEST(LoggerThreads, SinkAndLevelMayChangeWhileOthersLog) {
    const LogCapture restoreLater;
    std::atomic<bool> stop = false;
    std::atomic<int> first = 0;
    std::atomic<int> second = 0;
    logger::setSink([&](Level, std::string_view) { ++first; });
    std::vector<std::thread> threads;
    std::latch started(4);
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            logger::print(Level::Error, "error");
            started.arrive_and_wait();
            do {
                logger::print(Level::Error, "error");
                logger::log(Level::Info) << "info";
            } while (!stop);
        });
    }
    started.wait();
    for (int round = 0; round < 200; ++round) {
        logger::setSink([&](Level, std::string_view) { ++first; });
        logger::setLevel(round % 2 == 0 ? Level::Info : Level::Error);
        logger::setSink([&](Level, std::string_view) { ++second; });
        EXPECT_EQ(logger::level(), round % 2 == 0 ? Level::Info : Level::Error);
    }
    stop = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    // Each thread logs once before the changes and once more.
    EXPECT_GE(first, 4);
    EXPECT_GE(first + second, 8);
}

}  // namespace
