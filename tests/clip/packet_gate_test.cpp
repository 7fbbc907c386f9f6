#include "clip/packet_gate.h"

#include <gtest/gtest.h>

#include <vector>

#include "vidorra/core/av_ptr.h"

extern "C" {
#include <libavcodec/packet.h>
}

namespace vidorra {
namespace {

constexpr AVRational kBase = {1, 25};
constexpr Ticks kFrame = kSecond / 25;
constexpr bool kKey = true;

AvPtr<AVPacket> packet(std::int64_t pts, std::int64_t dts, bool key) {
    AvPtr<AVPacket> made = makeAvPtr<AVPacket>();
    made->pts = pts;
    made->dts = dts;
    made->flags = key ? AV_PKT_FLAG_KEY : 0;
    return made;
}

std::vector<std::int64_t> passed(PacketGate& gate) {
    std::vector<std::int64_t> times;
    while (const AvPtr<AVPacket> packet = gate.next()) {
        times.push_back(packet->pts);
    }
    return times;
}

TEST(PacketGate, AnOpenOneLetsEverythingPass) {
    PacketGate gate;
    gate.add(packet(3, 3, false), kBase);
    EXPECT_EQ(passed(gate), std::vector<std::int64_t>{3});
    EXPECT_FALSE(gate.hasDropped());
}

TEST(PacketGate, LeavesOutWhatIsBeforeTheLastKeyPicture) {
    PacketGate gate(10 * kFrame);
    for (int i = 0; i <= 10; ++i) {
        gate.add(packet(i, i, i % 4 == 0), kBase);
        EXPECT_TRUE(passed(gate).empty());
    }
    gate.add(packet(11, 11, false), kBase);
    EXPECT_EQ(passed(gate), (std::vector<std::int64_t>{8, 9, 10, 11}));
    EXPECT_TRUE(gate.hasDropped());
    gate.add(packet(12, 12, kKey), kBase);
    EXPECT_EQ(passed(gate), std::vector<std::int64_t>{12});
}

TEST(PacketGate, AKeyPictureThatShowsLaterDoesNotCount) {
    PacketGate gate(5 * kFrame);
    gate.add(packet(0, 0, kKey), kBase);
    gate.add(packet(8, 4, kKey), kBase);
    gate.add(packet(6, 6, false), kBase);
    EXPECT_EQ(passed(gate), (std::vector<std::int64_t>{0, 8, 6}));
    EXPECT_FALSE(gate.hasDropped());
}

TEST(PacketGate, WithoutATimeNothingIsLeftOut) {
    PacketGate gate(5 * kFrame);
    gate.add(packet(0, 0, kKey), kBase);
    gate.add(packet(AV_NOPTS_VALUE, 1, kKey), kBase);
    EXPECT_EQ(passed(gate).size(), 2U);
}

TEST(PacketGate, NewParametersAreNotLeftOut) {
    PacketGate gate(50 * kFrame);
    gate.add(packet(0, 0, kKey), kBase);
    AvPtr<AVPacket> changed = packet(1, 1, kKey);
    ASSERT_NE(av_packet_new_side_data(changed.get(), AV_PKT_DATA_NEW_EXTRADATA, 4), nullptr);
    gate.add(std::move(changed), kBase);
    gate.add(packet(2, 2, kKey), kBase);
    EXPECT_EQ(passed(gate), (std::vector<std::int64_t>{0, 1, 2}));
}

TEST(PacketGate, GivesWhatItHoldsAtTheEnd) {
    PacketGate gate(50 * kFrame);
    gate.add(packet(0, 0, kKey), kBase);
    gate.add(packet(1, 1, false), kBase);
    gate.open();
    EXPECT_EQ(passed(gate), (std::vector<std::int64_t>{0, 1}));
}

}  // namespace
}  // namespace vidorra
