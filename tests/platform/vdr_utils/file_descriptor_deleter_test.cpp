#include "vdr_utils/file_descriptor_deleter.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <climits>
#include <memory>
#include <type_traits>
#include <utility>

#include "support/descriptors.h"

namespace vidorra::test {
namespace {

using vx::utils::priv::FileDescriptorDeleter;
using File = std::unique_ptr<int, FileDescriptorDeleter>;

static_assert(sizeof(File) == sizeof(int));
static_assert(!std::is_copy_constructible_v<File>);

int openNull() {
    return open("/dev/null", O_RDWR);
}

TEST(FileDescriptorDeleter, ClosesTheFileWithItsOwner) {
    const auto before = openDescriptors();
    {
        const File file(openNull());
        EXPECT_TRUE(static_cast<bool>(file));
        EXPECT_EQ(openDescriptors().size(), before.size() + 1);
        EXPECT_EQ(openDescriptors().count(file.get()), 1u);
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST(FileDescriptorDeleter, ClosesTheFileThatAnotherOneReplaces) {
    const auto before = openDescriptors();
    File file(openNull());
    const int first = file.get();
    const int second = openNull();
    file.reset(second);
    EXPECT_EQ(openDescriptors().count(first), 0u);
    EXPECT_EQ(openDescriptors().count(second), 1u);
    file = nullptr;
    EXPECT_EQ(openDescriptors(), before);
}

TEST(FileDescriptorDeleter, AMovedFileIsClosedOnce) {
    const auto before = openDescriptors();
    File first(openNull());
    const int descriptor = first.get();
    File second(std::move(first));
    EXPECT_FALSE(static_cast<bool>(first));  // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(static_cast<int>(second.get()), descriptor);
    first = std::move(second);
    EXPECT_EQ(openDescriptors().count(descriptor), 1u);
    first.reset();
    EXPECT_EQ(openDescriptors(), before);
}

TEST(FileDescriptorDeleter, AReleasedFileStaysOpen) {
    int descriptor = -1;
    {
        File file(openNull());
        descriptor = file.release();
    }
    EXPECT_EQ(openDescriptors().count(descriptor), 1u);
    EXPECT_EQ(close(descriptor), 0);
}

TEST(FileDescriptorDeleter, EveryNegativeNumberIsNoFile) {
    for (const int number : {-1, -2, INT_MIN}) {
        const File file(number);
        EXPECT_FALSE(static_cast<bool>(file)) << number;
        EXPECT_TRUE(file == nullptr) << number;
        EXPECT_EQ(static_cast<int>(file.get()), -1) << number;
    }
    const File none;
    EXPECT_FALSE(static_cast<bool>(none));
    EXPECT_EQ(static_cast<int>(none.get()), -1);
}

TEST(FileDescriptorDeleter, ZeroIsAFile) {
    // The number, not the literal, which is a null pointer.
    const int standardInput = 0;
    File file(standardInput);
    EXPECT_TRUE(static_cast<bool>(file));
    EXPECT_TRUE(file != nullptr);
    EXPECT_TRUE(static_cast<bool>(file.get()));
    EXPECT_EQ(static_cast<int>(file.release()), 0);
}

}  // namespace
}  // namespace vidorra::test
