#include <gmock/gmock.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <limits>
#include <stdexcept>
#include <string>

#include "clips.h"
#include "scripted_source.h"
#include "vidorra/core/ffmpeg_error.h"

extern "C" {
#include <libavutil/error.h>
}

namespace vidorra {
namespace {

using test::clip;
using test::microseconds;
using test::readAll;
using test::Reading;
using test::scripted;

// Reads until nothing comes, or until the source throws.
Reading readWhatComes(ClipReader& reader) {
    Reading reading;
    try {
        while (const ClipFrame frame = reader.read()) {
            test::add(reading, frame);
        }
    } catch (const std::range_error&) {
        return reading;
    }
    ADD_FAILURE() << "nothing was thrown";
    return reading;
}

// 20 seconds, so that a seek far into it does not read all from the start.
std::string longClip() {
    return test::mediaFile("long_for_seeks.mp4",
                           {"-f", "lavfi", "-i", "testsrc2=s=64x48:r=25:d=20", "-c:v", "libx264", "-preset",
                            "ultrafast", "-g", "25", "-b:v", "400k"});
}

TEST(ClipReaderFailures, PicturesBeforeAnExceptionAreWhole) {
    const Reading whole = readAll(clip());
    const auto counted = scripted();
    counted->chunk = 500;
    ClipReader all(counted);
    readAll(all);
    std::size_t most = 0;
    for (int i = 1; i <= counted->calls; ++i) {
        const auto source = scripted();
        source->chunk = 500;
        source->throwAt = i;
        ClipReader reader(source);
        const Reading reading = readWhatComes(reader);
        // A picture may be missing before the last one, which was decoded before it.
        auto from = whole.hashes.begin();
        for (const std::string& hash : reading.hashes) {
            from = std::find(from, whole.hashes.end(), hash);
            ASSERT_NE(from, whole.hashes.end()) << "a damaged picture, call " << i;
            ++from;
        }
        ASSERT_LE(reading.sound.size(), whole.sound.size());
        EXPECT_TRUE(std::equal(reading.sound.begin(), reading.sound.end(), whole.sound.begin())) << i;
        most = std::max(most, reading.hashes.size());
    }
    EXPECT_GT(most, 20U);
}

TEST(ClipReaderFailures, AFailureIsForgottenBySeekingAwayFromIt) {
    const auto source = scripted(longClip());
    ClipReader reader(source);
    readAll(reader, 100);
    source->throwAt = source->calls + 1;
    readWhatComes(reader);
    EXPECT_FALSE(reader.read());
    reader.seek(microseconds(15000000));
    const Reading rest = readAll(reader);
    EXPECT_EQ(rest.pictures.size(), 125U);
}

TEST(ClipReaderFailures, ASourceThatIsGoneAtASeekLeavesTheReaderAtItsEnd) {
    const std::string path = test::temporaryFile("gone.mov", test::fileContent(clip()));
    ClipReader reader(path);
    readAll(reader, 10);
    std::filesystem::rename(path, path + ".away");
    EXPECT_THROW(reader.seek(microseconds(0)), FFmpegError);
    EXPECT_FALSE(reader.read());
    EXPECT_THROW(reader.seek(microseconds(0)), FFmpegError);
    EXPECT_THROW(static_cast<void>(reader.duration()), FFmpegError);
    std::filesystem::rename(path + ".away", path);
    reader.seek(microseconds(0));
    EXPECT_EQ(readAll(reader).pictures.size(), 25U);
}

TEST(ClipReaderFailures, ASourceThatIsGoneAtASeamEndsTheReader) {
    const std::string path = test::temporaryFile("gone_at_seam.mov", test::fileContent(clip()));
    ClipOptions options;
    options.passes = 3;
    ClipReader reader(path, options);
    readAll(reader, 10);
    std::filesystem::remove(path);
    EXPECT_THROW(readAll(reader), FFmpegError);
    EXPECT_FALSE(reader.read());
    EXPECT_FALSE(reader.read());
}

TEST(ClipReaderFailures, ThrowingSeeksOfASourceComeOutToo) {
    const auto counted = scripted(longClip());
    ClipReader whole(counted);
    whole.open();
    const int opened = counted->calls;
    whole.seek(microseconds(15000000), ClipReader::SeekTo::KeyFrame);
    readAll(whole);
    const int all = counted->calls;
    ASSERT_GT(all, opened);
    for (int i = opened + 1; i <= all; ++i) {
        const auto source = scripted(longClip());
        source->throwAt = i;
        ClipReader reader(source);
        reader.open();
        EXPECT_THROW(
            {
                reader.seek(microseconds(15000000), ClipReader::SeekTo::KeyFrame);
                readAll(reader);
            },
            std::range_error)
            << i;
    }
}

TEST(ClipReaderFailures, ASizeThatIsTooGreatIsOfNoConsequence) {
    class Lying : public test::Scripted {
    public:
        using Scripted::Scripted;
        std::optional<std::uint64_t> size() const override { return claim; }
        std::uint64_t claim = 0;
    };
    constexpr std::uint64_t kMostSigned = std::numeric_limits<std::int64_t>::max();
    for (const std::uint64_t claim : {kMostSigned, kMostSigned + 1, ~std::uint64_t{0}}) {
        const auto source = std::make_shared<Lying>(test::content(clip()));
        source->claim = claim;
        ClipReader reader(source);
        EXPECT_EQ(readAll(reader).hashes, readAll(clip()).hashes) << claim;
    }
}

// Four pictures at the beginning, and one after 95 years.
TEST(ClipReaderFailures, TimesOfManyYearsRiseUpToTheEndOfWhatIsCounted) {
    const std::string path = test::mediaFile(
        "years.mkv", {"-f", "lavfi", "-i", "testsrc2=s=64x48:r=25:d=0.2", "-vf",
                      "setpts='if(eq(N,4),75000000000,PTS)'", "-fps_mode", "passthrough", "-c:v", "ffv1"});
    ClipOptions options;
    options.passes = 0;
    ClipReader reader(path, options);
    const Reading reading = readAll(reader, 1000);
    ASSERT_GE(reading.pictures.size(), 5U);
    EXPECT_LT(reading.pictures.size(), 100U) << "a loop ends";
    EXPECT_NEAR(static_cast<double>(reading.pictures[4].time), 3e15, 1e6);
    const std::vector<std::int64_t> times = reading.times();
    EXPECT_EQ(std::adjacent_find(times.begin(), times.end(), std::greater_equal<>()), times.end());
}

// 25 pictures, each decodable without the others; the eleventh is damaged.
std::string damagedInTheMiddle() {
    const std::string path = test::mediaFile(
        "png.mkv", {"-f", "lavfi", "-i", "testsrc2=s=64x48:r=25:d=1", "-c:v", "png", "-pred", "none"});
    std::string content = test::fileContent(path);
    const std::string header = "IHDR";
    std::size_t at = 0;
    for (int i = 0; i <= 10; ++i) {
        at = content.find(header, at + 1);
    }
    content.replace(at, header.size(), "none");
    return test::temporaryFile("damaged_png.mkv", content);
}

TEST(ClipReaderFailures, ADamagedKeyPictureAtTheInPointIsShownByTheOneBefore) {
    ClipOptions options;
    options.in = microseconds(400000);
    const std::string path = damagedInTheMiddle();
    const std::vector<std::string> expected = [&path] {
        const Reading whole = readAll(path);
        return std::vector<std::string>(whole.hashes.begin() + 9, whole.hashes.end());
    }();
    ASSERT_EQ(expected.size(), 15U);
    EXPECT_EQ(readAll(path, options).hashes, expected);
    const auto stream = scripted(path);
    stream->canSeek = false;
    stream->knowsSize = false;
    ClipReader reader(stream, options);
    EXPECT_EQ(readAll(reader).hashes, expected) << "a source that cannot seek is not begun again";
}

TEST(ClipReaderFailures, ASourceThatCannotSeekSkipsWhatIsBeforeTheTimeFromTheFirstCallOn) {
    const std::string path =
        test::mediaFile("forwards.mkv", {"-f", "lavfi", "-i", "testsrc2=s=64x48:r=25:d=1", "-f", "lavfi",
                                         "-i", "sine=r=48000:d=1", "-c:v", "ffv1", "-c:a", "pcm_s16le"});
    ClipReader file(path);
    file.seek(microseconds(500000));
    const Reading expected = readAll(file);
    const auto stream = scripted(path);
    stream->canSeek = false;
    stream->knowsSize = false;
    ClipReader reader(stream);
    reader.open();
    reader.seek(microseconds(500000));
    const Reading reading = readAll(reader);
    EXPECT_EQ(reading.hashes, expected.hashes);
    EXPECT_EQ(reading.times(), expected.times());
    EXPECT_EQ(reading.samples, expected.samples);
}

// The container tells of padding that FFmpeg before 9 leaves at the end and a reader cuts at a seam.
TEST(ClipReaderFailures, ASeekFromTheLastPassBeginsToCountPassesAgain) {
    const std::string path = test::soundFile("seam.m4a", "aac");
    ClipOptions options;
    options.passes = 2;
    const std::int64_t both = readAll(path, options).samples;
    ClipReader reader(path, options);
    EXPECT_EQ(readAll(reader).samples, both);
    reader.seek(microseconds(0));
    EXPECT_EQ(readAll(reader).samples, both);
}

TEST(ClipReaderFailures, AFifoWithItsProtocolCanBeInterruptedToo) {
    const std::string path = test::temporaryFolder() / "named.fifo";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    ClipOptions options;
    options.openTimeout = std::chrono::milliseconds(100);
    ClipReader reader("file:" + path, options);
    try {
        reader.open();
        ADD_FAILURE() << "nothing was thrown";
    } catch (const FFmpegError& error) {
        EXPECT_EQ(error.error().code(), AVERROR(ETIMEDOUT)) << error.what();
    }
}

}  // namespace
}  // namespace vidorra
