// The same scenes on the CPU and with the accelerator classes, with everything that a device would have:
// shared memory, flushes, and its file.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "picture/region.h"
#include "platform/udmabuf/device_files.h"
#include "process/z5/device_pictures.h"
#include "support/descriptors.h"
#include "support/media.h"
#include "vidorra/picture/best_fit_picture_allocator.h"
#include "vidorra/picture/udmabuf_picture_allocator.h"
#include "vidorra/process/compose.h"
#include "vidorra/process/scaler.h"
#include "vidorra/process/z5/picture_composer.h"
#include "vidorra/process/z5/picture_scaler.h"

namespace vidorra::z5 {
namespace {

constexpr std::size_t kMemory = 256 * 1024;

// The device's memory and a twin on the heap, with pictures at the same positions.
class HardwareRoad : public testing::Test {
protected:
    HardwareRoad() : mHeap(mTwin.data(), mTwin.size(), 32, UdmaBuf::pageSize(), false) {
        std::memset(mTwin.data(), 0, mTwin.size());
    }

    int random(int from, int to) {
        return from + static_cast<int>(mRandom() % static_cast<unsigned>(to - from + 1));
    }

    struct Twins {
        Picture device;
        Picture heap;
    };

    // A picture full of noise, with an alpha plane that has runs of none and full.
    Twins pictures(Size size, AVPixelFormat format) {
        Twins result{mDevice.allocate(size, format, AVCOL_RANGE_MPEG),
                     mHeap.allocate(size, format, AVCOL_RANGE_MPEG)};
        const Picture& picture = result.device;
        for (std::size_t plane : {0, 1, 3}) {
            std::uint8_t* const data = picture.data()[plane];
            if (data == nullptr) {
                continue;
            }
            const int rows = plane == 1 ? (size.height + 1) / 2 : size.height;
            const int bytes = rows * picture.linesize()[plane];
            for (int i = 0; i < bytes; ++i) {
                data[i] = static_cast<std::uint8_t>(mRandom());
                if (plane == 3 && i / 16 % 3 != 0) {
                    data[i] = i / 16 % 3 == 1 ? 0 : 255;
                }
            }
            std::memcpy(result.heap.data()[plane], data, static_cast<std::size_t>(bytes));
        }
        return result;
    }

    // Where the device's memory and its twin differ, or an empty text.
    std::string difference() const {
        const std::string device = test::fileContent(mFiles.device());
        const auto* const bytes = reinterpret_cast<const std::uint8_t*>(device.data());
        const auto at = std::mismatch(bytes, bytes + kMemory, mTwin.data());
        if (at.first == bytes + kMemory) {
            return {};
        }
        return "byte " + std::to_string(at.first - bytes) + ": " + std::to_string(*at.first) +
               " instead of " + std::to_string(*at.second);
    }

    double randomOpacity() {
        constexpr double kSpecial[] = {
            1.0, 1.0, 0.0, -1.0, 2.0, 0.5, 0.999, 1.0 / 255.0, std::numeric_limits<double>::quiet_NaN()};
        const unsigned choice = mRandom() % 18;
        return choice < std::size(kSpecial) ? kSpecial[choice] : random(0, 1000) / 1001.0;
    }

    std::mt19937 mRandom{7};
    const test::DeviceFiles mFiles{"pictures", kMemory};
    const test::AcceleratorFile mAccelerator;
    const test::Region mTwin{kMemory};
    UdmaBufPictureAllocator mDevice{mFiles.name()};
    BestFitPictureAllocator mHeap;
};

TEST_F(HardwareRoad, ComposesTheSameSceneAsTheSoftwareRoadToTheByte) {
    const PictureComposer composer(mAccelerator.name());
    for (int scene = 0; scene < 120; ++scene) {
        Twins dst = pictures({random(1, 140), random(1, 90)}, AV_PIX_FMT_NV12);
        for (int layer = 0; layer < 4; ++layer) {
            const Twins whole =
                pictures({random(1, 100), random(1, 60)}, layer % 2 == 0 ? NVA12 : AV_PIX_FMT_NV12);
            Twins overlay = whole;
            if (random(0, 3) == 0) {
                const Rect part{random(0, 20), random(0, 20), random(1, 50), random(1, 50)};
                overlay = {whole.device.crop(part), whole.heap.crop(part)};
            }
            const Point position{random(-60, 140), random(-40, 90)};
            const double opacity = randomOpacity();
            composer.compose(dst.device, overlay.device, position, opacity, random(0, 1) == 1);
            compose(dst.heap, overlay.heap, position, CheckColorRange::Yes, opacity, random(1, 3));
            ASSERT_EQ(difference(), "") << "scene " << scene << ": " << dst.heap << " under " << overlay.heap
                                        << " at " << position << ", opacity " << opacity;
        }
    }
}

TEST_F(HardwareRoad, ComposesAtEveryOpacityAsTheSoftwareRoadDoes) {
    const PictureComposer composer(mAccelerator.name());
    Twins dst = pictures({64, 16}, AV_PIX_FMT_NV12);
    const Twins overlays[] = {pictures({64, 16}, AV_PIX_FMT_NV12), pictures({64, 16}, NVA12)};
    for (int i = -2; i <= 258; ++i) {
        for (const Twins& overlay : overlays) {
            const double opacity = (i + 0.5) / 255.0;
            composer.compose(dst.device, overlay.device, {0, 0}, opacity, false);
            compose(dst.heap, overlay.heap, {0, 0}, CheckColorRange::Yes, opacity, 1);
            ASSERT_EQ(difference(), "") << "opacity " << opacity;
        }
    }
}

TEST_F(HardwareRoad, ComposesOnADestinationWithAnAlphaPlaneAsOnOneWithout) {
    const PictureComposer composer(mAccelerator.name());
    Twins dst = pictures({64, 32}, NVA12);
    // The CPU does not draw on such destinations: the same planes, without the last.
    Picture::Planes planes = dst.heap.data();
    planes[3] = nullptr;
    Picture twin(dst.heap.frameSize(), planes.data(), dst.heap.linesize().data(), AV_PIX_FMT_NV12,
                 AVCOL_RANGE_MPEG, 32);
    const Twins overlay = pictures({40, 20}, NVA12);
    composer.compose(dst.device, overlay.device, {13, -3}, 0.75, false);
    compose(twin, overlay.heap, {13, -3}, CheckColorRange::Yes, 0.75, 1);
    for (int y = 0; y < 32; ++y) {
        EXPECT_EQ(std::memcmp(dst.device.data()[0] + y * dst.device.linesize()[0],
                              twin.data()[0] + y * twin.linesize()[0], 64),
                  0);
        EXPECT_EQ(std::memcmp(dst.device.data()[3] + y * dst.device.linesize()[3],
                              dst.heap.data()[3] + y * dst.heap.linesize()[3], 64),
                  0);
    }
    for (int y = 0; y < 16; ++y) {
        EXPECT_EQ(std::memcmp(dst.device.data()[1] + y * dst.device.linesize()[1],
                              twin.data()[1] + y * twin.linesize()[1], 64),
                  0);
    }
}

TEST_F(HardwareRoad, FlushesTheBlocksOfBothPicturesForTheDevice) {
    const PictureComposer composer("null");
    Picture dst = mDevice.allocate({64, 32}, AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG);
    const Picture overlay = mDevice.allocate({64, 32}, AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG);
    composer.compose(dst, overlay, {0, 0}, 1.0, false);
    const std::uint64_t page = UdmaBuf::pageSize();
    const test::SyncCommand first{.offset = 0, .size = page, .direction = 1, .start = true};
    const test::SyncCommand second{.offset = page, .size = page, .direction = 1, .start = true};
    EXPECT_EQ(mFiles.syncCommands(), (std::vector<test::SyncCommand>{first, second}));
    PictureScaler scaler("null");
    scaler.scaleTo(dst, overlay, false);
    EXPECT_EQ(mFiles.syncCommands(), (std::vector<test::SyncCommand>{first, second, second}));
}

TEST_F(HardwareRoad, ScalesCloseToTheSoftwareRoad) {
    PictureScaler scaler(mAccelerator.name());
    scaler.setPictureAllocator(&mDevice);
    Scaler software;
    for (const auto& [from, to] :
         {std::pair{Size{64, 48}, Size{129, 97}}, std::pair{Size{160, 90}, Size{80, 44}},
          std::pair{Size{120, 50}, Size{60, 100}}, std::pair{Size{50, 50}, Size{50, 50}}}) {
        SCOPED_TRACE(testing::Message() << from << " to " << to);
        const Twins src = pictures(from, AV_PIX_FMT_NV12);
        const Picture device = scaler.scale(src.device, to, false);
        const Picture expected = software.scale(src.heap, to);
        ASSERT_EQ(device.frameSize(), expected.frameSize());
        EXPECT_EQ(device.pixelFormat(), expected.pixelFormat());
        EXPECT_EQ(device.colorRange(), expected.colorRange());
        EXPECT_TRUE(device.isBufferDMA());
        const Size size = expected.frameSize();
        for (std::size_t plane : {0, 1}) {
            double sum = 0;
            const int rows = plane == 0 ? size.height : size.height / 2;
            for (int y = 0; y < rows; ++y) {
                for (int x = 0; x < size.width; ++x) {
                    const int a = device.data()[plane][y * device.linesize()[plane] + x];
                    const int b = expected.data()[plane][y * expected.linesize()[plane] + x];
                    ASSERT_NEAR(a, b, 5) << "plane " << plane << " at " << x << "," << y;
                    sum += std::abs(a - b);
                }
            }
            EXPECT_LT(sum / (rows * size.width), from == to ? 1e-9 : 1.0) << "plane " << plane;
        }
    }
}

TEST_F(HardwareRoad, ScalesAnAlphaPlaneWithItsColours) {
    PictureScaler scaler(mAccelerator.name());
    scaler.setPictureAllocator(&mDevice);
    const Twins src = pictures({60, 40}, NVA12);
    // The alpha plane as luma, so that the CPU treats it as the accelerator treats alpha.
    const Picture luma = mDevice.allocate({60, 40}, AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG);
    for (int y = 0; y < 40; ++y) {
        std::memcpy(luma.data()[0] + y * luma.linesize()[0],
                    src.device.data()[3] + y * src.device.linesize()[3], 60);
    }
    const Picture scaled = scaler.scale(src.device, {35, 71}, false);
    const Picture expected = scaler.scale(luma, {35, 71}, false);
    ASSERT_EQ(scaled.frameSize(), (Size{34, 70}));
    for (int y = 0; y < 70; ++y) {
        EXPECT_EQ(std::memcmp(scaled.data()[3] + y * scaled.linesize()[3],
                              expected.data()[0] + y * expected.linesize()[0], 34),
                  0);
    }
}

TEST_F(HardwareRoad, ChangesNothingButTheDestinationWhenItScales) {
    PictureScaler scaler(mAccelerator.name());
    const Twins neighbour = pictures({65, 31}, AV_PIX_FMT_NV12);
    Twins dst = pictures({65, 31}, AV_PIX_FMT_NV12);
    const Twins src = pictures({33, 77}, AV_PIX_FMT_NV12);
    scaler.scaleTo(dst.device, src.device, true);
    // Only pixels were written: after copying them, nothing differs.
    const std::vector<std::uint8_t> result(dst.device.data()[0], dst.device.data()[0] + 96 * 47);
    for (int y = 0; y < 47; ++y) {
        std::memcpy(dst.heap.data()[0] + y * 96, result.data() + y * 96, y < 31 ? 65 : 66);
    }
    EXPECT_EQ(difference(), "");
}

TEST_F(HardwareRoad, ARefusalOfTheAcceleratorReachesTheCaller) {
    PictureScaler scaler(mAccelerator.name());
    scaler.setPictureAllocator(&mDevice);
    const Picture src = mDevice.allocate({64, 32}, AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG);
    Picture dst = mDevice.allocate({64, 32}, AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG);
    try {
        scaler.scaleTo(dst, src.crop({64, 32, 2, 2}), false);
        ADD_FAILURE() << "nothing was thrown";
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(error.what(), "z5 hw accel: a buffer to scale has no pixels");
    }
}

TEST(HardwareRoadDescriptors, AreAllClosedAtTheEnd) {
    const auto before = test::openDescriptors();
    {
        const test::DeviceFiles files("descriptors", kMemory);
        const test::AcceleratorFile accelerator;
        UdmaBufPictureAllocator allocator(files.name());
        const auto memory = test::openDescriptors();
        {
            const PictureComposer composer(accelerator.name());
            PictureScaler scaler(accelerator.name());
            EXPECT_EQ(test::openDescriptors().size(), memory.size() + 2);
            scaler.setPictureAllocator(&allocator);
            Picture dst = allocator.allocate({64, 32}, AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG);
            for (int i = 0; i < 10; ++i) {
                const Picture overlay = scaler.scale(dst, {20, 20}, false);
                composer.compose(dst, overlay, {i, i}, 0.5, false);
            }
            EXPECT_THROW(composer.compose(dst, Picture(), {0, 0}, 0.5, false), std::invalid_argument);
            EXPECT_EQ(test::openDescriptors().size(), memory.size() + 2);
        }
        EXPECT_EQ(test::openDescriptors(), memory);
    }
    EXPECT_EQ(test::openDescriptors(), before);
}

}  // namespace
}  // namespace vidorra::z5
