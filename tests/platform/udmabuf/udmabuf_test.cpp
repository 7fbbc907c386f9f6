#include "udmabuf/udmabuf.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "platform/udmabuf/device_files.h"
#include "platform/udmabuf/src/udmabuf_paths.h"
#include "support/log_capture.h"
#include "support/media.h"
#include "support/throw_text.h"

namespace fs = std::filesystem;

namespace vidorra::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint64_t kGiB4 = std::uint64_t{1} << 32;

SyncCommand toDevice(std::uint64_t offset, std::uint64_t size) {
    return {offset, size, 1, true};
}

// The flags of this process's open files for a path.
std::vector<int> openFlags(const fs::path& path) {
    std::vector<int> result;
    for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        if (fs::read_symlink(entry.path(), error) == path) {
            result.push_back(fcntl(std::stoi(entry.path().filename()), F_GETFL));
        }
    }
    return result;
}

bool isMapped(const fs::path& path) {
    return fileContent("/proc/self/maps").find(path.string()) != std::string::npos;
}

TEST(UdmaBuf, MapsTheWholeDeviceOnAPageBoundary) {
    const DeviceFiles files("buffer", 3 * UdmaBuf::pageSize());
    UdmaBuf buffer(files.name(), false);
    EXPECT_EQ(buffer.size(), 3 * UdmaBuf::pageSize());
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(buffer.get()) % UdmaBuf::pageSize(), 0u);
}

TEST(UdmaBuf, WritesReachTheDeviceAndItsBytesCanBeRead) {
    const DeviceFiles files("buffer", 64);
    std::ofstream(files.device()) << std::string(64, 'x');
    UdmaBuf buffer(files.name(), false);
    EXPECT_EQ(std::string(buffer.get(), buffer.get() + 64), std::string(64, 'x'));
    std::memset(buffer.get(), 'y', buffer.size());
    EXPECT_EQ(fileContent(files.device()), std::string(64, 'y'));
}

TEST(UdmaBuf, PageSizeIsTheSystems) {
    EXPECT_EQ(UdmaBuf::pageSize(), static_cast<std::size_t>(getpagesize()));
}

TEST(UdmaBuf, OpensTheDeviceForCachedAccessUnlessAskedForUncached) {
    const DeviceFiles files("buffer", 4096);
    {
        const UdmaBuf buffer(files.name(), false);
        const std::vector<int> flags = openFlags(files.device());
        ASSERT_EQ(flags.size(), 1u);
        EXPECT_EQ(flags[0] & (O_ACCMODE | O_SYNC), O_RDWR);
    }
    const UdmaBuf buffer(files.name(), true);
    const std::vector<int> flags = openFlags(files.device());
    ASSERT_EQ(flags.size(), 1u);
    EXPECT_EQ(flags[0] & (O_ACCMODE | O_SYNC), O_RDWR | O_SYNC);
}

TEST(UdmaBuf, TheDestructorUnmapsAndClosesEverything) {
    const DeviceFiles files("buffer", 4096);
    {
        const UdmaBuf buffer(files.name(), false);
        ASSERT_TRUE(isMapped(files.device()));
    }
    EXPECT_FALSE(isMapped(files.device()));
    EXPECT_THAT(openFlags(files.device()), IsEmpty());
    EXPECT_THAT(openFlags(files.control("sync_for_device")), IsEmpty());
    EXPECT_THAT(openFlags(files.control("size")), IsEmpty());
}

struct MissingRow {
    const char* name;
    const char* missing;
};

class UdmaBufMissing : public testing::TestWithParam<MissingRow> {};

TEST_P(UdmaBufMissing, IsReportedWithItsPathAndLeavesNothingOpen) {
    const DeviceFiles files("buffer", 4096);
    const fs::path path = *GetParam().missing == '\0' ? files.device() : files.control(GetParam().missing);
    fs::remove(path);
    EXPECT_THROW_TEXT(std::system_error,
                      "UdmaBuf: cannot open " + path.string() + ": No such file or directory",
                      UdmaBuf(files.name(), false));
    EXPECT_THAT(openFlags(files.device()), IsEmpty());
    EXPECT_THAT(openFlags(files.control("sync_for_device")), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(All, UdmaBufMissing,
                         testing::Values(MissingRow{.name = "Device", .missing = ""},
                                         MissingRow{.name = "Size", .missing = "size"},
                                         MissingRow{.name = "SyncControl", .missing = "sync_for_device"}),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(UdmaBuf, ADeviceThatCannotBeMappedIsReportedWithItsPath) {
    const DeviceFiles files("buffer", 4096);
    fs::remove(files.device());
    fs::create_symlink("/dev/null", files.device());
    EXPECT_THROW_TEXT(std::system_error,
                      "UdmaBuf: cannot map " + files.device().string() + ": No such device",
                      UdmaBuf(files.name(), false));
}

TEST(UdmaBuf, ADirectoryInPlaceOfTheSizeIsReportedWithItsPath) {
    const DeviceFiles files("buffer", 4096);
    fs::remove(files.control("size"));
    fs::create_directory(files.control("size"));
    EXPECT_THROW_TEXT(std::system_error,
                      "UdmaBuf: cannot read " + files.control("size").string() + ": Is a directory",
                      UdmaBuf(files.name(), false));
}

TEST(UdmaBuf, ASizeThatIsNoneIsReportedWithItsTextAndPath) {
    for (const char* text : {"", "\n", "abc\n", "-4096\n", "4096 bytes\n", "0x1000\n", "0\n", "15\n",
                             "4294967297\n", "99999999999999999999999\n"}) {
        SCOPED_TRACE(text);
        const DeviceFiles files("buffer", 4096, text);
        const std::string line = std::string(text).substr(0, std::string(text).find('\n'));
        EXPECT_THROW_TEXT(std::runtime_error,
                          "UdmaBuf: " + files.control("size").string() + ": \"" + line +
                              "\" is not a size from 16 to 4294967296 bytes",
                          UdmaBuf(files.name(), false));
        EXPECT_THAT(openFlags(files.device()), IsEmpty());
    }
}

TEST(UdmaBuf, ASizeWithoutALineEndIsRead) {
    const DeviceFiles files("buffer", 4096, "4096");
    EXPECT_EQ(UdmaBuf(files.name(), false).size(), 4096u);
}

TEST(UdmaBuf, ANameThatWouldLeaveTheFoldersIsRefused) {
    EXPECT_THROW_TEXT(std::runtime_error, "UdmaBuf: \"\" is not the name of a device", UdmaBuf("", false));
    EXPECT_THROW_TEXT(std::runtime_error, "UdmaBuf: \"../buffer\" is not the name of a device",
                      UdmaBuf("../buffer", false));
}

struct RangeRow {
    const char* name;
    std::uint64_t mapping;
    std::int64_t start;
    std::uint64_t size;
    std::vector<SyncCommand> commands;
};

class UdmaBufRange : public testing::TestWithParam<RangeRow> {};

TEST_P(UdmaBufRange, BecomesTheCommandsThatCoverItInsideTheMapping) {
    const RangeRow& row = GetParam();
    const DeviceFiles files("buffer", row.mapping);
    UdmaBuf buffer(files.name(), false);
    const auto start =
        reinterpret_cast<std::uintptr_t>(buffer.get()) + static_cast<std::uintptr_t>(row.start);
    buffer.syncForDevice(reinterpret_cast<const void*>(start), row.size);
    EXPECT_EQ(files.syncCommands(), row.commands);
}

INSTANTIATE_TEST_SUITE_P(
    All, UdmaBufRange,
    testing::Values(
        RangeRow{"Whole", 8192, 0, 8192, {toDevice(0, 8192)}},
        RangeRow{"Inside", 8192, 4096, 1024, {toDevice(4096, 1024)}}, RangeRow{"Empty", 8192, 4096, 0, {}},
        RangeRow{"IsWidenedToWholeUnits", 8192, 33, 2, {toDevice(32, 16)}},
        RangeRow{"IsWidenedAcrossUnits", 8192, 31, 2, {toDevice(16, 32)}},
        RangeRow{"LastByte", 8192, 8191, 1, {toDevice(8176, 16)}},
        RangeRow{"PastTheEnd", 8192, 4096, 8192, {toDevice(4096, 4096)}},
        RangeRow{"FromBefore", 8192, -4096, 8192, {toDevice(0, 4096)}},
        RangeRow{"AroundEverything", 8192, -4096, 65536, {toDevice(0, 8192)}},
        RangeRow{"WhollyBefore", 8192, -4096, 4096, {}}, RangeRow{"WhollyBehind", 8192, 8192, 4096, {}},
        RangeRow{"SizeThatWrapsTheAddress", 8192, 4096, ~std::uint64_t{0}, {toDevice(4096, 4096)}},
        RangeRow{"SizeThatWrapsFromBefore", 8192, -4096, ~std::uint64_t{0}, {toDevice(0, 8192)}},
        RangeRow{"MappingOfBrokenUnits", 100, 0, 100, {toDevice(0, 96), toDevice(84, 16)}},
        RangeRow{"TailOfAMappingOfBrokenUnits", 100, 98, 2, {toDevice(84, 16)}},
        RangeRow{"HeadOfAMappingOfBrokenUnits", 100, 0, 90, {toDevice(0, 96)}},
        RangeRow{"SmallestMapping", 16, 0, 16, {toDevice(0, 16)}},
        RangeRow{"LargestMapping", kGiB4, 0, kGiB4, {toDevice(0, kGiB4 - 16), toDevice(kGiB4 - 16, 16)}},
        RangeRow{"EndOfTheLargestMapping", kGiB4, kGiB4 - 4096, 4096, {toDevice(kGiB4 - 4096, 4096)}}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(UdmaBuf, EachSyncIsOneCommand) {
    const DeviceFiles files("buffer", 8192);
    UdmaBuf buffer(files.name(), false);
    buffer.syncForDevice(buffer.get(), 4096);
    buffer.syncForDevice(buffer.get() + 4096, 4096);
    EXPECT_THAT(files.syncCommands(), ElementsAre(toDevice(0, 4096), toDevice(4096, 4096)));
}

TEST(UdmaBuf, AnUncachedMappingIsSyncedToo) {
    const DeviceFiles files("buffer", 4096);
    UdmaBuf buffer(files.name(), true);
    buffer.syncForDevice(buffer.get(), 4096);
    EXPECT_THAT(files.syncCommands(), ElementsAre(toDevice(0, 4096)));
}

TEST(UdmaBuf, SyncsOfManyThreadsAllArriveWhole) {
    constexpr int kThreads = 4;
    constexpr int kSyncs = 200;
    const DeviceFiles files("buffer", kThreads * kSyncs * 16);
    UdmaBuf buffer(files.name(), false);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&buffer, thread] {
            for (int i = 0; i < kSyncs; ++i) {
                buffer.syncForDevice(buffer.get() + (thread * kSyncs + i) * 16, 16);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::set<std::uint64_t> offsets;
    for (const SyncCommand& command : files.syncCommands()) {
        EXPECT_EQ(command, toDevice(command.offset, 16));
        EXPECT_TRUE(offsets.insert(command.offset).second) << command.offset;
    }
    EXPECT_EQ(offsets.size(), std::size_t{kThreads * kSyncs});
}

TEST(UdmaBuf, ARefusalOfTheDriverIsLoggedOnce) {
    const DeviceFiles files("buffer", 4096);
    fs::remove(files.control("sync_for_device"));
    // Every write to it fails.
    fs::create_symlink("/dev/full", files.control("sync_for_device"));
    UdmaBuf buffer(files.name(), false);
    const LogCapture log;
    buffer.syncForDevice(buffer.get(), 4096);
    buffer.syncForDevice(buffer.get(), 16);
    EXPECT_THAT(log.lines(), ElementsAre(LogCapture::Line{1, "UdmaBuf: cannot write 0x0000000000001005 to " +
                                                                 files.control("sync_for_device").string() +
                                                                 ": No space left on device"}));
}

}  // namespace
}  // namespace vidorra::test
