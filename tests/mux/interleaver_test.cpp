#include "mux/interleaver.h"

#include <gmock/gmock.h>

#include <vector>

extern "C" {
#include <libavcodec/packet.h>
}

namespace vidorra {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

Packet packetAt(std::int64_t dts, std::int64_t pts, int size = 10) {
    Packet packet;
    av_new_packet(&packet, size);
    packet.dts = dts;
    packet.pts = pts;
    return packet;
}

// The tracks and times of decoding of all that is ready.
std::vector<std::pair<std::size_t, std::int64_t>> ready(Interleaver& interleaver,
                                                        const std::optional<Interleaver::Cut>& cut = {}) {
    std::vector<std::pair<std::size_t, std::int64_t>> found;
    while (const auto track = interleaver.next(cut)) {
        if (cut && cut->track == *track) {
            found.emplace_back(99, 0);
            break;
        }
        found.emplace_back(*track, interleaver.take(*track).dts);
    }
    return found;
}

TEST(Interleaver, ComparesTimesOfAnyBases) {
    Interleaver interleaver;
    interleaver.addTrack({1, 25}, true);
    interleaver.addTrack({1001, 30000}, true);
    interleaver.add(0, packetAt(0, 0));
    EXPECT_EQ(interleaver.lagging(), 1U);
    EXPECT_THAT(ready(interleaver), IsEmpty());
    interleaver.add(0, packetAt(1, 1));
    interleaver.add(0, packetAt(2, 2));
    EXPECT_EQ(interleaver.waiting(), 30U);
    interleaver.add(1, packetAt(1, 1));
    interleaver.add(1, packetAt(2, 2));
    EXPECT_THAT(ready(interleaver),
                ElementsAre(std::pair(0, 0), std::pair(1, 1), std::pair(0, 1), std::pair(1, 2)));
    EXPECT_EQ(interleaver.waiting(), 10U);
    EXPECT_EQ(interleaver.mostWaiting(), 50U);
    interleaver.end(1);
    EXPECT_EQ(interleaver.lagging(), std::nullopt);
    EXPECT_THAT(ready(interleaver), ElementsAre(std::pair(0, 2)));
    EXPECT_EQ(interleaver.lagging(), 0U);
}

TEST(Interleaver, DoesNotWaitForTracksWithPauses) {
    Interleaver interleaver;
    interleaver.addTrack({1, 25}, true);
    interleaver.addTrack({1, 25}, false);
    interleaver.add(0, packetAt(5, 5));
    EXPECT_THAT(ready(interleaver), ElementsAre(std::pair(0, 5)));
    interleaver.add(1, packetAt(3, 3));
    EXPECT_THAT(ready(interleaver), IsEmpty());
    interleaver.add(0, packetAt(6, 6));
    EXPECT_THAT(ready(interleaver), ElementsAre(std::pair(1, 3), std::pair(0, 6)));
}

TEST(Interleaver, GivesWhatShowsBeforeACutAndThenTheCut) {
    Interleaver interleaver;
    interleaver.addTrack({1, 25}, true);
    interleaver.addTrack({1, 50}, true);
    // A key frame that is decoded two pictures before it shows.
    const Interleaver::Cut cut{0, Timestamp({1, 25}, 10)};
    interleaver.add(0, packetAt(8, 10));
    interleaver.add(1, packetAt(17, 17));
    interleaver.add(1, packetAt(19, 19));
    EXPECT_THAT(ready(interleaver, cut), ElementsAre(std::pair(1, 17), std::pair(1, 19)));
    interleaver.add(1, packetAt(20, 20));
    EXPECT_THAT(ready(interleaver, cut), ElementsAre(std::pair(99, 0)));
}

}  // namespace
}  // namespace vidorra
