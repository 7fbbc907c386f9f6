#pragma once

#include <string>
#include <vector>

namespace demo {

/// One request: the time asked for and that of the frame served, in seconds from the first.
struct TimePoint {
    double asked;
    double served;
};

/// Draws the time served over the time asked as an SVG file, below it how far apart the two are, with a line
/// where each loop of `loopLength` seconds begins. Throws std::runtime_error when the file cannot be written.
void writeTimePlot(const std::string& path, const std::vector<TimePoint>& points, double loopLength);

}  // namespace demo
