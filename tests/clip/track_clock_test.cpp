#include "clip/track_clock.h"

#include <gtest/gtest.h>

namespace vidorra {
namespace {

constexpr Ticks kMillisecond = kSecond / 1000;
constexpr Ticks kFrame = kSecond / 25;

TEST(TrackClock, PicturesAreAtTheirOwnTimes) {
    TrackClock clock(kMillisecond, true);
    EXPECT_EQ(clock.placePicture(0, kFrame).time, 0);
    EXPECT_EQ(clock.placePicture(3 * kFrame, kFrame).time, 3 * kFrame);
    EXPECT_EQ(clock.end(), 4 * kFrame);
}

TEST(TrackClock, APictureWithoutATimeFollowsTheOneBefore) {
    TrackClock clock(kMillisecond, true);
    EXPECT_TRUE(clock.placePicture(std::nullopt, kFrame).repaired);
    const TrackClock::Place second = clock.placePicture(std::nullopt, kFrame);
    EXPECT_EQ(second.time, kFrame);
    EXPECT_TRUE(second.repaired);
    EXPECT_FALSE(clock.placePicture(5 * kFrame, kFrame).repaired);
}

TEST(TrackClock, APictureThatDoesNotRiseFollowsTheOneBefore) {
    TrackClock clock(kMillisecond, true);
    EXPECT_EQ(clock.placePicture(10 * kFrame, kFrame).time, 10 * kFrame);
    const TrackClock::Place same = clock.placePicture(10 * kFrame, kFrame);
    EXPECT_EQ(same.time, 11 * kFrame);
    EXPECT_TRUE(same.repaired);
    EXPECT_EQ(clock.placePicture(2 * kFrame, 0).time, 12 * kFrame);
    EXPECT_EQ(clock.placePicture(2 * kFrame, kFrame).time, 12 * kFrame + kMicrosecond)
        << "rises without a duration too";
}

TEST(TrackClock, TimesRiseAfterDurationsOfManyYears) {
    TrackClock pictures(kMillisecond, true);
    Ticks last = -1;
    for (int i = 0; i < 10; ++i) {
        const Ticks time = pictures.placePicture(std::nullopt, kMostTicks).time;
        EXPECT_GT(time, last);
        last = time;
    }
    TrackClock sound(kMillisecond, true);
    last = -1;
    for (int i = 0; i < 10; ++i) {
        const Ticks time = sound.placeSound(std::nullopt, 2147483647, 1).time;
        EXPECT_GE(time, last);
        EXPECT_LE(time, kMostTicks);
        last = time;
    }
}

TEST(TrackClock, NothingIsBeforeTheStartOfTheSource) {
    TrackClock clock(kMillisecond, true);
    const TrackClock::Place place = clock.placePicture(-kFrame, kFrame);
    EXPECT_EQ(place.time, 0);
    EXPECT_TRUE(place.repaired);
    TrackClock middle(kMillisecond, false);
    EXPECT_EQ(middle.placePicture(-kFrame, kFrame).time, -kFrame);
}

TEST(TrackClock, RoundedStampsOfSoundDoNotMoveIt) {
    // 1,024 samples last 21.333 ms, and the container counts milliseconds.
    TrackClock clock(kMillisecond, true);
    for (int i = 0; i < 1000; ++i) {
        const Ticks rounded = (i * 1024 * 1000 + 24000) / 48000 * kMillisecond;
        const TrackClock::Place place = clock.placeSound(rounded, 1024, 48000);
        ASSERT_EQ(place.time, ticksOfSamples(std::int64_t{i} * 1024, 48000)) << i;
        ASSERT_FALSE(place.repaired);
    }
}

TEST(TrackClock, AGapInSoundStays) {
    TrackClock clock(kMillisecond, true);
    static_cast<void>(clock.placeSound(0, 480, 48000));
    const TrackClock::Place place = clock.placeSound(15 * kMillisecond, 480, 48000);
    EXPECT_EQ(place.time, 15 * kMillisecond);
    EXPECT_FALSE(place.repaired);
    EXPECT_EQ(clock.end(), 25 * kMillisecond);
}

TEST(TrackClock, SoundThatOverlapsOrHasNoTimeFollowsTheSoundBefore) {
    TrackClock clock(kMillisecond, true);
    static_cast<void>(clock.placeSound(0, 480, 48000));
    const TrackClock::Place overlap = clock.placeSound(5 * kMillisecond, 480, 48000);
    EXPECT_EQ(overlap.time, 10 * kMillisecond);
    EXPECT_TRUE(overlap.repaired);
    const TrackClock::Place without = clock.placeSound(std::nullopt, 480, 48000);
    EXPECT_EQ(without.time, 20 * kMillisecond);
    EXPECT_TRUE(without.repaired);
}

TEST(TrackClock, OddRatesDoNotDrift) {
    TrackClock clock(kSecond / 11111, true);
    Ticks last = 0;
    for (int i = 0; i < 100000; ++i) {
        last = clock.placeSound(std::nullopt, 7, 11111).time;
    }
    EXPECT_EQ(last, ticksOfSamples(99999 * 7, 11111));
}

TEST(TrackClock, AnotherRateCountsFromTheEndOfTheFirst) {
    TrackClock clock(kMillisecond, true);
    static_cast<void>(clock.placeSound(0, 480, 48000));
    EXPECT_EQ(clock.placeSound(10 * kMillisecond, 80, 8000).time, 10 * kMillisecond);
    EXPECT_EQ(clock.end(), 20 * kMillisecond);
}

}  // namespace
}  // namespace vidorra
