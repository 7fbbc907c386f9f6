#include "clip/frame_cutter.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "ffmpeg_frames.h"

namespace vidorra {
namespace {

constexpr Ticks kForEver = Ticks{1} << 60;
constexpr Ticks kFrame = kSecond / 25;

PlacedFrame picture(Ticks time) {
    return {makeAvPtr<AVFrame>(), true, time, kFrame};
}

// Samples that count from `first`.
PlacedFrame sound(Ticks time, int first, int samples) {
    return {test::countingSamples(first, samples, 1000), false, time, samples * kSecond / 1000};
}

struct Given {
    bool picture;
    Ticks time;
    Ticks duration;
};

std::vector<Given> given(FrameCutter& cutter) {
    std::vector<Given> result;
    while (const auto frame = cutter.next()) {
        result.push_back({frame->picture, frame->time, frame->duration});
    }
    return result;
}

std::vector<int> samples(FrameCutter& cutter) {
    std::vector<int> result;
    while (const auto frame = cutter.next()) {
        for (const int sample : test::samplesOf(*frame->frame)) {
            result.push_back(sample);
        }
    }
    return result;
}

TEST(FrameCutter, GivesEverythingWithoutPoints) {
    FrameCutter cutter({0, kForEver, false, false});
    cutter.add(picture(0));
    cutter.add(sound(0, 0, 3));
    cutter.add(picture(kFrame));
    EXPECT_EQ(given(cutter).size(), 3U);
}

TEST(FrameCutter, BeginsWithThePictureThatShowsAtThePoint) {
    FrameCutter cutter({5 * kFrame / 2, kForEver, true, false});
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(cutter.hasFirstPicture(), i > 0);
        cutter.add(picture(i * kFrame));
    }
    const std::vector<Given> frames = given(cutter);
    ASSERT_EQ(frames.size(), 3U);
    EXPECT_EQ(frames[0].time, 5 * kFrame / 2);
    EXPECT_EQ(frames[0].duration, kFrame / 2);
    EXPECT_EQ(frames[1].time, 3 * kFrame);
    EXPECT_EQ(frames[2].time, 4 * kFrame);
}

TEST(FrameCutter, APictureThatBeginsAtThePointInMicrosecondsIsTheFirst) {
    FrameCutter cutter({2 * kFrame - kHalfMicrosecond, kForEver, true, false});
    for (int i = 0; i < 4; ++i) {
        cutter.add(picture(i * kFrame));
    }
    const std::vector<Given> frames = given(cutter);
    ASSERT_EQ(frames.size(), 2U);
    EXPECT_EQ(frames[0].time, 2 * kFrame);
}

TEST(FrameCutter, TheLastPictureOfAllIsGivenWhileItShows) {
    FrameCutter cutter({kFrame / 2, kForEver, true, false});
    cutter.add(picture(0));
    EXPECT_TRUE(given(cutter).empty());
    cutter.finish(std::nullopt);
    const std::vector<Given> frames = given(cutter);
    ASSERT_EQ(frames.size(), 1U);
    EXPECT_EQ(frames[0].time, kFrame / 2);
    EXPECT_EQ(frames[0].duration, kFrame / 2);

    FrameCutter later({kFrame, kForEver, true, false});
    later.add(picture(0));
    later.finish(std::nullopt);
    EXPECT_TRUE(given(later).empty());
}

TEST(FrameCutter, EndsBeforeTheSecondPoint) {
    FrameCutter cutter({0, 2 * kFrame + kFrame / 2, false, false});
    for (int i = 0; i < 3; ++i) {
        cutter.add(picture(i * kFrame));
    }
    EXPECT_FALSE(cutter.pastEnd(true));
    cutter.add(picture(3 * kFrame));
    EXPECT_TRUE(cutter.pastEnd(true));
    EXPECT_FALSE(cutter.pastEnd(false));
    const std::vector<Given> frames = given(cutter);
    ASSERT_EQ(frames.size(), 3U);
    EXPECT_EQ(frames[2].duration, kFrame / 2);
}

TEST(FrameCutter, CutsSoundToTheSampleAtBothEnds) {
    FrameCutter cutter({3 * kSecond / 1000, 8 * kSecond / 1000, true, false});
    cutter.add(sound(0, 0, 2));
    cutter.add(sound(2 * kSecond / 1000, 2, 2));
    cutter.add(sound(4 * kSecond / 1000, 4, 10));
    EXPECT_EQ(samples(cutter), (std::vector<int>{3, 4, 5, 6, 7}));
    EXPECT_FALSE(cutter.pastEnd(false));
    cutter.add(sound(14 * kSecond / 1000, 14, 2));
    EXPECT_TRUE(cutter.pastEnd(false));
    EXPECT_TRUE(samples(cutter).empty());
}

TEST(FrameCutter, SoundBeginsAtAPointBetweenTwoSamples) {
    FrameCutter cutter({34 * kSecond / 10000, kForEver, true, false});
    cutter.add(sound(0, 0, 6));
    const auto frame = cutter.next();
    ASSERT_TRUE(frame);
    EXPECT_EQ(test::samplesOf(*frame->frame), (std::vector<int>{3, 4, 5}));
    EXPECT_EQ(frame->time, 34 * kSecond / 10000);
}

TEST(FrameCutter, SoundEndsWithThePicturesWhenAsked) {
    FrameCutter cutter({0, kForEver, false, true});
    cutter.add(picture(0));
    cutter.add(sound(0, 0, 30));
    cutter.add(sound(30 * kSecond / 1000, 30, 30));
    EXPECT_EQ(given(cutter).size(), 2U) << "sound beyond the last known picture has to wait";
    cutter.add(sound(60 * kSecond / 1000, 60, 30));
    cutter.finish(std::nullopt);
    EXPECT_EQ(samples(cutter), (std::vector<int>{30, 31, 32, 33, 34, 35, 36, 37, 38, 39}));
}

TEST(FrameCutter, CutsThePaddingOfTheLastSoundWhenAsked) {
    FrameCutter cutter({0, kForEver, false, false, true});
    cutter.add(sound(0, 0, 4));
    cutter.add(sound(4 * kSecond / 1000, 4, 4));
    EXPECT_EQ(samples(cutter), (std::vector<int>{0, 1, 2, 3}));
    cutter.finish(6 * kSecond / 1000);
    EXPECT_EQ(samples(cutter), (std::vector<int>{4, 5}));

    FrameCutter unknown({0, kForEver, false, false, true});
    unknown.add(sound(0, 0, 4));
    unknown.finish(std::nullopt);
    EXPECT_EQ(samples(unknown).size(), 4U);

    FrameCutter unasked({0, kForEver, false, false, false});
    unasked.add(sound(0, 0, 4));
    unasked.finish(2 * kSecond / 1000);
    EXPECT_EQ(samples(unasked).size(), 4U);
}

TEST(FrameCutter, WithoutAPictureSoundIsNotCut) {
    FrameCutter cutter({0, kForEver, false, true});
    cutter.add(sound(0, 0, 3));
    cutter.finish(std::nullopt);
    EXPECT_EQ(samples(cutter), (std::vector<int>{0, 1, 2}));
}

}  // namespace
}  // namespace vidorra
