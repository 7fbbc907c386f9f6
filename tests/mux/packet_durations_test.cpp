#include "mux/packet_durations.h"

#include <gmock/gmock.h>

#include <vector>

namespace vidorra {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

Packet packetAt(std::int64_t pts, std::int64_t dts, std::int64_t duration = 0) {
    Packet packet;
    packet.pts = pts;
    packet.dts = dts;
    packet.duration = duration;
    return packet;
}

class PacketDurationsTest : public testing::Test {
protected:
    // The durations that come out.
    std::vector<std::int64_t> add(const Packet& packet) {
        mGiven.clear();
        mDurations.add(packet, [this](const Packet& ready) { mGiven.push_back(ready.duration); });
        return mGiven;
    }
    std::vector<std::int64_t> end() {
        mGiven.clear();
        mDurations.end([this](const Packet& ready) { mGiven.push_back(ready.duration); });
        return mGiven;
    }

private:
    PacketDurations mDurations{7};
    std::vector<std::int64_t> mGiven;
};

TEST_F(PacketDurationsTest, APictureLastsUntilTheNext) {
    EXPECT_THAT(add(packetAt(0, 0)), IsEmpty());
    EXPECT_THAT(add(packetAt(3, 3)), ElementsAre(3));
    EXPECT_THAT(add(packetAt(4, 4)), ElementsAre(1));
    EXPECT_THAT(end(), ElementsAre(1));
}

TEST_F(PacketDurationsTest, AReorderedPictureWaitsUntilNoEarlierOneCanCome) {
    // Shown: 0 2 5 9 10 12, in the order of decoding of two pictures between.
    EXPECT_THAT(add(packetAt(0, -5)), IsEmpty());
    EXPECT_THAT(add(packetAt(9, -2)), IsEmpty());
    EXPECT_THAT(add(packetAt(2, 0)), IsEmpty());
    EXPECT_THAT(add(packetAt(5, 2)), ElementsAre(2));
    EXPECT_THAT(add(packetAt(12, 5)), IsEmpty());
    EXPECT_THAT(add(packetAt(10, 9)), ElementsAre(1, 3, 4));
    EXPECT_THAT(end(), ElementsAre(2, 2));
}

TEST_F(PacketDurationsTest, TheOnlyPictureLastsTheDefault) {
    EXPECT_THAT(add(packetAt(100, 100)), IsEmpty());
    EXPECT_THAT(end(), ElementsAre(7));
    EXPECT_THAT(end(), IsEmpty());
}

TEST_F(PacketDurationsTest, ADurationThatIsKnownStaysAndNothingWaits) {
    EXPECT_THAT(add(packetAt(0, 0, 2)), ElementsAre(2));
    EXPECT_THAT(add(packetAt(5, 5)), IsEmpty());
    EXPECT_THAT(end(), ElementsAre(5));
}

}  // namespace
}  // namespace vidorra
