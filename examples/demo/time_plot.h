#pragma once

#include <string>
#include <vector>

namespace demo {

/// One request: the time requested and that of the frame served, in seconds from the first.
struct TimePoint {
    double asked;
    double served;
};

/// Draws an SVG file with the time served over the time requested, and below it the difference of the two. A
/// line marks the start of each loop of `loopLength` seconds. Throws std::runtime_error when the file cannot
/// be written.
void writeTimePlot(const std::string& path, const std::vector<TimePoint>& points, double loopLength);

}  // namespace demo
