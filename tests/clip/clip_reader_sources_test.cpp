#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "clips.h"
#include "scripted_source.h"
#include "support/throw_text.h"
#include "vidorra/core/ffmpeg_error.h"
#include "vidorra/io/byte_source.h"

namespace vidorra {
namespace {

using test::clip;
using test::content;
using test::readAll;
using test::Reading;
using test::Scripted;
using test::scripted;

void expectSame(const Reading& a, const Reading& b) {
    EXPECT_EQ(a.times(), b.times());
    EXPECT_TRUE(a.sound == b.sound);
}

Reading readSource(const std::shared_ptr<ByteSource>& source, const ClipOptions& options = {}) {
    ClipReader reader(source, options);
    return readAll(reader);
}

// With the index at its start, so that it can be read as it comes.
std::string streamable() {
    return test::soundFile("stream.mkv", "pcm_s16le");
}

TEST(ClipReaderSources, GiveTheFramesOfTheFile) {
    const Reading file = readAll(clip());
    expectSame(readSource(memorySource(content(clip()))), file);
    expectSame(readSource(mappedSource(clip())), file);
    expectSame(readSource(descriptorSource(open(clip().c_str(), O_RDONLY | O_CLOEXEC))), file);
}

TEST(ClipReaderSources, MayGiveFewBytesAtATimeAndNothingForAWhile) {
    const auto source = scripted();
    source->chunk = 7;
    source->emptyEvery = 501;
    expectSame(readSource(source), readAll(clip()));
    const auto sizeless = scripted();
    sizeless->knowsSize = false;
    expectSame(readSource(sizeless), readAll(clip()));
}

TEST(ClipReaderSources, AreReadAgainForEachPass) {
    ClipOptions options;
    options.passes = 3;
    EXPECT_EQ(readSource(scripted(), options).pictures.size(), 75U);
}

TEST(ClipReaderSources, ThatCannotSeekAreReadOnceAndForwards) {
    const auto stream = [] {
        const auto source = scripted(streamable());
        source->canSeek = false;
        source->knowsSize = false;
        return source;
    };
    ClipOptions options;
    options.passes = 3;
    expectSame(readSource(stream(), options), readAll(streamable()));
    options.in = test::microseconds(250000);
    EXPECT_EQ(readSource(stream(), options).samples, 36000);

    ClipReader reader(stream());
    readAll(reader, 3);
    reader.seek(test::microseconds(500000));
    EXPECT_EQ(readAll(reader).samples, 24000);
    EXPECT_THROW(reader.seek(test::microseconds(0)), FFmpegError);
}

TEST(ClipReaderSources, TheirExceptionsComeOutUnchanged) {
    const auto whole = scripted();
    whole->chunk = 4096;
    readSource(whole);
    for (int i = 1; i <= whole->calls; ++i) {
        const auto source = scripted();
        source->chunk = 4096;
        source->throwAt = i;
        EXPECT_THROW_TEXT(std::range_error, "the source is tired", readSource(source));
    }
}

TEST(ClipReaderSources, FramesBeforeAnExceptionAreGood) {
    const auto counted = scripted(streamable());
    readSource(counted);
    const auto source = scripted(streamable());
    source->throwAt = counted->calls - 2;
    ClipReader reader(source);
    Reading reading;
    EXPECT_THROW(
        {
            while (const ClipFrame frame = reader.read()) {
                test::add(reading, frame);
            }
        },
        std::range_error);
    const Reading whole = readAll(streamable());
    ASSERT_GT(reading.sound.size(), 0U);
    ASSERT_LT(reading.sound.size(), whole.sound.size());
    EXPECT_TRUE(std::equal(reading.sound.begin(), reading.sound.end(), whole.sound.begin()));
    EXPECT_FALSE(reader.read()) << "the reader is at its end";
}

TEST(ClipReaderSources, ThatGiveMoreThanAskedAreWrong) {
    const auto source = scripted();
    source->tooMany = true;
    EXPECT_THROW(readSource(source), std::logic_error);
}

TEST(ClipReaderSources, AreCalledByTheirName) {
    EXPECT_THROW_TEXT(
        FFmpegError,
        "cannot open script FFmpeg AV_ERROR: #-1094995529: Invalid data found when processing input",
        readSource(std::make_shared<Scripted>(std::vector<std::uint8_t>(100, 'x'))));
}

TEST(ClipReaderSources, AFifoIsReadUpToItsEnd) {
    const std::string path = test::temporaryFolder() / "clip.fifo";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    std::thread writer([&path] {
        const std::vector<std::uint8_t> bytes = content(streamable());
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    });
    expectSame(readAll(path), readAll(streamable()));
    writer.join();
}

// A playlist that names a local file.
std::string playlist() {
    const std::string part =
        test::mediaFile("part.ts", {"-f", "lavfi", "-i", "testsrc2=s=64x48:r=25:d=1", "-c:v", "mpeg2video"});
    return "#EXTM3U\n#EXT-X-TARGETDURATION:1\n#EXTINF:1,\nfile://" + part + "\n#EXT-X-ENDLIST\n";
}

TEST(ClipReaderProtocols, AFileOpensNothingFurtherByDefault) {
    const std::string path = test::temporaryFile("list.m3u8", playlist());
    EXPECT_THROW(readAll(path), FFmpegError);
    ClipOptions options;
    options.protocols = {"file"};
    EXPECT_EQ(readAll(path, options).pictures.size(), 25U);
}

TEST(ClipReaderProtocols, NorDoesAByteSource) {
    const std::string list = playlist();
    const std::vector<std::uint8_t> bytes(list.begin(), list.end());
    EXPECT_THROW(readSource(memorySource(bytes)), FFmpegError);
    ClipOptions options;
    options.protocols = {"file"};
    EXPECT_EQ(readSource(memorySource(bytes), options).pictures.size(), 25U);
}

}  // namespace
}  // namespace vidorra
