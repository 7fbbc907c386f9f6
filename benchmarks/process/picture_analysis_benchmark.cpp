// comparePictures(), alphaTrimmedRect() and getPlanesMD5() beside the least that can be done with the same
// bytes, and beside the loops that one would write first. "Hot": always the same pictures.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include <fmt/format.h>
#include <vidorra/vidorra.h>

#include "blend_pictures.h"
#include "limit_kernels.h"
#include "process/alphablend/kernels.h"
#include "support/measure.h"

extern "C" {
#include <libavutil/md5.h>
#include <libavutil/mem.h>
#include <libavutil/pixdesc.h>
}

namespace {

using namespace vidorra;
using bench::Comparison;
using bench::Options;
using bench::Stopwatch;

// Keeps the compiler from leaving out what computes the value.
void keep(long value) {
    asm volatile("" : : "r"(value) : "memory");
}

void add(Comparison& comparison, const std::string& name, int times, const std::function<long()>& once) {
    comparison.add(name, [=](Stopwatch& stopwatch) {
        stopwatch.start();
        for (int i = 0; i < times; ++i) {
            keep(once());
        }
        stopwatch.stop();
    });
}

// Plane after plane: its bytes in a row, its rows, and whether it has any.
struct PlaneShape {
    std::ptrdiff_t bytes;
    int rows;
};

PlaneShape planeShape(const Picture& picture, std::size_t plane) {
    const Size size = picture.frameSize();
    if (picture.pixelFormat() == AV_PIX_FMT_RGBA) {
        return plane == 0 ? PlaneShape{std::ptrdiff_t{4} * size.width, size.height} : PlaneShape{0, 0};
    }
    // NV12 and NVA12.
    constexpr int kHalved[] = {1, 2, 0, 1};
    return kHalved[plane] == 0 || picture.data()[plane] == nullptr
               ? PlaneShape{0, 0}
               : PlaneShape{size.width, size.height / kHalved[plane]};
}

template <class Call>
void forRows(const Picture& picture, const Call& call) {
    for (std::size_t plane = 0; plane < 4; ++plane) {
        const PlaneShape shape = planeShape(picture, plane);
        for (std::ptrdiff_t y = 0; y < shape.rows; ++y) {
            call(plane, y * picture.linesize()[plane], shape.bytes);
        }
    }
}

Picture noise(AVPixelFormat format, Size size) {
    Picture picture(size, format, AVCOL_RANGE_MPEG, 64);
    std::uint32_t state = 1;
    forRows(picture, [&](std::size_t plane, std::ptrdiff_t offset, std::ptrdiff_t bytes) {
        for (std::ptrdiff_t i = 0; i < bytes; ++i) {
            state = state * 1664525 + 1013904223;
            picture.data()[plane][offset + i] = static_cast<std::uint8_t>(state >> 24);
        }
    });
    return picture;
}

// Sample by sample of each component.
long naiveDifferences(const Picture& left, const Picture& right, unsigned tolerance) {
    const AVPixFmtDescriptor& descriptor = *av_pix_fmt_desc_get(left.pixelFormat());
    long result = 0;
    for (int i = 0; i < descriptor.nb_components; ++i) {
        const AVComponentDescriptor& component = descriptor.comp[i];
        const auto plane = static_cast<std::size_t>(component.plane);
        const bool chroma = (descriptor.flags & AV_PIX_FMT_FLAG_RGB) == 0 && (i == 1 || i == 2);
        const int width = left.frameSize().width >> (chroma ? descriptor.log2_chroma_w : 0);
        const int height = left.frameSize().height >> (chroma ? descriptor.log2_chroma_h : 0);
        for (std::ptrdiff_t y = 0; y < height; ++y) {
            const std::uint8_t* l = left.data()[plane] + y * left.linesize()[plane] + component.offset;
            const std::uint8_t* r = right.data()[plane] + y * right.linesize()[plane] + component.offset;
            for (std::ptrdiff_t x = 0; x < width; ++x) {
                const int difference = std::abs(l[x * component.step] - r[x * component.step]);
                result += static_cast<unsigned>(difference) > tolerance ? 1 : 0;
            }
        }
    }
    return result;
}

void benchmarkComparison(const char* format, AVPixelFormat pixelFormat, const Options& options) {
    const std::string title = fmt::format("comparePictures, equal {} 1080p, hot", format);
    if (!options.wants(title)) {
        return;
    }
    const Picture left = noise(pixelFormat, {1920, 1080});
    const Picture right = noise(pixelFormat, {1920, 1080});
    const int times = options.shortRun ? 1 : 5;
    Comparison comparison(title);
    add(comparison, "comparePictures", times,
        [&] { return comparePictures(left, right, 0, false, nullptr) ? 1 : 0; });
    add(comparison, "memcmp", times, [&] {
        long different = 0;
        forRows(left, [&](std::size_t plane, std::ptrdiff_t offset, std::ptrdiff_t bytes) {
            different += std::memcmp(left.data()[plane] + offset, right.data()[plane] + offset,
                                     static_cast<std::size_t>(bytes)) != 0
                             ? 1
                             : 0;
        });
        return different;
    });
    add(comparison, "the naive loop", times, [&] { return naiveDifferences(left, right, 0); });
    if (!comparePictures(left, right, 0, false, nullptr) || naiveDifferences(left, right, 0) != 0) {
        throw std::runtime_error("equal pictures differ");
    }
    comparison.run(options.repetitions);
    bench::report({title, "a pair", comparison.seconds("comparePictures") / times * 1e6, "us"});
    comparison.reportRatio("comparePictures", "memcmp", bench::atMost(1.5));
    comparison.reportTimes("comparePictures", "the naive loop", bench::atLeast(10));
}

// The alpha of a picture: a plane of NVA12, or the last byte of each pixel of RGBA.
struct Alpha {
    std::uint8_t* data;
    std::ptrdiff_t linesize;
    int step;

    explicit Alpha(const Picture& picture)
        : data(picture.pixelFormat() == AV_PIX_FMT_RGBA ? picture.data()[0] + 3 : picture.data()[3]),
          linesize(picture.linesize()[picture.pixelFormat() == AV_PIX_FMT_RGBA ? 0 : 3]),
          step(picture.pixelFormat() == AV_PIX_FMT_RGBA ? 4 : 1) {}

    [[nodiscard]] std::uint8_t& at(int x, int y) const { return data[y * linesize + x * step]; }
};

// Pixel by pixel from all four sides, as far as nothing shows: rows from above and below, columns from both
// ends.
Rect naiveTrimmedRect(const Picture& picture) {
    const Alpha alpha(picture);
    const Size size = picture.frameSize();
    const auto rowShows = [&](int y) {
        int x = 0;
        while (x < size.width && alpha.at(x, y) == 0) {
            ++x;
        }
        return x < size.width;
    };
    int top = 0;
    while (top < size.height && !rowShows(top)) {
        ++top;
    }
    int bottom = size.height;
    while (bottom > top && !rowShows(bottom - 1)) {
        --bottom;
    }
    const auto columnShows = [&](int x) {
        int y = top;
        while (y < bottom && alpha.at(x, y) == 0) {
            ++y;
        }
        return y < bottom;
    };
    int left = 0;
    while (left < size.width && !columnShows(left)) {
        ++left;
    }
    int right = size.width;
    while (right > left && !columnShows(right - 1)) {
        --right;
    }
    return {left, top, right - left, bottom - top};
}

// A disc with a soft edge in a rectangle of `screen`, and nothing else to see.
Picture logoPicture(AVPixelFormat format, Size screen, Rect logo) {
    Picture picture = noise(format, screen);
    const Alpha alpha(picture);
    for (int y = 0; y < screen.height; ++y) {
        for (int x = 0; x < screen.width; ++x) {
            const bool inside =
                x >= logo.x && x < logo.x + logo.width && y >= logo.y && y < logo.y + logo.height;
            alpha.at(x, y) = inside ? bench::alphaAt(bench::Shape::Logo, x - logo.x, y - logo.y, logo.width,
                                                     logo.height, 0)
                                    : 0;
        }
    }
    return picture;
}

void benchmarkTrimming(const char* name, const Picture& picture, const Options& options) {
    const std::string title = fmt::format("alphaTrimmedRect, {}, hot", name);
    if (!options.wants(title)) {
        return;
    }
    const Rect ours = alphaTrimmedRect(picture);
    const Rect naive = naiveTrimmedRect(picture);
    // Ours may be larger by what makes whole chroma samples.
    if (ours.intersected(naive) != naive || ours.width > naive.width + 2 || ours.height > naive.height + 2) {
        throw std::runtime_error(fmt::format("{}: not the same rectangle", title));
    }
    const bench::LimitKernels& limit = bench::limitKernels(alphablend::kernels().name);
    const bool packed = picture.pixelFormat() == AV_PIX_FMT_RGBA;
    const std::size_t plane = packed ? 0 : 3;
    const auto bytes = static_cast<std::size_t>(planeShape(picture, plane).bytes);
    const int times = options.shortRun ? 1 : 20;
    Comparison comparison(title);
    add(comparison, "alphaTrimmedRect", times, [&] { return alphaTrimmedRect(picture).width; });
    add(comparison, "reading", times, [&] {
        long any = 0;
        for (std::ptrdiff_t y = 0; y < picture.frameSize().height; ++y) {
            any |= limit.any(picture.data()[plane] + y * picture.linesize()[plane], bytes);
        }
        return any;
    });
    add(comparison, "the naive loop", times, [&] { return naiveTrimmedRect(picture).width; });
    comparison.run(options.repetitions);
    bench::report({title, "a picture", comparison.seconds("alphaTrimmedRect") / times * 1e6, "us"});
    comparison.reportRatio("alphaTrimmedRect", "reading", bench::atMost(3));
    comparison.reportTimes("alphaTrimmedRect", "the naive loop", bench::atLeast(5));
}

void benchmarkMd5(const char* format, AVPixelFormat pixelFormat, const Options& options) {
    const std::string title = fmt::format("getPlanesMD5, {} 1080p, hot", format);
    if (!options.wants(title)) {
        return;
    }
    const Picture picture = noise(pixelFormat, {1920, 1080});
    const auto plainly = [&] {
        const std::unique_ptr<AVMD5, void (*)(void*)> md5(av_md5_alloc(), av_free);
        av_md5_init(md5.get());
        for (std::size_t plane = 0; plane < 4; ++plane) {
            const PlaneShape shape = planeShape(picture, plane);
            if (shape.rows > 0 && shape.bytes != picture.linesize()[plane]) {
                throw std::runtime_error("rows with a gap between them");
            }
            av_md5_update(md5.get(), picture.data()[plane], static_cast<int>(shape.bytes * shape.rows));
        }
        std::uint8_t digest[16];
        av_md5_final(md5.get(), digest);
        std::string text;
        for (const std::uint8_t byte : digest) {
            text += fmt::format("{:02x}", byte);
        }
        return text;
    };
    if (plainly() != getPlanesMD5(picture)) {
        throw std::runtime_error(fmt::format("{}: not the same sum", title));
    }
    Comparison comparison(title);
    add(comparison, "getPlanesMD5", 1, [&] { return getPlanesMD5(picture)[0]; });
    add(comparison, "av_md5", 1, [&] { return plainly()[0]; });
    comparison.run(options.repetitions);
    bench::report({title, "a picture", comparison.seconds("getPlanesMD5") * 1e6, "us"});
    comparison.reportRatio("getPlanesMD5", "av_md5", bench::atMost(1.02));
}

}  // namespace

int main(int argc, char** argv) try {
    const Options options = bench::parseOptions(argc, argv, 31);
    benchmarkComparison("NV12", AV_PIX_FMT_NV12, options);
    benchmarkComparison("RGBA", AV_PIX_FMT_RGBA, options);
    const Size screen{1920, 1080};
    const Size small{640, 360};
    const Rect whole{0, 0, 640, 360};
    const Rect part{1200, 60, 640, 360};
    benchmarkTrimming("640x360 NVA12 disc", logoPicture(NVA12, small, whole), options);
    benchmarkTrimming("640x360 RGBA disc", logoPicture(AV_PIX_FMT_RGBA, small, whole), options);
    benchmarkTrimming("disc on 1080p NVA12", logoPicture(NVA12, screen, part), options);
    benchmarkTrimming("disc on 1080p RGBA", logoPicture(AV_PIX_FMT_RGBA, screen, part), options);
    benchmarkMd5("NV12", AV_PIX_FMT_NV12, options);
    benchmarkMd5("RGBA", AV_PIX_FMT_RGBA, options);
} catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
}
