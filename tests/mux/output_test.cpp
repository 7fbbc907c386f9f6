#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <array>
#include <fstream>
#include <future>
#include <map>
#include <stdexcept>
#include <system_error>

#include "mux/recordings.h"
#include "support/ffprobe.h"
#include "support/left_open.h"
#include "support/log_capture.h"
#include "support/media.h"
#include "support/process.h"
#include "support/throw_text.h"

namespace vidorra::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

void record(MediaFileWriter& writer, int pictures) {
    const auto video = writer.addVideo(videoConfig());
    const auto audio = writer.addAudio(audioConfig("aac"));
    for (int i = 0; i < pictures; ++i) {
        writer.write(video, numberedPicture(i));
        writer.write(audio, signalFrame(i * 1920, 1920));
    }
}

std::vector<std::string> hashes(const std::filesystem::path& path, int stream) {
    std::vector<std::string> found;
    for (const ProbedPacket& packet : probe(path).packets) {
        if (packet.stream == stream) {
            found.push_back(packet.hash);
        }
    }
    return found;
}

TEST(WriterOutput, AFileHasItsNameWhenItIsComplete) {
    const auto path = freshPath("whole.mp4");
    const std::string part = path.string() + ".part";
    std::ofstream(path) << "an earlier recording";
    const NothingLeftOpen nothingLeftOpen;
    {
        MediaFileWriter writer(path);
        record(writer, 10);
        EXPECT_EQ(fileContent(path), "an earlier recording");
        EXPECT_TRUE(std::filesystem::exists(part));
        writer.finish();
    }
    EXPECT_FALSE(std::filesystem::exists(part));
    EXPECT_EQ(probe(path).streams.size(), 2U);
}

TEST(WriterOutput, AFileCanHaveItsNameFromTheStart) {
    const auto path = freshPath("in_place.mp4");
    WriterOptions options;
    options.whole = false;
    MediaFileWriter writer(path, options);
    EXPECT_TRUE(std::filesystem::exists(path));
    record(writer, 3);
    writer.finish();
    EXPECT_EQ(probe(path).streams.size(), 2U);
}

TEST(WriterOutput, ALinkStaysALink) {
    const auto path = freshPath("target.mp4");
    const auto link = freshPath("link.mp4");
    std::ofstream(path) << "old";
    std::filesystem::create_symlink(path, link);
    MediaFileWriter writer(link);
    record(writer, 3);
    writer.finish();
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_EQ(probe(path).streams.size(), 2U);
}

TEST(WriterOutput, WithoutFinishTheFileIsCompleteBesideItsPlace) {
    const auto path = freshPath("unfinished.mp4");
    const std::string part = path.string() + ".part";
    const NothingLeftOpen nothingLeftOpen;
    const LogCapture log;
    {
        MediaFileWriter writer(path);
        record(writer, 10);
    }
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_EQ(hashes(part, 0).size(), 10U);
    EXPECT_THAT(log.texts(),
                ElementsAre("writer: " + path.string() + ": ended without finish(), left in " + part));
}

TEST(WriterOutput, NothingIsLeftOfARecordingOfNothing) {
    const auto path = freshPath("nothing.mp4");
    {
        MediaFileWriter writer(path);
        writer.addVideo(videoConfig());
        EXPECT_THROW_TEXT(std::runtime_error, path.string() + ": nothing was written", writer.finish());
        EXPECT_THROW_TEXT(std::logic_error, path.string() + ": the writer has failed", writer.finish());
    }
    MediaFileWriter{path.string()};
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_FALSE(std::filesystem::exists(path.string() + ".part"));
}

TEST(WriterOutput, MemoryHoldsWhatAFileWould) {
    WriterOptions options;
    options.format = "mp4";
    options.container = {{"fflags", "+bitexact"}};
    const auto sink = std::make_shared<MemorySink>();
    MediaFileWriter toMemory(sink, options);
    record(toMemory, 10);
    EXPECT_TRUE(toMemory.finish().files.empty());
    const auto path = freshPath("memory.mp4");
    MediaFileWriter toFile(path, options);
    record(toFile, 10);
    toFile.finish();
    const std::vector<std::uint8_t> bytes = sink->take();
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()), fileContent(path));
    EXPECT_TRUE(sink->bytes().empty());
}

TEST(WriterOutput, APipeGetsMp4InFragments) {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    auto received = std::async(std::launch::async, [from = ends[0]] {
        std::string all;
        std::array<char, 4096> some{};
        for (ssize_t count = read(from, some.data(), some.size()); count > 0;
             count = read(from, some.data(), some.size())) {
            all.append(some.data(), static_cast<std::size_t>(count));
        }
        close(from);
        return all;
    });
    MediaFileWriter writer(descriptorSink(ends[1]), {"mp4"});
    record(writer, 25);
    writer.finish();
    const auto path = temporaryFile("piped.mp4", received.get());
    EXPECT_THAT(fileContent(path), HasSubstr("moof"));
    EXPECT_EQ(hashes(path, 0).size(), 25U);
}

TEST(WriterOutput, AContainerThatHasToSeekRefusesASinkThatCannot) {
    class Stream final : public ByteSink {
        void write(const std::uint8_t* /*data*/, std::size_t /*size*/) override {}
    };
    MediaFileWriter writer(std::make_shared<Stream>(), {"gxf"});
    objstream::object config = videoConfig("mpeg2video");
    config["width"] = 720;
    config["height"] = 576;
    const auto video = writer.addVideo(config);
    const Picture picture({720, 576}, AV_PIX_FMT_YUV420P, AVCOL_RANGE_JPEG, 32);
    const auto write = [&] {
        for (int i = 0; i < 3; ++i) {
            writer.write(video, VideoFrame(picture, Timestamp({1, 25}, i), Frame::NoFlags));
        }
        writer.finish();
    };
    try {
        write();
        ADD_FAILURE() << "nothing was thrown";
    } catch (const std::runtime_error& error) {
        EXPECT_THAT(error.what(), HasSubstr("cannot seek, which the container may need to begin the sink"));
    }
}

/// Fails at a call.
class FailingSink final : public ByteSink {
public:
    explicit FailingSink(int failAt) : mFailAt(failAt) {}
    void write(const std::uint8_t* /*data*/, std::size_t /*size*/) override { call(); }
    bool seek(std::uint64_t /*position*/) override {
        call();
        return true;
    }
    void close() override { call(); }
    int calls = 0;

private:
    void call() {
        if (calls == mFailAt) {
            ADD_FAILURE() << "called after it failed";
        }
        if (++calls == mFailAt) {
            throw std::domain_error("the sink fails");
        }
    }
    int mFailAt;
};

TEST(WriterOutput, WhatASinkThrowsAtAnyCallComesOut) {
    const auto whole = std::make_shared<FailingSink>(-1);
    {
        MediaFileWriter writer(whole, {"mp4"});
        record(writer, 12);
        writer.finish();
    }
    ASSERT_GT(whole->calls, 10);
    for (int n = 1; n <= whole->calls; ++n) {
        std::optional<MediaFileWriter> writer;
        EXPECT_THROW_TEXT(std::domain_error, "the sink fails", {
            writer.emplace(std::make_shared<FailingSink>(n), WriterOptions{"mp4"});
            record(*writer, 12);
            writer->finish();
        });
        if (writer) {
            EXPECT_THROW_TEXT(std::logic_error, "the sink: the writer has failed", writer->finish());
        }
    }
}

TEST(WriterOutput, AFullDiskIsAnErrorThatTellsTheFile) {
    MediaFileWriter writer("/dev/full", {"mpegts"});
    EXPECT_THROW_TEXT(std::system_error, "cannot write to /dev/full: No space left on device", {
        objstream::object config = videoConfig("mpeg2video");
        const auto video = writer.addVideo(config);
        for (int i = 0; i < 10; ++i) {
            writer.write(video, numberedPicture(i));
        }
        writer.finish();
    });
    EXPECT_TRUE(std::filesystem::is_character_file("/dev/full"));
}

TEST(WriterOutput, VerificationFindsNothingInGoodFiles) {
    for (const char* name : {"verified.mp4", "verified.mkv", "verified.ts", "verified.mov", "verified.avi"}) {
        const auto path = freshPath(name);
        WriterOptions options;
        options.verify = true;
        MediaFileWriter writer(path, options);
        record(writer, 30);
        EXPECT_NO_THROW(writer.finish()) << name;
        EXPECT_TRUE(std::filesystem::exists(path)) << name;
    }
}

TEST(WriterOutput, VerificationFindsABitThatChanged) {
    const auto path = freshPath("damaged.mkv");
    const std::string part = path.string() + ".part";
    WriterOptions options;
    options.verify = true;
    options.progress = [&](std::uint64_t frames, const Timestamp& /*time*/) {
        if (frames == 40) {
            std::fstream file(part, std::ios::in | std::ios::out | std::ios::binary);
            file.seekp(static_cast<std::streamoff>(std::filesystem::file_size(part)) - 100);
            file.put('\x55');
        }
    };
    MediaFileWriter writer(path, options);
    record(writer, 30);
    try {
        writer.finish();
        ADD_FAILURE() << "nothing was thrown";
    } catch (const std::runtime_error& error) {
        EXPECT_THAT(error.what(), HasSubstr("damaged.mkv.part has other content in stream "));
    }
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_TRUE(std::filesystem::exists(part));
}

TEST(WriterOutput, NothingIsLostBetweenSegments) {
    const auto whole = freshPath("whole.ts");
    const auto playlist = freshPath("segments.m3u8");
    objstream::object config = videoConfig("mpeg2video");
    config["options"]["bf"] = 2;
    const auto write = [&](MediaFileWriter&& writer) {
        const auto video = writer.addVideo(config);
        const auto audio = writer.addAudio(audioConfig("mp2"));
        for (int i = 0; i < 100; ++i) {
            writer.write(video, numberedPicture(i));
            writer.write(audio, signalFrame(i * 1920, 1920));
        }
        return writer.finish();
    };
    // Closed groups as well, which segments ask for.
    config["options"]["flags"] = "+cgop";
    config["options"]["sc_threshold"] = 1000000000;
    write(MediaFileWriter(whole));
    WriterOptions options;
    options.segmentDuration = std::chrono::seconds(1);
    options.playlist = playlist;
    config["options"] = videoConfig("mpeg2video")["options"];
    config["options"]["bf"] = 2;
    const WriterReport report = write(MediaFileWriter(temporaryFolder() / "segment%03d.ts", options));
    EXPECT_EQ(report.files.size(), 4U);
    for (const int stream : {0, 1}) {
        std::vector<std::string> all;
        for (const std::string& file : report.files) {
            const std::vector<std::string> some = hashes(file, stream);
            all.insert(all.end(), some.begin(), some.end());
        }
        EXPECT_EQ(all, hashes(whole, stream)) << stream;
    }
    // Each begins with a key frame, with all sound from its time on and none from before.
    for (const std::string& file : report.files) {
        const ProbedMedia media = probe(file);
        const auto first = std::find_if(media.packets.begin(), media.packets.end(),
                                        [](const auto& p) { return p.stream == 0; });
        EXPECT_TRUE(first->key) << file;
        const auto sound = std::find_if(media.packets.begin(), media.packets.end(),
                                        [](const auto& p) { return p.stream == 1; });
        if (file != report.files.front()) {
            EXPECT_GE(*sound->pts, *first->pts) << file;
            EXPECT_LT(*sound->pts, *first->pts + 2160) << file;
        }
    }
    EXPECT_EQ(fileContent(playlist),
              "#EXTM3U\n#EXT-X-VERSION:3\n#EXT-X-PLAYLIST-TYPE:EVENT\n#EXT-X-TARGETDURATION:1\n#EXT-X-MEDIA-"
              "SEQUENCE:0\n"
              "#EXTINF:1.200000,\nsegment000.ts\n#EXTINF:1.200000,\nsegment001.ts\n#EXTINF:1.200000,"
              "\nsegment002.ts\n"
              "#EXTINF:0.400000,\nsegment003.ts\n#EXT-X-ENDLIST\n");
}

TEST(WriterOutput, SegmentsWithoutAPlaylistBeginAtZeroUnderNamesOfTheCaller) {
    WriterOptions options;
    options.segmentDuration = std::chrono::milliseconds(400);
    std::vector<Timestamp> starts;
    options.segmentName = [&](std::uint64_t number, const Timestamp& start) {
        starts.push_back(start);
        return (temporaryFolder() / ("named" + std::to_string(number) + ".mp4")).string();
    };
    MediaFileWriter writer("any.mp4", options);
    record(writer, 25);
    const WriterReport report = writer.finish();
    ASSERT_EQ(report.files.size(), 3U);
    EXPECT_THAT(starts, ElementsAre(Timestamp({1, 25}, 0), Timestamp({1, 25}, 10), Timestamp({1, 25}, 20)));
    for (const std::string& file : report.files) {
        const ProbedMedia media = probe(file);
        const auto first = std::find_if(media.packets.begin(), media.packets.end(),
                                        [](const ProbedPacket& packet) { return packet.stream == 0; });
        EXPECT_EQ(first->pts, 0) << file;
    }
}

TEST(WriterOutput, FragmentsCanBeAsLongAsAsked) {
    const std::map<long, int> fragments = {{0, 5}, {200000, 9}};
    for (const auto& [microseconds, least] : fragments) {
        const auto path = freshPath("fragments.mp4");
        WriterOptions options;
        options.fragmentDuration = std::chrono::microseconds(microseconds);
        MediaFileWriter writer(path, options);
        record(writer, 50);
        writer.finish();
        const std::string bytes = fileContent(path);
        int count = 0;
        for (std::size_t at = bytes.find("moof"); at != std::string::npos; at = bytes.find("moof", at + 1)) {
            ++count;
        }
        EXPECT_GE(count, least);
        EXPECT_LE(count, least + 3);
        EXPECT_EQ(hashes(path, 0).size(), 50U);
    }
}

}  // namespace
}  // namespace vidorra::test
