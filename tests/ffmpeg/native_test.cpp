#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "ffmpeg/audio_level.h"
#include "ffmpeg/buffers.h"
#include "ffmpeg/chapters.h"
#include "ffmpeg/native_declarations.h"

extern "C" {
#include <libavcodec/packet.h>
#include <libavutil/buffer.h>
}

namespace {

// The calls that reached FFmpeg.
struct CreateCall {
    std::uint8_t* data;
    int size;
    void (*free)(void*, std::uint8_t*);
    void (*flush)(void*, std::uint8_t*, int);
    void* reserved1;
    int reserved2;
    void* opaque;
    int flags;
};

struct ChapterCall {
    AVPacket* packet;
    long first;
    unsigned long second;
    const char* title;
};

struct LevelCall {
    const void* samples;
    std::int64_t count;
    std::int64_t channels;
    AVSampleFormat format;
    void* level;
};

struct Recorder {
    std::vector<CreateCall> creates;
    std::vector<ChapterCall> chapters;
    std::vector<LevelCall> levels;
    std::vector<std::string> names;
    std::vector<AVBufferRef*> refs;
    AVBufferRef* created = nullptr;
    int answer = 0;
};

Recorder gRecorder;

int record(const char* name, AVBufferRef* ref) {
    gRecorder.names.emplace_back(name);
    gRecorder.refs.push_back(ref);
    return gRecorder.answer;
}

}  // namespace

extern "C" {

AVBufferRef* av_buffer_create2(std::uint8_t* data, int size, void (*free)(void*, std::uint8_t*),
                               void (*flush)(void*, std::uint8_t*, int), void* reserved1, int reserved2,
                               void* opaque, int flags) {
    gRecorder.creates.push_back({data, size, free, flush, reserved1, reserved2, opaque, flags});
    return gRecorder.created;
}

int av_buffer_is_dma(AVBufferRef* ref) {
    return record("is_dma", ref);
}

int av_buffer_is_external(AVBufferRef* ref) {
    return record("is_external", ref);
}

void av_buffer_set_modified(AVBufferRef* ref) {
    record("set_modified", ref);
}

void av_buffer_flush(AVBufferRef* ref) {
    record("flush", ref);
}

int av_side_data_set_chapter_metadata(AVPacket* packet, long first, unsigned long second, const char* title) {
    gRecorder.chapters.push_back({packet, first, second, title});
    return gRecorder.answer;
}

void av_audio_level_calc(const void* samples, std::int64_t count, std::int64_t channels,
                         AVSampleFormat format, void* level) {
    gRecorder.levels.push_back({samples, count, channels, format, level});
    // Two arrays of eight numbers, one after the other.
    for (int i = 0; i < 16; ++i) {
        static_cast<float*>(level)[i] = static_cast<float>(i);
    }
}

}  // extern "C"

namespace vidorra::ffmpeg_ext {
namespace {

void freeCallback(void*, std::uint8_t*) {}
void flushCallback(void*, std::uint8_t*, int) {}

class NativeFFmpeg : public testing::Test {
protected:
    void SetUp() override { gRecorder = {}; }

    AVBufferRef mRef{};
};

TEST_F(NativeFFmpeg, CreateGetsItsArgumentsUnchanged) {
    std::uint8_t byte = 0;
    int reserved = 0;
    int opaque = 0;
    gRecorder.created = &mRef;
    EXPECT_EQ(
        ffmpeg_ext::av_buffer_create2(&byte, 17, freeCallback, flushCallback, &reserved, 5, &opaque, 256),
        &mRef);
    ASSERT_EQ(gRecorder.creates.size(), 1U);
    const CreateCall& call = gRecorder.creates[0];
    EXPECT_EQ(call.data, &byte);
    EXPECT_EQ(call.size, 17);
    EXPECT_EQ(call.free, freeCallback);
    EXPECT_EQ(call.flush, flushCallback);
    EXPECT_EQ(call.reserved1, &reserved);
    EXPECT_EQ(call.reserved2, 5);
    EXPECT_EQ(call.opaque, &opaque);
    EXPECT_EQ(call.flags, 256);
}

TEST_F(NativeFFmpeg, CreateTakesASizeOfZeroAndNoCallbacks) {
    gRecorder.created = &mRef;
    EXPECT_EQ(ffmpeg_ext::av_buffer_create2(nullptr, 0, nullptr, nullptr, nullptr, 0, nullptr, 0), &mRef);
    ASSERT_EQ(gRecorder.creates.size(), 1U);
    EXPECT_EQ(gRecorder.creates[0].free, nullptr);
    EXPECT_EQ(gRecorder.creates[0].flush, nullptr);
}

TEST_F(NativeFFmpeg, CreateGivesNullWhereFFmpegDoes) {
    std::uint8_t byte = 0;
    EXPECT_EQ(ffmpeg_ext::av_buffer_create2(&byte, 1, freeCallback, flushCallback, nullptr, 0, nullptr, 0),
              nullptr);
    EXPECT_EQ(gRecorder.creates.size(), 1U);
}

TEST_F(NativeFFmpeg, CreateRefusesANegativeSizeWithoutAskingFFmpeg) {
    std::uint8_t byte = 0;
    gRecorder.created = &mRef;
    for (const int size : {-1, INT_MIN}) {
        EXPECT_EQ(
            ffmpeg_ext::av_buffer_create2(&byte, size, freeCallback, flushCallback, nullptr, 0, nullptr, 0),
            nullptr);
    }
    EXPECT_TRUE(gRecorder.creates.empty());
}

TEST_F(NativeFFmpeg, QuestionsAndCallsReachFFmpegWithTheirReference) {
    for (const int answer : {0, 1, 77}) {
        gRecorder.answer = answer;
        EXPECT_EQ(ffmpeg_ext::av_buffer_is_dma(&mRef), answer);
        EXPECT_EQ(ffmpeg_ext::av_buffer_is_external(&mRef), answer);
    }
    ffmpeg_ext::av_buffer_set_modified(&mRef);
    ffmpeg_ext::av_buffer_flush(&mRef);
    EXPECT_EQ(gRecorder.names, (std::vector<std::string>{"is_dma", "is_external", "is_dma", "is_external",
                                                         "is_dma", "is_external", "set_modified", "flush"}));
    EXPECT_EQ(gRecorder.refs, std::vector<AVBufferRef*>(8, &mRef));
}

TEST_F(NativeFFmpeg, ChapterReachesFFmpegUnchanged) {
    AVPacket* packet = reinterpret_cast<AVPacket*>(&mRef);
    const char* title = "Chapter";
    for (const int answer : {0, -22}) {
        gRecorder.answer = answer;
        EXPECT_EQ(ffmpeg_ext::av_side_data_set_chapter_metadata(packet, LONG_MIN, ULONG_MAX, title), answer);
    }
    ASSERT_EQ(gRecorder.chapters.size(), 2U);
    for (const ChapterCall& call : gRecorder.chapters) {
        EXPECT_EQ(call.packet, packet);
        EXPECT_EQ(call.first, LONG_MIN);
        EXPECT_EQ(call.second, ULONG_MAX);
        EXPECT_EQ(call.title, title);
    }
}

TEST_F(NativeFFmpeg, LevelReachesFFmpegUnchangedAndComesBackAsTwoArrays) {
    const float samples[6] = {};
    AudioLevelRecord level{};
    ffmpeg_ext::av_audio_level_calc(samples, 3, 2, AV_SAMPLE_FMT_FLT, &level);
    ASSERT_EQ(gRecorder.levels.size(), 1U);
    const LevelCall& call = gRecorder.levels[0];
    EXPECT_EQ(call.samples, samples);
    EXPECT_EQ(call.count, 3);
    EXPECT_EQ(call.channels, 2);
    EXPECT_EQ(call.format, AV_SAMPLE_FMT_FLT);
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(level.peak[i], static_cast<float>(i));
        EXPECT_EQ(level.rms[i], static_cast<float>(8 + i));
    }
}

}  // namespace
}  // namespace vidorra::ffmpeg_ext
