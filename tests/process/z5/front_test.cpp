// The common part of both accelerator classes: opening the device, and the limits of pictures.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include "process/z5/device_pictures.h"
#include "process/z5/fake_accelerator.h"
#include "support/descriptors.h"
#include "support/media.h"
#include "vidorra/process/z5/picture_composer.h"
#include "vidorra/process/z5/picture_scaler.h"

namespace fs = std::filesystem;

namespace vidorra::z5 {
namespace {

using test::AcceleratorFile;
using test::devicePicture;
using test::DevicePictureShape;
using test::fakeAccelerator;
using test::openDescriptors;

static_assert(sizeof(PictureComposer) == sizeof(int));
static_assert(sizeof(PictureScaler) == 2 * sizeof(void*));

// The descriptor that reaches the accelerator.
int descriptorOf(PictureComposer& composer) {
    Picture dst = devicePicture("dst", {.size = {2, 2}});
    composer.compose(dst, devicePicture("overlay", {.size = {2, 2}}), {0, 0}, 1.0, false);
    return fakeAccelerator().compositions.back().device;
}

int descriptorOf(PictureScaler& scaler) {
    Picture dst = devicePicture("dst", {.size = {2, 2}});
    scaler.scaleTo(dst, devicePicture("src", {.size = {2, 2}}), false);
    return fakeAccelerator().scalings.back().device;
}

template <class Front>
class AcceleratorFront : public testing::Test {
protected:
    // Expects that a device cannot be opened, for this reason, with nothing left open.
    static void expectError(std::string_view name, int error) {
        const auto before = openDescriptors();
        try {
            const Front front(name);
            ADD_FAILURE() << name << " was opened";
        } catch (const std::system_error& thrown) {
            EXPECT_EQ(typeid(thrown), typeid(std::system_error));
            EXPECT_EQ(thrown.code().value(), error);
            EXPECT_EQ(&thrown.code().category(), &std::generic_category());
            EXPECT_EQ(thrown.what(),
                      "/dev/" + std::string(name) + ": " + std::generic_category().message(error));
        }
        EXPECT_EQ(openDescriptors(), before);
    }
};

using Fronts = testing::Types<PictureComposer, PictureScaler>;
TYPED_TEST_SUITE(AcceleratorFront, Fronts);

TYPED_TEST(AcceleratorFront, OpensTheDeviceForReadingAndWritingAndHandsItToTheAccelerator) {
    const AcceleratorFile file;
    TypeParam front(file.name());
    const int descriptor = descriptorOf(front);
    EXPECT_EQ(test::fileOf(descriptor), file.path());
    EXPECT_EQ(fcntl(descriptor, F_GETFL) & (O_ACCMODE | O_SYNC | O_NONBLOCK | O_APPEND), O_RDWR);
}

TYPED_TEST(AcceleratorFront, ClosesTheDeviceWithItself) {
    const AcceleratorFile file;
    const auto before = openDescriptors();
    {
        const TypeParam first(file.name());
        EXPECT_EQ(openDescriptors().size(), before.size() + 1);
        const TypeParam second(file.name());
        EXPECT_EQ(openDescriptors().size(), before.size() + 2);
    }
    EXPECT_EQ(openDescriptors(), before);
}

TYPED_TEST(AcceleratorFront, KeepsOneDescriptorWhenItMoves) {
    const AcceleratorFile file;
    const auto before = openDescriptors();
    {
        TypeParam first(file.name());
        const int descriptor = descriptorOf(first);
        TypeParam second(std::move(first));
        EXPECT_EQ(descriptorOf(second), descriptor);
        EXPECT_EQ(openDescriptors().size(), before.size() + 1);
    }
    EXPECT_EQ(openDescriptors(), before);
}

TYPED_TEST(AcceleratorFront, TakesTheNameAsFarAsItGoes) {
    const std::string_view name = "null and more";
    TypeParam front(name.substr(0, 4));
    EXPECT_EQ(test::fileOf(descriptorOf(front)), "/dev/null");
}

TYPED_TEST(AcceleratorFront, AMissingDeviceIsReported) {
    this->expectError("there is no such device", ENOENT);
}

TYPED_TEST(AcceleratorFront, AFolderIsReported) {
    this->expectError("", EISDIR);
}

TYPED_TEST(AcceleratorFront, ADeviceThatMustNotBeWrittenIsReported) {
    // Where a user without privileges finds it.
    char folder[] = "/tmp/vidorra-accelerator-XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    const fs::path path = fs::path(folder) / "device";
    ASSERT_EQ(chmod(folder, 0755), 0);
    close(open(path.c_str(), O_CREAT | O_WRONLY, 0644));
    ASSERT_EQ(chmod(path.c_str(), 0444), 0);
    const uid_t user = geteuid();
    if (user == 0) {
        ASSERT_EQ(seteuid(65534), 0);
    }
    // It can be read.
    const int readable = open(path.c_str(), O_RDONLY);
    EXPECT_GE(readable, 0);
    close(readable);
    this->expectError(".." + path.string(), EACCES);
    if (user == 0) {
        ASSERT_EQ(seteuid(user), 0);
    }
    fs::remove_all(folder);
}

struct LimitRow {
    const char* name;
    DevicePictureShape shape;
    bool compatible;
};

TYPED_TEST(AcceleratorFront, KnowsWhichPicturesTheAcceleratorCanWorkOn) {
    const LimitRow rows[] = {
        {"NV12", {.size = {64, 32}}, true},
        {"NVA12", {.size = {64, 32}, .format = NVA12}, true},
        {"odd sizes", {.size = {63, 31}}, true},
        {"no device memory", {.size = {64, 32}, .dma = false}, false},
        {"NVA12 that is no device memory", {.size = {64, 32}, .format = NVA12, .dma = false}, false},
        {"the largest", {.size = {4096, 2160}}, true},
        {"the largest NVA12", {.size = {4096, 2160}, .format = NVA12}, true},
        {"too wide", {.size = {4097, 16}, .linesize = 4096}, false},
        {"too high", {.size = {16, 2161}}, false},
        {"the longest lines", {.size = {16, 16}, .linesize = 4096}, true},
        {"lines too long", {.size = {16, 16}, .linesize = 4097}, false},
        {"NVA12 with lines too long", {.size = {16, 16}, .format = NVA12, .linesize = 4097}, false},
        {"YUV420P", {.size = {64, 32}, .format = AV_PIX_FMT_YUV420P}, false},
        {"NV21", {.size = {64, 32}, .format = AV_PIX_FMT_NV21}, false},
        {"shorter lines of chroma", {.size = {64, 32}, .linesize = 96, .chromaLinesize = 64}, false},
        {"longer lines of chroma", {.size = {64, 32}, .linesize = 64, .chromaLinesize = 96}, false},
        {"NVA12 with other lines of chroma",
         {.size = {64, 32}, .format = NVA12, .linesize = 64, .chromaLinesize = 96},
         false},
        {"NVA12 with other lines of alpha",
         {.size = {64, 32}, .format = NVA12, .linesize = 64, .alphaLinesize = 96},
         false},
    };
    for (const LimitRow& row : rows) {
        EXPECT_EQ(TypeParam::isPictureCompatible(devicePicture("picture", row.shape)), row.compatible)
            << row.name;
    }
}

TYPED_TEST(AcceleratorFront, CannotWorkOnHeapMemoryOrNothing) {
    EXPECT_FALSE(TypeParam::isPictureCompatible(Picture()));
    for (const AVPixelFormat format : {AV_PIX_FMT_NV12, NVA12}) {
        EXPECT_FALSE(TypeParam::isPictureCompatible(Picture({64, 32}, format, AVCOL_RANGE_MPEG, 32)));
    }
}

}  // namespace
}  // namespace vidorra::z5
