#include "vidorra/demux/packet.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <map>
#include <type_traits>
#include <utility>

#include "support/throw_text.h"
#include "vidorra/core/ffmpeg_error.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/dict.h>
}

namespace vidorra {
namespace {

constexpr int kNoSignalBit = 0x1000;

static_assert(std::is_base_of_v<AVPacket, Packet>);
static_assert(sizeof(Packet) == sizeof(AVPacket), "a Packet is an AVPacket by value");
static_assert(std::is_nothrow_default_constructible_v<Packet>);
static_assert(std::is_nothrow_move_constructible_v<Packet>);
static_assert(std::is_nothrow_move_assignable_v<Packet>);
static_assert(static_cast<int>(Packet::KeyFrame::Yes) == 0 && static_cast<int>(Packet::KeyFrame::No) == 1);
static_assert(static_cast<int>(Packet::NoSignal::Yes) == 0 && static_cast<int>(Packet::NoSignal::No) == 1);

AvPtr<AVPacket> filledHandle(const std::string& content = "content") {
    AvPtr<AVPacket> handle = makeAvPtr<AVPacket>();
    EXPECT_EQ(av_new_packet(handle.get(), static_cast<int>(content.size())), 0);
    std::memcpy(handle->data, content.data(), content.size());
    handle->pts = 11;
    handle->dts = 7;
    handle->duration = 5;
    handle->pos = 99;
    handle->stream_index = 3;
    handle->flags = AV_PKT_FLAG_KEY | AV_PKT_FLAG_DISPOSABLE | kNoSignalBit;
    std::memcpy(av_packet_new_side_data(handle.get(), AV_PKT_DATA_NEW_EXTRADATA, 4), "side", 4);
    return handle;
}

std::string content(const AVPacket& packet) {
    return {reinterpret_cast<const char*>(packet.data), static_cast<std::size_t>(packet.size)};
}

// A packet whose size no buffer can have, so that FFmpeg cannot make a reference.
AVPacket withImpossibleSize() {
    AVPacket packet{};
    packet.size = INT_MAX;
    return packet;
}

void expectEmpty(const Packet& packet) {
    EXPECT_EQ(packet.data, nullptr);
    EXPECT_EQ(packet.size, 0);
    EXPECT_EQ(packet.buf, nullptr);
    EXPECT_EQ(packet.side_data, nullptr);
    EXPECT_EQ(packet.side_data_elems, 0);
    EXPECT_EQ(packet.pts, AV_NOPTS_VALUE);
    EXPECT_EQ(packet.dts, AV_NOPTS_VALUE);
    EXPECT_EQ(packet.duration, 0);
    EXPECT_EQ(packet.pos, -1);
    EXPECT_EQ(packet.stream_index, 0);
    EXPECT_EQ(packet.flags, 0);
}

void expectSharedCopy(const AVPacket& copy, const AVPacket& original) {
    EXPECT_EQ(copy.data, original.data);
    EXPECT_EQ(copy.size, original.size);
    ASSERT_NE(copy.buf, nullptr);
    EXPECT_NE(copy.buf, original.buf);
    EXPECT_EQ(av_buffer_get_ref_count(copy.buf), 2);
    EXPECT_EQ(copy.pts, 11);
    EXPECT_EQ(copy.dts, 7);
    EXPECT_EQ(copy.duration, 5);
    EXPECT_EQ(copy.pos, 99);
    EXPECT_EQ(copy.stream_index, 3);
    EXPECT_EQ(copy.flags, AV_PKT_FLAG_KEY | AV_PKT_FLAG_DISPOSABLE | kNoSignalBit);
    ASSERT_EQ(copy.side_data_elems, 1);
    EXPECT_EQ(copy.side_data[0].type, AV_PKT_DATA_NEW_EXTRADATA);
    ASSERT_EQ(copy.side_data[0].size, 4U);
    EXPECT_EQ(std::memcmp(copy.side_data[0].data, "side", 4), 0);
}

TEST(Packet, ADefaultPacketIsEmptyAndWithoutTimes) {
    expectEmpty(Packet());
}

TEST(Packet, IsAnAvPacketForFfmpeg) {
    Packet packet;
    ASSERT_EQ(av_new_packet(&packet, 10), 0);
    EXPECT_EQ(packet.size, 10);
}

TEST(Packet, FromAnAvPacketSharesItsData) {
    const AvPtr<AVPacket> handle = filledHandle();
    expectSharedCopy(Packet(*handle), *handle);
}

TEST(Packet, FromAHandleSharesItsData) {
    const AvPtr<AVPacket> handle = filledHandle();
    expectSharedCopy(Packet(handle), *handle);
}

TEST(Packet, FromANullHandleIsEmpty) {
    expectEmpty(Packet(AvPtr<AVPacket>(nullptr, [](AVPacket*) {})));
}

TEST(Packet, ACopySharesTheData) {
    const AvPtr<AVPacket> handle = filledHandle();
    Packet original;
    av_packet_move_ref(&original, handle.get());
    const Packet copy(original);  // NOLINT(performance-unnecessary-copy-initialization)
    expectSharedCopy(copy, original);
}

TEST(Packet, CopyAssignmentReleasesTheTargetAndSharesTheData) {
    const AvPtr<AVPacket> handle = filledHandle();
    const AvPtr<AVPacket> old = filledHandle("old");
    Packet target(*old);
    ASSERT_EQ(av_buffer_get_ref_count(old->buf), 2);
    Packet original;
    av_packet_move_ref(&original, handle.get());
    target = original;
    expectSharedCopy(target, original);
    EXPECT_EQ(av_buffer_get_ref_count(old->buf), 1);
}

TEST(Packet, CopyAssignmentToItselfKeepsEverything) {
    const AvPtr<AVPacket> handle = filledHandle();
    Packet packet(*handle);
    const Packet& same = packet;
    packet = same;
    expectSharedCopy(packet, *handle);
}

TEST(Packet, DataThatAPacketDoesNotOwnIsCopied) {
    std::string bytes = "bytes of the caller";
    AVPacket borrowed{};
    borrowed.data = reinterpret_cast<std::uint8_t*>(bytes.data());
    borrowed.size = static_cast<int>(bytes.size());
    const Packet packet(borrowed);
    EXPECT_NE(packet.data, borrowed.data);
    ASSERT_NE(packet.buf, nullptr);
    EXPECT_EQ(content(packet), bytes);
}

TEST(Packet, AFailedCopyThrows) {
    EXPECT_THROW_TEXT(FFmpegError, "Could not copy AVPacket: FFmpeg AV_ERROR: #-22: Invalid argument",
                      const Packet packet(withImpossibleSize()));
}

TEST(Packet, AFailedCopyHasTheCodeOfFfmpeg) {
    try {
        const Packet packet(withImpossibleSize());
        FAIL() << "nothing was thrown";
    } catch (const FFmpegError& error) {
        EXPECT_EQ(error.error(), AvError::InvalidArgument);
    }
}

TEST(Packet, AFailedCopyFromAHandleThrows) {
    AvPtr<AVPacket> handle = makeAvPtr<AVPacket>();
    handle->size = INT_MAX;
    EXPECT_THROW_TEXT(FFmpegError, "Could not copy AVPacket: FFmpeg AV_ERROR: #-22: Invalid argument",
                      const Packet packet(handle));
}

TEST(Packet, AFailedCopyAssignmentLeavesTheTargetAsItWas) {
    const AvPtr<AVPacket> handle = filledHandle();
    Packet target(*handle);
    Packet impossible;
    impossible.size = INT_MAX;
    EXPECT_THROW(target = impossible, FFmpegError);
    expectSharedCopy(target, *handle);
}

TEST(Packet, AMoveTakesTheReferenceAndLeavesAnEmptyPacket) {
    const AvPtr<AVPacket> handle = filledHandle();
    Packet source(*handle);
    const Packet target(std::move(source));
    expectSharedCopy(target, *handle);
    expectEmpty(source);  // NOLINT(bugprone-use-after-move)
}

TEST(Packet, MoveAssignmentReleasesTheTargetAndLeavesAnEmptyPacket) {
    const AvPtr<AVPacket> handle = filledHandle();
    const AvPtr<AVPacket> old = filledHandle("old");
    Packet source(*handle);
    Packet target(*old);
    target = std::move(source);
    expectSharedCopy(target, *handle);
    EXPECT_EQ(av_buffer_get_ref_count(old->buf), 1);
    expectEmpty(source);  // NOLINT(bugprone-use-after-move)
}

TEST(Packet, MoveAssignmentToItselfKeepsEverything) {
    const AvPtr<AVPacket> handle = filledHandle();
    Packet packet(*handle);
    Packet& same = packet;
    packet = std::move(same);
    expectSharedCopy(packet, *handle);
}

TEST(Packet, TheDestructorReleasesTheReference) {
    const AvPtr<AVPacket> handle = filledHandle();
    {
        const Packet packet(*handle);
        ASSERT_EQ(av_buffer_get_ref_count(handle->buf), 2);
    }
    EXPECT_EQ(av_buffer_get_ref_count(handle->buf), 1);
}

TEST(Packet, MakeReferenceSharesTheData) {
    const AvPtr<AVPacket> handle = filledHandle();
    Packet packet;
    av_packet_move_ref(&packet, handle.get());
    const tl::expected<AvPtr<AVPacket>, AvError> reference = packet.makeReference();
    ASSERT_TRUE(reference.has_value());
    expectSharedCopy(**reference, packet);
}

TEST(Packet, MakeReferenceGivesTheErrorOfFfmpeg) {
    Packet packet;
    packet.size = INT_MAX;
    const tl::expected<AvPtr<AVPacket>, AvError> reference = packet.makeReference();
    ASSERT_FALSE(reference.has_value());
    EXPECT_EQ(reference.error(), AvError::InvalidArgument);
}

TEST(Packet, TheKeyFrameFlagIsFfmpegsKeyFlag) {
    Packet packet;
    packet.flags = AV_PKT_FLAG_CORRUPT;
    EXPECT_FALSE(packet.isKeyFrame());
    packet.setFlag(Packet::KeyFrame::Yes);
    EXPECT_EQ(packet.flags, AV_PKT_FLAG_CORRUPT | AV_PKT_FLAG_KEY);
    EXPECT_TRUE(packet.isKeyFrame());
    packet.setFlag(Packet::KeyFrame::No);
    EXPECT_EQ(packet.flags, AV_PKT_FLAG_CORRUPT);
    EXPECT_FALSE(packet.isKeyFrame());
}

TEST(Packet, TheNoSignalFlagIsBit0x1000) {
    Packet packet;
    packet.flags = AV_PKT_FLAG_KEY;
    EXPECT_FALSE(packet.isNoSignal());
    packet.setFlag(Packet::NoSignal::Yes);
    EXPECT_EQ(packet.flags, AV_PKT_FLAG_KEY | kNoSignalBit);
    EXPECT_TRUE(packet.isNoSignal());
    packet.setFlag(Packet::NoSignal::No);
    EXPECT_EQ(packet.flags, AV_PKT_FLAG_KEY);
    EXPECT_FALSE(packet.isNoSignal());
}

TEST(Packet, TheNoSignalFlagSurvivesReferencesAndMoves) {
    Packet packet(*filledHandle());
    packet.setFlag(Packet::NoSignal::Yes);
    const Packet copy(packet);
    EXPECT_TRUE(copy.isNoSignal());
    EXPECT_NE((*packet.makeReference())->flags & kNoSignalBit, 0);
    const Packet moved(std::move(packet));
    EXPECT_TRUE(moved.isNoSignal());
}

// The strings of the side data that carries chapters.
std::map<std::string, std::string> strings(const AVPacket& packet) {
    std::map<std::string, std::string> result;
    for (int i = 0; i < packet.side_data_elems; ++i) {
        const AVPacketSideData& entry = packet.side_data[i];
        if (entry.type != AV_PKT_DATA_STRINGS_METADATA) {
            continue;
        }
        AVDictionary* dictionary = nullptr;
        EXPECT_EQ(av_packet_unpack_dictionary(entry.data, entry.size, &dictionary), 0);
        const AVDictionaryEntry* string = nullptr;
        while ((string = av_dict_get(dictionary, "", string, AV_DICT_IGNORE_SUFFIX)) != nullptr) {
            EXPECT_TRUE(result.emplace(string->key, string->value).second) << "twice: " << string->key;
        }
        av_dict_free(&dictionary);
    }
    return result;
}

using Strings = std::map<std::string, std::string>;

TEST(Packet, AChapterIsAttachedAsSideData) {
    Packet packet(*filledHandle());
    EXPECT_TRUE(packet.setChapter(-7, 12, "Überschrift").ok);
    EXPECT_EQ(strings(packet),
              (Strings{{"chapter-first", "-7"}, {"chapter-second", "12"}, {"chapter-title", "Überschrift"}}));
    EXPECT_EQ(packet.side_data_elems, 2) << "the side data that was there stays";
}

TEST(Packet, TheNumbersOfAChapterHaveTheirWholeRange) {
    Packet packet;
    EXPECT_TRUE(packet.setChapter(LONG_MIN, ULONG_MAX, "").ok);
    EXPECT_EQ(strings(packet), (Strings{{"chapter-first", std::to_string(LONG_MIN)},
                                        {"chapter-second", std::to_string(ULONG_MAX)},
                                        {"chapter-title", ""}}));
}

TEST(Packet, ASecondChapterTakesThePlaceOfTheFirst) {
    Packet packet;
    EXPECT_TRUE(packet.setChapter(1, 2, "first").ok);
    EXPECT_TRUE(packet.setChapter(3, 4, "second").ok);
    EXPECT_EQ(packet.side_data_elems, 1);
    EXPECT_EQ(strings(packet),
              (Strings{{"chapter-first", "3"}, {"chapter-second", "4"}, {"chapter-title", "second"}}));
}

TEST(Packet, AChapterGoesWithReferences) {
    Packet packet(*filledHandle());
    EXPECT_TRUE(packet.setChapter(1, 2, "title").ok);
    const Packet copy(packet);
    EXPECT_EQ(strings(copy).at("chapter-title"), "title");
    EXPECT_EQ(strings(**packet.makeReference()).at("chapter-second"), "2");
}

TEST(Packet, AChapterInACopyLeavesTheOriginalAlone) {
    const Packet packet(*filledHandle());
    Packet copy(packet);
    EXPECT_TRUE(copy.setChapter(1, 2, "title").ok);
    EXPECT_TRUE(strings(packet).empty());
}

}  // namespace
}  // namespace vidorra
