#include "time_plot.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <stdexcept>

#include <vidorra/core/format.h>

namespace demo {
namespace {

constexpr double kWidth = 960;
constexpr double kHeight = 640;
constexpr const char* kGrid = "#d8dde3";
constexpr const char* kLoop = "#b0611c";
constexpr const char* kData = "#1b5e9b";

/// A rectangle of the drawing with the values at its edges.
struct Panel {
    double left, top, right, bottom;
    double minX, maxX, minY, maxY;

    [[nodiscard]] double x(double value) const {
        return left + (value - minX) / (maxX - minX) * (right - left);
    }
    [[nodiscard]] double y(double value) const {
        return bottom - (value - minY) / (maxY - minY) * (bottom - top);
    }
};

// A round distance between grid lines, of which about six fit.
double gridStep(double span) {
    const double rough = span / 6;
    const double magnitude = std::pow(10, std::floor(std::log10(rough)));
    for (const double factor : {1.0, 2.0, 5.0}) {
        if (rough <= factor * magnitude) {
            return factor * magnitude;
        }
    }
    return 10 * magnitude;
}

class Svg {
public:
    explicit Svg(const std::string& path) : mStream(path) {
        mStream << fmt::format(
            "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"{0}\" height=\"{1}\" viewBox=\"0 0 {0} {1}\" "
            "font-family=\"sans-serif\" font-size=\"13\" fill=\"#222\">\n<rect width=\"{0}\" height=\"{1}\" "
            "fill=\"white\"/>\n",
            kWidth, kHeight);
    }

    void line(double x1, double y1, double x2, double y2, const char* colour, const char* extra = "") {
        mStream << fmt::format(
            "<line x1=\"{:.2f}\" y1=\"{:.2f}\" x2=\"{:.2f}\" y2=\"{:.2f}\" stroke=\"{}\" {}/>\n", x1, y1, x2,
            y2, colour, extra);
    }

    void text(double x, double y, const char* anchor, const std::string& words, const char* extra = "") {
        mStream << fmt::format("<text x=\"{:.2f}\" y=\"{:.2f}\" text-anchor=\"{}\" {}>{}</text>\n", x, y,
                               anchor, extra, words);
    }

    void dot(double x, double y) {
        mStream << fmt::format("<circle cx=\"{:.2f}\" cy=\"{:.2f}\" r=\"1.6\" fill=\"{}\"/>\n", x, y, kData);
    }

    void finish(const std::string& path) {
        mStream << "</svg>\n";
        mStream.close();
        if (!mStream) {
            throw std::runtime_error("cannot write " + path);
        }
    }

private:
    std::ofstream mStream;
};

void drawAxes(Svg& svg, const Panel& panel, const std::string& label, double loopLength) {
    const double stepX = gridStep(panel.maxX - panel.minX);
    for (double value = std::ceil(panel.minX / stepX) * stepX; value <= panel.maxX; value += stepX) {
        svg.line(panel.x(value), panel.top, panel.x(value), panel.bottom, kGrid);
        svg.text(panel.x(value), panel.bottom + 18, "middle", fmt::format("{:g}", value));
    }
    const double stepY = gridStep(panel.maxY - panel.minY);
    for (double value = std::ceil(panel.minY / stepY) * stepY; value <= panel.maxY; value += stepY) {
        svg.line(panel.left, panel.y(value), panel.right, panel.y(value), kGrid);
        // A value below a thousandth of a step is only a rounding error.
        const double shown = std::abs(value) < stepY / 1000 ? 0 : value;
        svg.text(panel.left - 8, panel.y(value) + 4, "end", fmt::format("{:g}", shown));
    }
    for (double start = loopLength; start < panel.maxX; start += loopLength) {
        svg.line(panel.x(start), panel.top, panel.x(start), panel.bottom, kLoop, "stroke-dasharray=\"6 4\"");
    }
    svg.text(panel.left, panel.top - 8, "start", label, "font-weight=\"bold\"");
}

}  // namespace

void writeTimePlot(const std::string& path, const std::vector<TimePoint>& points, double loopLength) {
    double end = loopLength;
    double drift = 1;
    for (const TimePoint& point : points) {
        end = std::max({end, point.asked, point.served});
        drift = std::max(drift, std::abs(point.served - point.asked) * 1000);
    }
    const Panel times{70, 60, kWidth - 30, 400, 0, end, 0, end};
    const Panel drifts{70, 460, kWidth - 30, kHeight - 60, 0, end, -drift * 1.1, drift * 1.1};

    Svg svg(path);
    svg.text(70, 26, "start", "Frames served by the time asked for", "font-size=\"18\"");
    svg.text(kWidth - 30, 26, "end", "dashed: a loop begins", fmt::format("fill=\"{}\"", kLoop).c_str());
    drawAxes(svg, times, "time stamp served, in seconds", loopLength);
    drawAxes(svg, drifts, "served minus asked, in milliseconds", loopLength);
    svg.line(drifts.left, drifts.y(0), drifts.right, drifts.y(0), "#888");
    svg.text((drifts.left + drifts.right) / 2, kHeight - 18, "middle", "time asked for, in seconds");
    for (const TimePoint& point : points) {
        svg.dot(times.x(point.asked), times.y(point.served));
        svg.dot(drifts.x(point.asked), drifts.y((point.served - point.asked) * 1000));
    }
    svg.finish(path);
}

}  // namespace demo
