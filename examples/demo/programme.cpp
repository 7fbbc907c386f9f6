#include "programme.h"

#include <algorithm>
#include <cmath>

namespace demo {
namespace {

using vidorra::CheckColorRange;
using vidorra::Color;
using vidorra::Picture;
using vidorra::Point;
using vidorra::Rect;
using vidorra::Size;

constexpr int kThreads = 2;

// From this many pixels on, what windows hide of each other is cut away.
constexpr unsigned kSmallestCut = 32 * 32;

constexpr double kFadeSeconds = 1.5;

Size part(Size size, int numerator, int denominator) {
    return {size.width * numerator / denominator & ~1, size.height * numerator / denominator & ~1};
}

Picture plain(Size size, Color color) {
    Picture picture(size, Programme::kFormat, Programme::kRange, 32);
    vidorra::fillRectangle(picture, color);
    return picture;
}

// A plate with a bright frame, half transparent.
Picture makePlate(Size size) {
    Picture plate(size, vidorra::NVA12, Programme::kRange, 32);
    vidorra::fillRectangle(plate, Color(255, 255, 255, 160));
    vidorra::fillRectangle(plate, {6, 6, size.width - 12, size.height - 12}, Color(20, 60, 140, 128));
    vidorra::fillRectangle(plate, {size.width / 4, size.height / 3, size.width / 2, size.height / 3},
                           Color(255, 200, 40, 128));
    return plate;
}

// Three windows on the right, each over a part of the one before.
std::vector<vidorra::VideoFrame> makeWindows(Size canvas) {
    const Size size = part(canvas, 1, 6);
    std::vector<vidorra::VideoFrame> windows;
    int step = 0;
    for (const Color color : {Color(190, 60, 50), Color(60, 150, 80), Color(60, 90, 190)}) {
        Picture window = plain(size, Color(235, 235, 235));
        vidorra::fillRectangle(window, {4, 4, size.width - 8, size.height - 8}, color);
        vidorra::VideoFrame frame(std::move(window), vidorra::Timestamp(), vidorra::Frame::NoFlags);
        const Size offset = part(size, 2 * step, 5);
        frame.setPosition(
            {(canvas.width * 3 / 4 + offset.width / 2) & ~1, (canvas.height / 2 + offset.height) & ~1});
        windows.push_back(std::move(frame));
        ++step;
    }
    vidorra::optimizeOverlays(windows, kSmallestCut);
    return windows;
}

}  // namespace

Programme::Programme(Size size, const std::string& font)
    : mSize(size),
      mBlack(plain(size, Color(0, 0, 0))),
      mPlate(makePlate(part(size, 1, 4))),
      mWindows(makeWindows(size)) {
    mScaler.setAlgorithm(vidorra::Scaler::ScalingAlgorithm::FastBilinear);
    if (!font.empty()) {
        mTitle.emplace(font, std::max(12, size.height / 9));
        mTitle->setBackgroundColor(Color(0, 0, 0, 0));
        mTimecode.emplace(font, std::max(10, size.height / 20));
        mTimecode->setFontColor(Color(255, 255, 255));
        mTimecode->setPadding(size.height / 60, size.height / 90, size.height / 60, size.height / 90);
    }
}

Picture Programme::onCanvas(const Picture& picture) {
    Picture source = picture;
    if (source.frameSize() == mSize && source.colorRange() != kRange) {
        // Where the size stays, the range is changed by itself.
        source = vidorra::ColorSpaceConverter::convertTo(source, AV_PIX_FMT_YUV420P, kRange);
    }
    Picture canvas = mScaler.scale(source, mSize, kFormat, kRange);
    // It shares the decoder's pixels when nothing had to change.
    canvas.makeEditable();
    return canvas;
}

Picture Programme::compose(const Picture& played, double seconds, const std::string& timecode) {
    Picture canvas = onCanvas(played);
    for (const vidorra::VideoFrame& window : mWindows) {
        vidorra::compose(canvas, window.picture(), window.position(), CheckColorRange::Yes, 1.0, kThreads);
    }
    const Size room{mSize.width - mPlate.frameSize().width, mSize.height - mPlate.frameSize().height};
    const Point place{static_cast<int>(room.width * (0.5 + 0.5 * std::sin(seconds))),
                      static_cast<int>(room.height * (0.5 + 0.5 * std::cos(seconds * 1.7)))};
    vidorra::compose(canvas, mPlate, place, CheckColorRange::Yes, 1.0, kThreads);
    if (mTitle) {
        drawTexts(canvas, seconds, timecode);
    }
    return canvas;
}

void Programme::drawTexts(Picture& canvas, double seconds, const std::string& timecode) {
    const int margin = mSize.height / 20;
    const auto alpha = static_cast<std::uint8_t>(255 * std::min(1.0, seconds / kFadeSeconds));
    mTitle->setFontColor(Color(255, 255, 255, alpha));
    const Picture title = mTitle->render("libvidorra", kFormat, kRange, Size{}, Rect{});
    vidorra::compose(canvas, title, {(mSize.width - title.frameSize().width) / 2, margin},
                     CheckColorRange::Yes, 1.0, kThreads);
    const Picture clock = mTimecode->render(timecode, kFormat, kRange, Size{}, Rect{});
    vidorra::compose(canvas, clock, {margin, mSize.height - margin - clock.frameSize().height},
                     CheckColorRange::Yes, 1.0, kThreads);
}

}  // namespace demo
