#pragma once

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "support/report.h"

namespace vidorra::bench {

/// Seconds of wall time, and of CPU time of this process and of the children that it has waited for.
struct Times {
    double cpu = 0;
    double wall = 0;
};

/// Adds up the time between start() and stop().
class Stopwatch {
public:
    void start();
    void stop();
    [[nodiscard]] const Times& total() const noexcept { return mTotal; }

private:
    Times mStart;
    Times mTotal;
};

/// One of the compared programs. `run` does the work once, and runs the stopwatch around the part that
/// counts.
struct Competitor {
    std::string name;
    std::function<void(Stopwatch&)> run;
};

/// What the command line asks for.
struct Options {
    int repetitions;
    /// Use the smallest input that still covers every path; the figures do not matter.
    bool shortRun = false;
    /// Measure only comparisons with this in their title; empty for all.
    std::string only = {};

    [[nodiscard]] bool wants(const std::string& title) const { return title.find(only) != std::string::npos; }
};

/// Parses "--short", "--repetitions N", `repetitions` by default, and "--only TEXT". Exits for any other
/// argument.
Options parseOptions(int argc, char** argv, int repetitions = 15);

/// Runs several competitors in one process: in each repetition all of them, in a new random order, so that
/// disturbances of the machine affect all alike.
class Comparison {
public:
    explicit Comparison(std::string title) : mTitle(std::move(title)) {}

    void add(std::string name, std::function<void(Stopwatch&)> run);

    /// Whether the threads of this process and its children stay on one CPU during the runs.
    enum class Pinning { OneCpu, None };

    /// Measures; the first round is not counted.
    void run(int repetitions, Pinning pinning = Pinning::OneCpu);

    /// CPU time for the cost of work, wall time for the rate of frames.
    enum class Column { Cpu, Wall };

    /// The median of the seconds of a competitor.
    [[nodiscard]] double seconds(const std::string& name, Column column = Column::Cpu) const;

    /// The median of the ratios of two competitors' times within each repetition.
    [[nodiscard]] double ratio(const std::string& name, const std::string& reference,
                               Column column = Column::Cpu) const;

    /// Prints the medians of all competitors, in milliseconds.
    void printTable() const;

    /// Reports ratio() as a figure of this comparison.
    void reportRatio(const std::string& name, const std::string& reference, std::optional<Aim> aim,
                     Column column = Column::Cpu) const;

    /// Reports how much faster a competitor is than a peer: the peer's CPU time divided by its own.
    void reportTimes(const std::string& name, const std::string& peer, std::optional<Aim> aim) const;

private:
    [[nodiscard]] const std::vector<Times>& timesOf(const std::string& name) const;

    std::string mTitle;
    std::vector<Competitor> mCompetitors;
    // One row for each competitor, in their order.
    std::vector<std::vector<Times>> mTimes;
};

}  // namespace vidorra::bench
