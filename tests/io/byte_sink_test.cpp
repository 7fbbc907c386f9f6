#include "vidorra/io/byte_sink.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "support/descriptors.h"
#include "support/media.h"
#include "support/throw_text.h"

namespace vidorra::test {
namespace {

void write(ByteSink& sink, const std::string& text) {
    sink.write(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
}

std::string text(const std::vector<std::uint8_t>& bytes) {
    return {bytes.begin(), bytes.end()};
}

TEST(ByteSink, CannotSeekUnlessItSaysSo) {
    class Plain final : public ByteSink {
        void write(const std::uint8_t* /*data*/, std::size_t /*size*/) override {}
    };
    Plain sink;
    EXPECT_FALSE(sink.seek(0));
    EXPECT_NO_THROW(sink.close());
}

TEST(MemorySink, OverwritesWhatIsThereAndGrows) {
    MemorySink sink;
    write(sink, "0123456789");
    EXPECT_TRUE(sink.seek(8));
    write(sink, "abcd");
    EXPECT_TRUE(sink.seek(2));
    write(sink, "XY");
    EXPECT_EQ(text(sink.bytes()), "01XY4567abcd");
    EXPECT_TRUE(sink.seek(12));
    EXPECT_FALSE(sink.seek(13));
    write(sink, "!");
    EXPECT_EQ(text(sink.take()), "01XY4567abcd!");
    EXPECT_TRUE(sink.bytes().empty());
    write(sink, "again");
    EXPECT_EQ(text(sink.bytes()), "again");
}

TEST(DescriptorSink, CountsPositionsFromWhereTheDescriptorIs) {
    const auto path = temporaryFile("descriptor.bin", "head");
    const auto open = openDescriptors();
    {
        const int descriptor = ::open(path.c_str(), O_WRONLY);
        lseek(descriptor, 0, SEEK_END);
        const auto sink = descriptorSink(descriptor);
        write(*sink, "0123");
        EXPECT_TRUE(sink->seek(1));
        write(*sink, "X");
        sink->close();
    }
    EXPECT_EQ(fileContent(path), "head0X23");
    EXPECT_EQ(openDescriptors(), open);
}

TEST(DescriptorSink, ClosesADescriptorThatWasNotCompleted) {
    const auto open = openDescriptors();
    static_cast<void>(descriptorSink(::open("/dev/null", O_WRONLY)));
    EXPECT_EQ(openDescriptors(), open);
}

TEST(DescriptorSink, CannotSeekWherePositionsMeanNothing) {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    EXPECT_FALSE(descriptorSink(ends[1])->seek(0));
    close(ends[0]);
    const auto path = temporaryFile("append.bin", "");
    EXPECT_FALSE(descriptorSink(::open(path.c_str(), O_WRONLY | O_APPEND))->seek(0));
}

TEST(DescriptorSink, WaitsForADescriptorThatIsFull) {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_NONBLOCK), 0);
    const std::string sent(1 << 20, 'x');
    std::string received;
    std::thread reader([&] {
        std::array<char, 65536> some{};
        while (received.size() < sent.size()) {
            const ssize_t count = read(ends[0], some.data(), some.size());
            received.append(some.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
        }
    });
    const auto sink = descriptorSink(ends[1]);
    write(*sink, sent);
    reader.join();
    EXPECT_EQ(received, sent);
    close(ends[0]);
}

TEST(DescriptorSink, TellsWhyBytesAreRefused) {
    EXPECT_THROW_TEXT(std::invalid_argument, "descriptorSink: the descriptor is negative",
                      static_cast<void>(descriptorSink(-1)));
    const auto full = descriptorSink(::open("/dev/full", O_WRONLY));
    EXPECT_THROW_TEXT(std::system_error, "cannot write to the descriptor: No space left on device",
                      write(*full, "x"));
}

}  // namespace
}  // namespace vidorra::test
