// All operations on pictures in each pixel format, on planes directly before or after inaccessible memory:
// an access outside a plane ends the test program.

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <new>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "picture/picture_probe.h"
#include "vidorra/core/enum_text.h"
#include "vidorra/picture/default_picture_allocator.h"
#include "vidorra/process/apply_lut.h"
#include "vidorra/process/chroma_keying.h"
#include "vidorra/process/compose.h"
#include "vidorra/process/drawing.h"
#include "vidorra/process/picture_analysis.h"
#include "vidorra/process/scaler.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace vidorra {
namespace {

enum class At { Begin, End };

// Memory whose first byte follows an inaccessible page, or whose last byte precedes one.
class GuardedMemory {
public:
    GuardedMemory(std::size_t size, At at)
        : mWhole((size + 3 * kPage - 1) / kPage * kPage),
          mPages(mmap(nullptr, mWhole, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)) {
        if (mPages == MAP_FAILED ||
            mprotect(begin() + kPage, mWhole - 2 * kPage, PROT_READ | PROT_WRITE) != 0) {
            throw std::bad_alloc();
        }
        mData = at == At::Begin ? begin() + kPage : begin() + mWhole - kPage - size;
    }
    GuardedMemory(const GuardedMemory&) = delete;
    GuardedMemory& operator=(const GuardedMemory&) = delete;
    ~GuardedMemory() { munmap(mPages, mWhole); }

    [[nodiscard]] std::uint8_t* data() const { return mData; }

private:
    static constexpr std::size_t kPage = 4096;

    [[nodiscard]] std::uint8_t* begin() const { return static_cast<std::uint8_t*>(mPages); }

    std::size_t mWhole;
    void* mPages;
    std::uint8_t* mData = nullptr;
};

// A picture full of noise, each plane in guarded memory of its own that ends with the last pixel.
Picture guardedPicture(AVPixelFormat format, Size size, At at, AVColorRange range = AVCOL_RANGE_MPEG) {
    const test::FramePtr frame = test::newFrame(size, format, range);
    const auto shapes = test::planeShapes(format, size);
    int buffers = 0;
    for (std::size_t plane = 0; plane < shapes.size(); ++plane) {
        const auto [bytes, rows] = shapes[plane];
        if (bytes * rows < 1) {
            continue;
        }
        const int linesize = bytes + 12;
        const auto length = static_cast<std::size_t>(linesize * (rows - 1) + bytes);
        auto* memory = new GuardedMemory(length, at);
        const auto release = [](void* opaque, std::uint8_t*) { delete static_cast<GuardedMemory*>(opaque); };
        frame->buf[buffers] = av_buffer_create(
            memory->data(), static_cast<decltype(AVBufferRef::size)>(length), release, memory, 0);
        frame->data[plane] = frame->buf[buffers++]->data;
        frame->linesize[plane] = linesize;
    }
    if (buffers == 0) {
        // A device format: there are no pixels in memory.
        return Picture(MemBuffer(8, true), size, frame->data, frame->linesize, format, range);
    }
    Picture picture(frame.get());
    av_frame_unref(frame.get());
    test::fillWithNoise(picture, 3);
    return picture;
}

constexpr Size kSizes[] = {{1, 1}, {2, 2}, {3, 5}, {13, 7}, {16, 8}, {33, 9}};

std::vector<AVPixelFormat> allFormats() {
    std::vector<AVPixelFormat> formats = {NVA12};
    for (const AVPixFmtDescriptor* each = av_pix_fmt_desc_next(nullptr); each != nullptr;
         each = av_pix_fmt_desc_next(each)) {
        const AVPixelFormat format = av_pix_fmt_desc_get_id(each);
        if (format != NVA12) {
            formats.push_back(format);
        }
    }
    return formats;
}

class EveryPixelFormat : public testing::TestWithParam<At> {
protected:
    // Calls `check` with a picture of each format and size.
    template <class Check>
    void forEach(const Check& check) {
        for (const AVPixelFormat format : allFormats()) {
            for (const Size size : kSizes) {
                SCOPED_TRACE(testing::Message() << format << " of " << size);
                Picture picture = guardedPicture(format, size, GetParam());
                check(picture);
            }
        }
    }

    // The same with views too, each the only owner of the memory.
    template <class Check>
    void forEachAndViews(const Check& check) {
        forEach([&](Picture& picture) {
            check(picture);
            const Size size = picture.frameSize();
            for (const Rect& rect :
                 {Rect{size.width / 2, size.height / 2, size.width, size.height}, Rect{1, 1, size.width, 2},
                  Rect{size.width, 0, 4, size.height}, Rect{-1, -1, 4, 4}}) {
                Picture source = guardedPicture(picture.pixelFormat(), size, GetParam());
                Picture view = source.crop(rect);
                source = Picture();
                SCOPED_TRACE(testing::Message() << "view of " << rect);
                check(view);
            }
        });
    }

    static bool hasPixels(const Picture& picture) {
        return picture.data()[0] != nullptr && picture.frameSize().width > 0 &&
               picture.frameSize().height > 0;
    }
    static const AVPixFmtDescriptor* descriptorOf(AVPixelFormat format) {
        return format == NVA12 ? av_pix_fmt_desc_get(AV_PIX_FMT_YUVA420P) : av_pix_fmt_desc_get(format);
    }
};

INSTANTIATE_TEST_SUITE_P(, EveryPixelFormat, testing::Values(At::Begin, At::End), [](const auto& each) {
    return std::string(each.param == At::Begin ? "AfterAGuard" : "BeforeAGuard");
});

TEST_P(EveryPixelFormat, IsCroppedToViewsWithinItsMemory) {
    int pixels = 0;
    forEach([&](const Picture& picture) {
        for (int x = -1; x < 10; ++x) {
            for (const int width : {1, 2, 5, 8, 40}) {
                const Picture view = picture.crop({x, x / 2, width, width});
                if (hasPixels(view)) {
                    pixels += test::pixelsOf(view).empty() ? 0 : 1;
                }
            }
        }
    });
    EXPECT_GT(pixels, 1000);
}

TEST_P(EveryPixelFormat, IsMappedThroughATable) {
    const std::vector<unsigned char> inverse = [] {
        std::vector<unsigned char> table(256);
        for (std::size_t i = 0; i < table.size(); ++i) {
            table[i] = static_cast<unsigned char>(255 - i);
        }
        return table;
    }();
    int mapped = 0;
    forEachAndViews([&](Picture& picture) {
        const auto before = test::pixelsOf(picture);
        for (int component = 0; component < descriptorOf(picture.pixelFormat())->nb_components; ++component) {
            applyLUT(picture, component, inverse);
            mapped += test::pixelsOf(picture) == before ? 0 : 1;
            applyLUT(picture, component, inverse);
            ASSERT_EQ(test::pixelsOf(picture), before) << "component " << component;
        }
    });
    EXPECT_GT(mapped, 1000);
}

TEST_P(EveryPixelFormat, IsComposed) {
    int drawn = 0;
    forEachAndViews([&](Picture& picture) {
        for (const AVPixelFormat format : {picture.pixelFormat(), NVA12}) {
            const Picture overlay = guardedPicture(format, {7, 5}, GetParam());
            const Picture part = overlay.crop({1, 1, 5, 3});
            for (const double opacity : {1.0, 0.5}) {
                try {
                    for (const Point& position : {Point{0, 0}, Point{-3, -1}, Point{5, 3}, Point{1, 1}}) {
                        compose(picture, overlay, position, CheckColorRange::Yes, opacity, 1);
                        compose(picture, part, position, CheckColorRange::Yes, opacity, 1);
                        ++drawn;
                    }
                } catch (const std::runtime_error&) {
                    // These cannot be blended.
                }
            }
        }
    });
    EXPECT_GT(drawn, 1000);
}

TEST_P(EveryPixelFormat, IsFilled) {
    int filled = 0;
    forEachAndViews([&](Picture& picture) {
        fillWithDebugData(picture);
        for (const Rect& rect : {Rect{0, 0, 100, 100}, Rect{1, 1, 3, 3}, Rect{-2, -2, 5, 5}}) {
            try {
                fillRectangle(picture, rect, Color(10, 100, 200, 50));
                ++filled;
            } catch (const std::runtime_error&) {
                // It cannot be drawn on.
            }
        }
    });
    EXPECT_GT(filled, 1000);
}

TEST_P(EveryPixelFormat, IsKeyedWhereThatNeedsNoConversion) {
    int keyed = 0;
    forEachAndViews([&](Picture& picture) {
        try {
            if (picture.pixelFormat() == AV_PIX_FMT_YUV420P || picture.pixelFormat() == AV_PIX_FMT_YUVA420P) {
                keyed += chromaKeying(picture, Color(), 0.F, 0.F).empty() ? 0 : 1;
            }
        } catch (const std::runtime_error&) {
            EXPECT_FALSE(hasPixels(picture));
        }
        try {
            chromaKeyingInPlace(picture, Color(), 0.F, 0.F);
            ++keyed;
        } catch (const std::runtime_error&) {
            EXPECT_NE(picture.pixelFormat(), AV_PIX_FMT_YUVA420P);
        }
    });
    EXPECT_GT(keyed, 20);
}

TEST_P(EveryPixelFormat, IsBroughtToFullRange) {
    int converted = 0;
    forEachAndViews([&](const Picture& picture) {
        converted +=
            tryConvertColorRange(getDefaultPictureAllocator(), picture, AV_PIX_FMT_YUV420P, AVCOL_RANGE_JPEG)
                    .empty()
                ? 0
                : 1;
    });
    EXPECT_GT(converted, 20);
}

TEST_P(EveryPixelFormat, IsComparedAndSummedUp) {
    int compared = 0;
    forEachAndViews([&](const Picture& picture) {
        const Size size = picture.frameSize();
        ASSERT_EQ(getPlanesMD5(picture).size(), 32U);
        static_cast<void>(alphaTrimmedRect(picture));
        if (!hasPixels(picture)) {
            return;
        }
        const Picture copy(size, picture.data().data(), picture.linesize().data(), picture.pixelFormat(),
                           picture.colorRange(), 64);
        EXPECT_EQ(getPlanesMD5(copy), getPlanesMD5(picture));
        EXPECT_EQ(alphaTrimmedRect(copy), alphaTrimmedRect(picture));
        try {
            EXPECT_TRUE(comparePictures(picture, copy, 0, false, nullptr));
            ++compared;
        } catch (const std::runtime_error&) {
            // Its samples have more or fewer than 8 bits.
        }
    });
    EXPECT_GT(compared, 100);
}

}  // namespace
}  // namespace vidorra
