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

// Hidden parts of windows are cut away if they have at least this many pixels.
constexpr unsigned kSmallestCut = 32 * 32;

constexpr double kFadeSeconds = 1.5;

Size part(Size size, int numerator, int denominator) {
    return {size.width * numerator / denominator & ~1, size.height * numerator / denominator & ~1};
}

Picture plain(vidorra::PictureAllocator& allocator, Size size, Color color) {
    Picture picture = allocator.allocate(size, Programme::kFormat, Programme::kRange);
    vidorra::fillRectangle(picture, color);
    return picture;
}

// A plate with a bright frame, half transparent.
Picture makePlate(vidorra::PictureAllocator& allocator, Size size) {
    Picture plate = allocator.allocate(size, vidorra::NVA12, Programme::kRange);
    vidorra::fillRectangle(plate, Color(255, 255, 255, 160));
    vidorra::fillRectangle(plate, {6, 6, size.width - 12, size.height - 12}, Color(20, 60, 140, 128));
    vidorra::fillRectangle(plate, {size.width / 4, size.height / 3, size.width / 2, size.height / 3},
                           Color(255, 200, 40, 128));
    return plate;
}

// Three windows on the right, each over a part of the one before.
std::vector<vidorra::VideoFrame> makeWindows(vidorra::PictureAllocator& allocator, Size canvas) {
    const Size size = part(canvas, 1, 6);
    std::vector<vidorra::VideoFrame> windows;
    int step = 0;
    for (const Color color : {Color(190, 60, 50), Color(60, 150, 80), Color(60, 90, 190)}) {
        Picture window = plain(allocator, size, Color(235, 235, 235));
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

Programme::Programme(Size size, const std::string& font, Accelerator* accelerator)
    : mSize(size),
      mAccelerator(accelerator),
      mAllocator(accelerator != nullptr ? accelerator->memory() : *vidorra::getDefaultPictureAllocator()),
      mBlack(plain(mAllocator, size, Color(0, 0, 0))),
      mPlate(makePlate(mAllocator, part(size, 1, 4))),
      mWindows(makeWindows(mAllocator, size)) {
    mScaler.setAlgorithm(vidorra::Scaler::ScalingAlgorithm::FastBilinear);
    if (!font.empty()) {
        mTitle.emplace(font, std::max(12, size.height / 9));
        mTitle->setBackgroundColor(Color(0, 0, 0, 0));
        mTitle->setPictureAllocator(&mAllocator);
        mTimecode.emplace(font, std::max(10, size.height / 20));
        mTimecode->setFontColor(Color(255, 255, 255));
        mTimecode->setPictureAllocator(&mAllocator);
        mTimecode->setPadding(size.height / 60, size.height / 90, size.height / 60, size.height / 90);
    }
}

Picture Programme::onCanvas(const Picture& picture) {
    // A picture with an unspecified range counts as limited.
    const AVColorRange range = picture.colorRange() == kRange ? kRange : AVCOL_RANGE_MPEG;
    const Size size = mAccelerator != nullptr ? picture.frameSize() : mSize;
    Picture source = mScaler.scale(picture, size, AV_PIX_FMT_YUV420P, range);
    if (source.colorRange() == AVCOL_RANGE_MPEG) {
        // Changing the range separately, at the same size, is exact, and many times faster than during
        // scaling.
        source = vidorra::ColorSpaceConverter::convertTo(source, AV_PIX_FMT_YUV420P, kRange);
    }
    if (mAccelerator != nullptr) {
        // The accelerator only scales pictures in its memory.
        source = vidorra::ColorSpaceConverter::convertTo(&mAllocator, source, kFormat, kRange);
        return mAccelerator->scaler().scale(source, mSize, false);
    }
    Picture canvas = mInterleaver.convertToColorspace(source, kFormat, kRange);
    // The canvas shares the decoder's pixels if nothing had to change.
    canvas.makeEditable();
    return canvas;
}

void Programme::draw(Picture& canvas, const Picture& overlay, Point place) const {
    if (mAccelerator != nullptr) {
        mAccelerator->composer().compose(canvas, overlay, place, 1.0, false);
    } else {
        vidorra::compose(canvas, overlay, place, CheckColorRange::Yes, 1.0, kThreads);
    }
}

Picture Programme::compose(const Picture& played, double seconds, const std::string& timecode) {
    Picture canvas = onCanvas(played);
    for (const vidorra::VideoFrame& window : mWindows) {
        draw(canvas, window.picture(), window.position());
    }
    const Size room{mSize.width - mPlate.frameSize().width, mSize.height - mPlate.frameSize().height};
    const Point place{static_cast<int>(room.width * (0.5 + 0.5 * std::sin(seconds))),
                      static_cast<int>(room.height * (0.5 + 0.5 * std::cos(seconds * 1.7)))};
    draw(canvas, mPlate, place);
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
    draw(canvas, title, {(mSize.width - title.frameSize().width) / 2, margin});
    const Picture clock = mTimecode->render(timecode, kFormat, kRange, Size{}, Rect{});
    draw(canvas, clock, {margin, mSize.height - margin - clock.frameSize().height});
}

}  // namespace demo
