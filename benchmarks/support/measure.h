#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

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

/// One of the things that are compared. `run` does the work once, the stopwatch running around the part that
/// counts.
struct Competitor {
    std::string name;
    std::function<void(Stopwatch&)> run;
};

/// What the command line asks for.
struct Options {
    int repetitions;
    /// Use the smallest input that still takes every path: the figures do not matter.
    bool shortRun;
};

/// Understands "--short" and "--repetitions N", 15 of them unless told. Ends the program at anything else.
Options parseOptions(int argc, char** argv);

/// Runs of several competitors in one process, all of them in each repetition and in a new random order, so
/// that what slows the machine down meets all alike.
class Comparison {
public:
    explicit Comparison(std::string title) : mTitle(std::move(title)) {}

    void add(std::string name, std::function<void(Stopwatch&)> run);

    /// Measures; the first round is not counted. Pinned to one CPU, children included.
    void run(int repetitions);

    /// The median of the CPU seconds of a competitor.
    [[nodiscard]] double cpu(const std::string& name) const;

    /// Prints the medians of all competitors, in milliseconds.
    void printTable() const;

    /// The column that an aim is about: CPU time for what work costs, wall time for how fast frames come.
    enum class Column { Cpu, Wall };

    /// Prints one ratio of times, the median of the ratios within each repetition, and the aim, if there is
    /// one: the largest ratio that is wanted in a column.
    void printRatio(const std::string& name, const std::string& reference, std::optional<double> aim,
                    Column column = Column::Cpu) const;

private:
    [[nodiscard]] std::size_t indexOf(const std::string& name) const;

    std::string mTitle;
    std::vector<Competitor> mCompetitors;
    // One row a competitor, in their order.
    std::vector<std::vector<Times>> mTimes;
};

}  // namespace vidorra::bench
