#include <gmock/gmock.h>

#include <optional>
#include <random>
#include <vector>

#include "encode/plain_encoder.h"
#include "support/log_capture.h"

namespace vidorra {
namespace {

using test::configFor;
using test::LogCapture;
using test::PlainEncoder;
using testing::ElementsAre;
using testing::IsEmpty;
using Line = LogCapture::Line;

Timestamp at(std::int64_t value) {
    return {Timebase(1, 25), value};
}

class NoSignalLedger : public testing::Test {
protected:
    void good(std::int64_t value) { mEncoder.pushNoSignalState(false, at(value)); }
    void bad(std::int64_t value) { mEncoder.pushNoSignalState(true, at(value)); }
    bool lost(std::int64_t value) const { return mEncoder.wasNoSignalAt(at(value)); }

    PlainEncoder mEncoder{configFor("rawvideo")};
};

TEST_F(NoSignalLedger, ThatNobodyPushedToAnswersFalse) {
    for (const std::int64_t value :
         {INT64_MIN, std::int64_t{-1}, std::int64_t{0}, std::int64_t{1}, INT64_MAX}) {
        EXPECT_FALSE(lost(value));
    }
    EXPECT_FALSE(mEncoder.wasNoSignalAt(Timestamp()));
}

TEST_F(NoSignalLedger, KnowsTheWholeTimeBeforeTheEndOfAnOutage) {
    good(10);
    bad(20);
    bad(30);
    good(40);
    for (const std::int64_t value : {5, 20, 39}) {
        EXPECT_TRUE(lost(value)) << value;
    }
    for (const std::int64_t value : {40, 50}) {
        EXPECT_FALSE(lost(value)) << value;
    }
}

TEST_F(NoSignalLedger, KnowsAnOutageFromItsBegin) {
    good(10);
    bad(20);
    EXPECT_FALSE(lost(15));
    EXPECT_FALSE(lost(19));
    for (const std::int64_t value : {std::int64_t{20}, std::int64_t{21}, std::int64_t{1000000}, INT64_MAX}) {
        EXPECT_TRUE(lost(value)) << value;
    }
}

TEST_F(NoSignalLedger, ForgetsAnEarlierOutageWhenAnotherOneBegins) {
    bad(10);
    good(20);
    bad(30);
    EXPECT_FALSE(lost(15));
    EXPECT_TRUE(lost(30));
}

TEST_F(NoSignalLedger, TakesTheFirstGoodFrameForTheEndOfAnOutage) {
    good(10);
    EXPECT_TRUE(lost(9));
    EXPECT_FALSE(lost(10));
}

TEST_F(NoSignalLedger, KeepsTheBeginOfAnOutageThatGoesOn) {
    bad(20);
    bad(10);
    bad(30);
    EXPECT_FALSE(lost(19));
    EXPECT_TRUE(lost(20));
}

TEST_F(NoSignalLedger, DoesNotLookAtTheNullMarkOfATimeThatIsAsked) {
    bad(20);
    EXPECT_TRUE(mEncoder.wasNoSignalAt(Timestamp(Timebase(1, 25), 20, true)));
    EXPECT_FALSE(mEncoder.wasNoSignalAt(Timestamp(Timebase(1, 25), 19, true)));
}

TEST_F(NoSignalLedger, ComparesAcrossTimeBases) {
    bad(25);
    EXPECT_TRUE(mEncoder.wasNoSignalAt(Timestamp(Timebase(), 1000000)));
    EXPECT_FALSE(mEncoder.wasNoSignalAt(Timestamp(Timebase(), 999999)));
}

TEST_F(NoSignalLedger, LogsChangesOnly) {
    const LogCapture log(5);
    good(25);
    good(26);
    bad(50);
    bad(51);
    good(75);
    EXPECT_THAT(log.lines(),
                ElementsAre(Line{5, "plain-rawvideo: No signal frame. Set end PTS to 1.000000 (1/25)"},
                            Line{5, "plain-rawvideo: No signal frame. Set start PTS to 2.000000 (1/25)"},
                            Line{5, "plain-rawvideo: No signal frame. Set end PTS to 3.000000 (1/25)"}));
}

TEST_F(NoSignalLedger, LogsNothingAboveLevelFive) {
    const LogCapture log(4);
    good(25);
    bad(50);
    EXPECT_THAT(log.lines(), IsEmpty());
}

// Keeps everything that was pushed and searches for the latest change at each query.
class Model {
public:
    void push(bool noSignal, std::optional<std::int64_t> time) { mPushes.push_back({noSignal, time}); }

    bool wasNoSignalAt(std::int64_t time) const {
        std::optional<Push> change;
        for (const Push& push : mPushes) {
            if (!change || change->noSignal != push.noSignal) {
                // A change without a time does not count.
                change = push.time ? std::optional(push) : std::nullopt;
            }
        }
        return change && (change->noSignal ? time >= *change->time : time < *change->time);
    }

private:
    struct Push {
        bool noSignal;
        std::optional<std::int64_t> time;
    };
    std::vector<Push> mPushes;
};

TEST(NoSignalLedgerModel, AgreesOverRandomSequences) {
    std::mt19937 random(1);
    const auto upTo = [&random](int last) { return std::uniform_int_distribution<>(0, last)(random); };
    int lost = 0;
    int kept = 0;
    for (int round = 0; round < 100; ++round) {
        PlainEncoder encoder{configFor("rawvideo")};
        Model model;
        std::int64_t time = upTo(20);
        bool noSignal = false;
        for (int step = 0; step < 40; ++step) {
            // Mostly rising times and runs of a state, sometimes neither.
            time = upTo(9) == 0 ? upTo(100) : time + upTo(3);
            noSignal = upTo(3) == 0 ? !noSignal : noSignal;
            const bool isNull = upTo(30) == 0;
            encoder.pushNoSignalState(noSignal, Timestamp(Timebase(1, 25), time, isNull));
            model.push(noSignal, isNull ? std::nullopt : std::optional(time));
            for (int asked = -1; asked < 160; asked += 1 + upTo(7)) {
                const bool expected = model.wasNoSignalAt(asked);
                ASSERT_EQ(encoder.wasNoSignalAt(at(asked)), expected) << round << " " << step << " " << asked;
                ++(expected ? lost : kept);
            }
        }
    }
    EXPECT_GT(lost, 10000);
    EXPECT_GT(kept, 10000);
}

}  // namespace
}  // namespace vidorra
