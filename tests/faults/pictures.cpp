// Pictures: their memory, their parts and their files.
#include <array>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "faults/digest.h"
#include "faults/scenario.h"
#include "faults/test_pictures.h"
#include "support/media.h"
#include "vidorra/core/av_ptr.h"
#include "vidorra/core/bad_cast.h"
#include "vidorra/core/enum_text.h"
#include "vidorra/image_file/picture_file.h"
#include "vidorra/picture/best_fit_picture_allocator.h"
#include "vidorra/picture/default_picture_allocator.h"

extern "C" {
#include <libavcodec/codec_id.h>
#include <libavutil/frame.h>
}

namespace vidorra::test {
namespace {

constexpr Size kSize{64, 48};

class Pictures : public Scenario {
public:
    std::uint64_t run() override {
        Digest digest;
        for (const AVPixelFormat format : {AV_PIX_FMT_YUV420P, AV_PIX_FMT_NV12, NVA12, AV_PIX_FMT_RGBA}) {
            const Picture original = testPicture(kSize, format);
            Picture copy = original;
            const Picture part = copy.crop(Rect{8, 8, 24, 16});
            copy.makeEditable();
            *copy.data()[0] = 1;
            copy.markModified();
            copy.copyFrom(original);
            VideoFrame frame(copy, Timestamp(Timebase(), 5), Frame::NoFlags);
            frame.metadata().addValue("a key that is long enough to need memory", "value");
            const VideoFrame copied = frame;
            digest.add(part);
            digest.add(copied);
            digest.add(copied.debugDescription());
            for (const VideoFrame& piece : frame.subtract(Rect{8, 8, 24, 16})) {
                digest.add(piece);
            }
            if (format != NVA12) {
                const AvPtr<AVFrame> shared = frame.toAvFrame();
                digest.add(Picture(shared.get()));
            }
        }
        digest.add(Picture(testPicture(kSize, AV_PIX_FMT_NV12), testPicture(kSize, AV_PIX_FMT_GRAY8)));
        return digest.value();
    }

    std::uint64_t runAgain() override { return run(); }
};

// A region that is filled: what is lost of it shows afterwards.
class Allocator : public Scenario {
public:
    std::uint64_t run() override {
        Digest digest;
        std::vector<Picture> pictures;
        for (int round = 0; round < 3; ++round) {
            for (int i = 1; i <= 4; ++i) {
                pictures.push_back(
                    mAllocator.allocate(Size{32 * i, 16 * (round + 1)}, AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG));
                digest.add(static_cast<long>(pictures.back().data()[0] - mRegion->data()));
            }
            pictures.erase(pictures.begin());
        }
        return digest.value();
    }

    std::uint64_t runAgain() override {
        // As many as there is room for, whatever happened before.
        int count = 0;
        std::vector<Picture> pictures;
        try {
            for (;;) {
                pictures.push_back(mAllocator.allocate(Size{256, 32}, AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG));
                ++count;
            }
        } catch (const std::bad_alloc&) {
            return static_cast<std::uint64_t>(count);
        }
    }

private:
    static constexpr std::size_t kBlock = 4096;
    struct alignas(kBlock) Region : std::array<std::uint8_t, 32 * kBlock> {};

    std::unique_ptr<Region> mRegion = std::make_unique<Region>();
    BestFitPictureAllocator mAllocator{mRegion->data(), mRegion->size(), 32, kBlock, false};
};

class PictureFiles : public Scenario {
public:
    std::uint64_t run() override {
        Digest digest;
        // What cannot be converted for want of memory is empty, and an empty picture has no format.
        try {
            savePicture(mPicture, mPng, AV_CODEC_ID_NONE);
        } catch (const BadCast& error) {
            throw std::runtime_error(error.what());
        }
        for (const AVPixelFormat format : {AV_PIX_FMT_NV12, AV_PIX_FMT_NONE}) {
            const Picture loaded = loadPicture(mPng, format, AVCOL_RANGE_MPEG);
            if (loaded.empty()) {
                throw std::runtime_error("no scaler");
            }
            digest.add(loaded);
        }
        try {
            digest.add(loadPictureFromYUV420PFile(mRaw, kSize, AVCOL_RANGE_MPEG));
        } catch (const std::invalid_argument& error) {
            // A file that cannot be opened counts as empty.
            throw std::runtime_error(error.what());
        }
        return digest.value();
    }

    std::uint64_t runAgain() override { return run(); }

private:
    Picture mPicture = testPicture(kSize, AV_PIX_FMT_YUV420P);
    std::string mPng = temporaryFolder() / "faults.png";
    std::string mRaw = temporaryFile("faults.yuv", std::string(64 * 48 * 3 / 2, '\x55'));
};

}  // namespace

std::vector<NamedScenario> pictureScenarios() {
    return {{"pictures", makeScenario<Pictures>},
            {"allocator", makeScenario<Allocator>},
            {"picture_files", makeScenario<PictureFiles>}};
}

}  // namespace vidorra::test
