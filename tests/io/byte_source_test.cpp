#include "vidorra/io/byte_source.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>

#include "support/descriptors.h"
#include "support/media.h"

namespace vidorra {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

std::vector<std::uint8_t> bytes(const std::string& text) {
    return {text.begin(), text.end()};
}

// Up to `most` bytes; "(end)" at the end.
std::string read(ByteSource& source, std::size_t most) {
    std::string text(most, '\0');
    const auto count = source.read(reinterpret_cast<std::uint8_t*>(text.data()), most);
    return count ? text.substr(0, *count) : "(end)";
}

TEST(MemorySource, GivesItsBytesUpToTheEnd) {
    const auto source = memorySource(bytes("abcdef"));
    EXPECT_EQ(read(*source, 4), "abcd");
    EXPECT_EQ(read(*source, 4), "ef");
    EXPECT_EQ(read(*source, 4), "(end)");
    EXPECT_EQ(source->size(), 6U);
}

TEST(MemorySource, GoesOnWhereItIsSentTo) {
    const auto source = memorySource(bytes("abcdef"));
    EXPECT_TRUE(source->seek(5));
    EXPECT_EQ(read(*source, 4), "f");
    EXPECT_TRUE(source->seek(1));
    EXPECT_EQ(read(*source, 2), "bc");
    EXPECT_TRUE(source->seek(1000));
    EXPECT_EQ(read(*source, 2), "(end)");
}

TEST(MemorySource, ReadsMemoryOfTheCaller) {
    const std::string text = "abc";
    const auto source = memorySource(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
    EXPECT_EQ(read(*source, 10), "abc");
    EXPECT_THROW(static_cast<void>(memorySource(nullptr, 1)), std::invalid_argument);
    EXPECT_EQ(read(*memorySource(nullptr, 0), 1), "(end)");
}

TEST(MappedSource, GivesTheBytesOfAFile) {
    const auto source = mappedSource(test::temporaryFile("mapped", "abcdef"));
    EXPECT_EQ(read(*source, 4), "abcd");
    EXPECT_TRUE(source->seek(1));
    EXPECT_EQ(read(*source, 10), "bcdef");
    EXPECT_EQ(read(*source, 10), "(end)");
    EXPECT_EQ(source->size(), 6U);
}

TEST(MappedSource, AFileThatShrinksEndsWhereItEndsThen) {
    const auto path = test::temporaryFile("shrinking", std::string(100000, 'x'));
    const auto source = mappedSource(path);
    EXPECT_EQ(read(*source, 10).size(), 10U);
    std::filesystem::resize_file(path, 20);
    EXPECT_EQ(read(*source, 50000).size(), 10U);
    EXPECT_EQ(read(*source, 10), "(end)");
    EXPECT_TRUE(source->seek(90000));
    EXPECT_EQ(read(*source, 10), "(end)");
}

TEST(MappedSource, AnEmptyFileIsAtItsEnd) {
    EXPECT_EQ(read(*mappedSource(test::temporaryFile("empty", "")), 10), "(end)");
}

TEST(MappedSource, TakesRegularFilesOnly) {
    try {
        static_cast<void>(mappedSource("/nowhere"));
        ADD_FAILURE() << "nothing was thrown";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code().value(), ENOENT);
    }
    EXPECT_THROW(static_cast<void>(mappedSource(test::temporaryFolder())), std::invalid_argument);
}

class DescriptorSource : public testing::Test {
protected:
    DescriptorSource() {
        int ends[2];
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        mSource = descriptorSource(ends[0]);
        mWriter = ends[1];
    }
    ~DescriptorSource() override { endWriting(); }

    void write(const std::string& text) {
        ASSERT_EQ(::write(mWriter, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    void endWriting() {
        if (mWriter >= 0) {
            close(mWriter);
        }
        mWriter = -1;
    }

    std::shared_ptr<ByteSource> mSource;
    int mWriter = -1;
};

TEST_F(DescriptorSource, GivesWhatIsThereAndTheEndWhenNobodyWritesAnyMore) {
    write("abc");
    EXPECT_EQ(read(*mSource, 10), "abc");
    write("de");
    endWriting();
    EXPECT_EQ(read(*mSource, 10), "de");
    EXPECT_EQ(read(*mSource, 10), "(end)");
}

TEST_F(DescriptorSource, NothingYetIsNotTheEnd) {
    EXPECT_EQ(read(*mSource, 10), "");
    write("abc");
    EXPECT_EQ(read(*mSource, 10), "abc");
}

TEST_F(DescriptorSource, AnInterruptEndsTheWaitAndAllLaterOnes) {
    mSource->interrupt();
    const auto start = steady_clock::now();
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(read(*mSource, 10), "");
    }
    // A single wait for bytes takes 50 ms.
    EXPECT_LT(steady_clock::now() - start, milliseconds(2500));
}

TEST_F(DescriptorSource, APipeHasNoSizeAndCannotSeek) {
    EXPECT_FALSE(mSource->seek(0));
    EXPECT_EQ(mSource->size(), std::nullopt);
}

TEST(DescriptorOfAFile, SeeksAndHasASize) {
    const auto path = test::temporaryFile("plain", "abcdef");
    const auto source = descriptorSource(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(source->size(), 6U);
    EXPECT_EQ(read(*source, 4), "abcd");
    EXPECT_TRUE(source->seek(1));
    EXPECT_EQ(read(*source, 10), "bcdef");
    EXPECT_EQ(read(*source, 10), "(end)");
    EXPECT_FALSE(source->seek(~std::uint64_t{0}));
}

TEST(DescriptorOfAFifo, WithoutAWriterNothingIsThereYet) {
    const std::string path = test::temporaryFolder() / "fifo";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const auto source = descriptorSource(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    EXPECT_EQ(read(*source, 10), "");
    const int writer = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_EQ(::write(writer, "abc", 3), 3);
    EXPECT_EQ(read(*source, 10), "abc");
    close(writer);
    EXPECT_EQ(read(*source, 10), "(end)");
}

TEST(DescriptorOwnership, IsClosedWithItsSource) {
    const auto before = test::openDescriptors();
    {
        const auto source = descriptorSource(open("/dev/null", O_RDONLY | O_CLOEXEC));
        EXPECT_NE(test::openDescriptors(), before);
    }
    EXPECT_EQ(test::openDescriptors(), before);
    EXPECT_THROW(static_cast<void>(descriptorSource(-1)), std::invalid_argument);
}

TEST(ByteSourceDefaults, SayThatTheSourceCannotSeekAndHasNoSize) {
    class Nothing : public ByteSource {
        std::optional<std::size_t> read(std::uint8_t* /*target*/, std::size_t /*size*/) override {
            return std::nullopt;
        }
    };
    Nothing source;
    EXPECT_FALSE(source.seek(0));
    EXPECT_EQ(source.size(), std::nullopt);
    EXPECT_EQ(source.name(), "byte source");
    source.interrupt();
}

}  // namespace
}  // namespace vidorra
