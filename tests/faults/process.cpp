// What changes pixels.
#include <stdexcept>
#include <vector>

#include "faults/digest.h"
#include "faults/scenario.h"
#include "faults/test_pictures.h"
#include "vidorra/core/enum_text.h"
#include "vidorra/process/apply_lut.h"
#include "vidorra/process/chroma_keying.h"
#include "vidorra/process/color_space_converter.h"
#include "vidorra/process/compose.h"
#include "vidorra/process/drawing.h"
#include "vidorra/process/optimize_overlays.h"
#include "vidorra/process/picture_analysis.h"
#include "vidorra/process/scaler.h"

namespace vidorra::test {
namespace {

constexpr Size kSize{64, 48};

void draw(Picture& screen, const Picture& overlay, Point position, int threads) {
    compose(screen, overlay, position, CheckColorRange::Yes, 1.0, threads);
}

// By one thread, and by four.
class Composing : public Scenario {
public:
    std::uint64_t run() override {
        Digest digest;
        for (const AVPixelFormat format : {AV_PIX_FMT_NV12, AV_PIX_FMT_RGBA, AV_PIX_FMT_YUV420P}) {
            for (const int threads : {1, 4}) {
                Picture screen = testPicture(kSize, format);
                fillRectangle(screen, Rect{4, 4, 20, 20}, Color("orange"));
                draw(screen, testPicture(Size{32, 24}, format), Point{-4, 30}, threads);
                if (format == AV_PIX_FMT_NV12) {
                    draw(screen, testPicture(Size{32, 24}, NVA12), Point{10, 10}, threads);
                }
                digest.add(screen);
            }
        }
        return digest.value();
    }

    std::uint64_t runAgain() override { return run(); }
};

// Scalers report by an empty picture that there is no memory for their context.
Picture made(Picture picture) {
    if (picture.empty()) {
        throw std::runtime_error("no scaler");
    }
    return picture;
}

class Scaling : public Scenario {
public:
    std::uint64_t run() override {
        Digest digest;
        FirstFailure failure;
        for (const Size size : {Size{32, 24}, Size{32, 24}, kSize, Size{100, 30}}) {
            for (const AVPixelFormat format : {AV_PIX_FMT_NV12, AV_PIX_FMT_RGBA}) {
                failure.during(
                    [&] { digest.add(made(mScaler.scale(mPicture, size, format, AVCOL_RANGE_MPEG))); });
            }
        }
        failure.during([&] { digest.add(made(mConverter.convert(mPicture))); });
        failure.during([&] {
            digest.add(made(mConverter.convert(testPicture(Size{40, 40}, AV_PIX_FMT_RGB24))));
        });
        failure.rethrow();
        return digest.value();
    }

    std::uint64_t runAgain() override { return run(); }

private:
    Picture mPicture = testPicture(kSize, AV_PIX_FMT_YUV420P);
    Scaler mScaler;
    ColorSpaceConverter mConverter{AV_PIX_FMT_YUV420P, AVCOL_RANGE_JPEG};
};

class Retouching : public Scenario {
public:
    std::uint64_t run() override {
        Digest digest;
        for (const AVPixelFormat format : {AV_PIX_FMT_YUV420P, AV_PIX_FMT_RGBA}) {
            Picture picture = testPicture(kSize, format);
            applyLUT(picture, 1, std::vector<unsigned char>(256, 77));
            fillWithDebugData(picture);
            digest.add(picture);
            digest.add(chromaKeying(picture, Color("green"), 0.1F, 0.2F));
            digest.add(getPlanesMD5(picture));
            digest.add(comparePictures(picture, testPicture(kSize, format), 2, false, nullptr));
            digest.add(alphaTrimmedRect(picture).width);
        }
        return digest.value();
    }

    std::uint64_t runAgain() override { return run(); }
};

// The same list again and again: what had been cut stays so, and the picture does too.
class Overlays : public Scenario {
public:
    std::uint64_t run() override {
        FirstFailure failure;
        failure.during([&] { optimizeOverlays(mOverlays, 0); });
        failure.rethrow();
        return drawn();
    }

    std::uint64_t runAgain() override {
        optimizeOverlays(mOverlays, 0);
        return drawn();
    }

private:
    static std::vector<VideoFrame> overlays() {
        std::vector<VideoFrame> list;
        for (int i = 0; i < 5; ++i) {
            Picture picture = testPicture(Size{64 - 8 * i, 48 - 4 * i}, AV_PIX_FMT_NV12);
            fillRectangle(picture, Rect{2 * i, i, 10, 10}, Color("orange"));
            list.emplace_back(picture, Timestamp(), Frame::NoFlags);
            list.back().setPosition(Point{5 * i, 3 * i});
            list.back().metadata().addValue("name", "a text that is too long for a short string");
        }
        return list;
    }

    std::uint64_t drawn() {
        Picture screen = testPicture(Size{80, 60}, AV_PIX_FMT_NV12);
        for (const VideoFrame& overlay : mOverlays) {
            draw(screen, overlay.picture(), overlay.position(), 1);
        }
        Digest digest;
        digest.add(screen);
        return digest.value();
    }

    std::vector<VideoFrame> mOverlays = overlays();
};

}  // namespace

std::vector<NamedScenario> processScenarios() {
    return {{"composing", makeScenario<Composing>},
            {"scaling", makeScenario<Scaling>},
            {"retouching", makeScenario<Retouching>},
            {"overlays", makeScenario<Overlays>}};
}

}  // namespace vidorra::test
