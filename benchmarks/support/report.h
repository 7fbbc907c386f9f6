#pragma once

#include <optional>
#include <string>

/// How all benchmark programs report their figures.
namespace vidorra::bench {

/// The value that a figure should reach, and the floor that it must keep if that is lower.
struct Aim {
    enum class Bound { AtLeast, AtMost };

    Bound bound;
    double value;
    std::optional<double> floor;
};

constexpr Aim atLeast(double value, std::optional<double> floor = std::nullopt) {
    return {Aim::Bound::AtLeast, value, floor};
}

constexpr Aim atMost(double value, std::optional<double> floor = std::nullopt) {
    return {Aim::Bound::AtMost, value, floor};
}

/// One figure.
struct Figure {
    /// The comparison that it belongs to, such as "NV12, faded, hot".
    std::string group;
    /// The figure within the comparison, such as "times OpenCV".
    std::string name;
    double value;
    /// Such as "us"; empty for a ratio.
    std::string unit;
    std::optional<Aim> aim = std::nullopt;
};

/// "reached", "missed" or "below the floor"; empty without an aim and in a short run.
std::string verdict(double value, const std::optional<Aim>& aim);

/// Prints a figure with its aim and floor. When the environment variable VIDORRA_BENCHMARK_RESULTS names a
/// file, the figure is also written there, as a line that tools/bench_report.py reads:
///
///     figure PROGRAM GROUP NAME VALUE UNIT BOUND AIM FLOOR VERDICT LOAD
///
/// separated by tabs, where BOUND is "at least" or "at most", what does not apply is empty, and LOAD is the
/// average number of running threads of the machine in the last minute. Lines "about WHAT VALUE" before the
/// first figure of a program describe the processor, its caches, the compiler and FFmpeg. Throws
/// std::runtime_error when the file cannot be written.
void report(const Figure& figure);

/// Marks all later figures as meaningless, in the output and in the file; none is judged.
void reportShortRun();

}  // namespace vidorra::bench
