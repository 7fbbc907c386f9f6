// How the reader handles packets that ordinary files do not give on demand: their order, times, lengths and
// failures.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include <vidorra/vidorra.h>

#include "recording_store.h"
#include "scripted_source.h"
#include "support/log_capture.h"
#include "support/throw_text.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace vidorra::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Mode = MediaFileReader::PlaybackMode;
using State = MediaFileReader::State;

// The result of read(): the kind and the time.
struct Got {
    char kind;
    std::int64_t time;

    friend bool operator==(const Got& a, const Got& b) { return a.kind == b.kind && a.time == b.time; }
};

void PrintTo(const Got& got, std::ostream* stream) {
    *stream << got.kind << got.time;
}

std::optional<Got> readOne(MediaFileReader& reader) {
    const auto frame = reader.read();
    if (const auto* audio = std::get_if<AudioFrame>(&frame)) {
        return Got{'a', audio->timestamp().value};
    }
    if (const auto* video = std::get_if<VideoFrame>(&frame)) {
        return Got{'v', video->timestamp().value};
    }
    return std::nullopt;
}

std::vector<Got> readAll(MediaFileReader& reader) {
    std::vector<Got> all;
    for (auto got = readOne(reader); got; got = readOne(reader)) {
        all.push_back(*got);
    }
    return all;
}

class ScriptedReading : public testing::Test {
protected:
    MediaFileReader& open(Mode mode) {
        reader = std::make_unique<MediaFileReader>(scriptedFile(), mode, store);
        reader->open();
        return *reader;
    }

    // In quotes by some releases of fmt.
    const std::string name = fmt::format("{}", std::filesystem::path("scripted.mov"));
    std::shared_ptr<RecordingStore> store = std::make_shared<RecordingStore>();
    std::unique_ptr<MediaFileReader> reader;
    LogCapture log;
};

TEST_F(ScriptedReading, GivesTheFramesOfTheSelectedTracksInTheOrderOfThePackets) {
    open(Mode::Once);
    const Script script(
        {audio(0, 1000), video(0), audio(500, 500, kOtherAudio), video(1000), audio(1000, 1000)});
    EXPECT_THAT(readAll(*reader), ElementsAre(Got{'a', 0}, Got{'v', 0}, Got{'v', 1000}, Got{'a', 1000}));
    EXPECT_THAT(store->events, IsEmpty());
}

TEST_F(ScriptedReading, OpeningSelectsTheFirstTrackOfEachType) {
    open(Mode::Once);
    EXPECT_EQ(reader->trackAtIndex(kScriptedVideo)->discard, AVDISCARD_NONE);
    EXPECT_EQ(reader->trackAtIndex(kScriptedAudio)->discard, AVDISCARD_NONE);
    EXPECT_EQ(reader->trackAtIndex(kOtherAudio)->discard, AVDISCARD_ALL);
}

TEST_F(ScriptedReading, AReadThatFailsChangesNothingAndTheNextOneTriesAgain) {
    for (const Mode mode : {Mode::Once, Mode::Loop}) {
        open(mode);
        const Script script({video(0), kError, kError, video(1000)});
        EXPECT_EQ(readOne(*reader), (Got{'v', 0}));
        for (int i = 0; i < 2; ++i) {
            EXPECT_THROW_TEXT(std::runtime_error, "Input/output error", static_cast<void>(reader->read()));
            EXPECT_EQ(reader->getState(), State::Opened);
        }
        EXPECT_EQ(readOne(*reader), (Got{'v', 1000}));
    }
}

TEST_F(ScriptedReading, AnEmptyPacketThatIsNotTheEndGivesNothingAndTheNextReadGoesOn) {
    for (const Mode mode : {Mode::Once, Mode::Loop}) {
        open(mode);
        const Script script({video(0), kEmpty, video(1000)});
        EXPECT_EQ(readOne(*reader), (Got{'v', 0}));
        EXPECT_EQ(readOne(*reader), std::nullopt);
        EXPECT_EQ(reader->getState(), State::Opened);
        EXPECT_EQ(script.reads(), 2U) << "it is not tried again by itself";
        EXPECT_EQ(readOne(*reader), (Got{'v', 1000})) << "nor is the file begun again";
    }
}

TEST_F(ScriptedReading, AfterTheEndOfAFilePlayedOnceNothingIsReadAnyMore) {
    open(Mode::Once);
    const Script script({video(0), kEnd, video(1000)});
    EXPECT_THAT(readAll(*reader), ElementsAre(Got{'v', 0}));
    EXPECT_EQ(script.reads(), 2U);
    EXPECT_EQ(reader->getState(), State::Eof);
    EXPECT_EQ(readOne(*reader), std::nullopt);
    EXPECT_EQ(script.reads(), 2U);
    reader->restart();
    EXPECT_EQ(reader->getState(), State::Opened);
    EXPECT_EQ(readOne(*reader), (Got{'v', 2000}));
}

TEST_F(ScriptedReading, AClosedReaderGivesNothingWhateverWasSelected) {
    open(Mode::Once);
    const Script script({video(0)});
    reader->close();
    EXPECT_EQ(readOne(*reader), std::nullopt);
    EXPECT_EQ(script.reads(), 0U);
}

TEST_F(ScriptedReading, WithoutASelectedTrackNothingIsRead) {
    open(Mode::Loop);
    reader->selectTracks(std::nullopt, std::nullopt);
    const Script script({video(0)});
    EXPECT_EQ(readOne(*reader), std::nullopt);
    EXPECT_EQ(script.reads(), 0U);
}

TEST_F(ScriptedReading, TheNextPassBeginsAtTheGreatestEndOfAnyPacket) {
    open(Mode::Loop);
    // In the first pass the end is that of the first packet, in the second one that of a track that is left
    // out.
    const Script script({audio(0, 1000000), video(0), kEnd, video(0), audio(500000, 20000, kOtherAudio),
                         video(40000), kEnd, video(7)});
    const std::vector<Got> expected = {{'a', 0}, {'v', 0}, {'v', 1000000}, {'v', 1040000}, {'v', 1520007}};
    for (const Got& got : expected) {
        EXPECT_EQ(readOne(*reader), got);
    }
}

TEST_F(ScriptedReading, AnEndBeforeTheFilesZeroCountsToo) {
    open(Mode::Loop);
    const Script script({video(-1000000, 40000), kEnd, video(5, 40000)});
    EXPECT_EQ(readOne(*reader), (Got{'v', -1000000}));
    EXPECT_EQ(readOne(*reader), (Got{'v', -960000 + 5}));
}

TEST_F(ScriptedReading, OpeningAgainForgetsTheEarlierPasses) {
    open(Mode::Loop);
    {
        const Script script({video(0, 10000000), kEnd, video(0)});
        EXPECT_EQ(readOne(*reader), (Got{'v', 0}));
        EXPECT_EQ(readOne(*reader), (Got{'v', 10000000}));
    }
    reader->close();
    reader->open();
    const Script script({video(0, 40000), kEnd, video(0)});
    EXPECT_EQ(readOne(*reader), (Got{'v', 0}));
    EXPECT_EQ(readOne(*reader), (Got{'v', 40000}));
}

TEST_F(ScriptedReading, PacketsWithoutTimesAreReadOverSeveralPasses) {
    open(Mode::Loop);
    const Script script({video(kNoStamp), video(kNoStamp), kEnd, video(kNoStamp), kEnd, video(kNoStamp)});
    for (int i = 0; i < 4; ++i) {
        const auto got = readOne(*reader);
        ASSERT_TRUE(got);
        EXPECT_EQ(*got, (Got{'v', kNoStamp}));
    }
}

TEST_F(ScriptedReading, ALoopThatGivesNoFrameEnds) {
    open(Mode::Loop);
    const Script script({video(0), kEnd, kEnd});
    EXPECT_EQ(readOne(*reader), (Got{'v', 0}));
    EXPECT_EQ(readOne(*reader), std::nullopt);
    EXPECT_EQ(reader->getState(), State::Eof);
}

TEST_F(ScriptedReading, ALoopGoesOnAfterOnePassWithoutAFrame) {
    open(Mode::Loop);
    // A packet of the track that is left out gives none.
    const Step other = audio(0, 1000, kOtherAudio);
    const Script script({other, kEnd, video(0), kEnd, other, kEnd, video(0), video(1000), kEnd, other, kEnd,
                         other, kEnd, video(0)});
    EXPECT_EQ(readAll(*reader).size(), 3U);
    EXPECT_EQ(reader->getState(), State::Eof);
    EXPECT_EQ(script.reads(), 13U) << "until two passes in a row gave no frame";
    reader->restart();
    EXPECT_EQ(readAll(*reader).size(), 1U) << "and it can be begun again";
}

TEST_F(ScriptedReading, ALoopWhoseFirstTwoPassesGiveNoFrameEnds) {
    open(Mode::Loop);
    const Step other = audio(0, 1000, kOtherAudio);
    const Script script({other, kEnd, other, kEnd, video(0)});
    EXPECT_EQ(readOne(*reader), std::nullopt);
    EXPECT_EQ(script.reads(), 4U);
    EXPECT_EQ(reader->getState(), State::Eof);
}

TEST_F(ScriptedReading, ALoopEndsAtOnceAfterAPassWithoutAPacket) {
    open(Mode::Loop);
    {
        const Script script({kEnd, video(0)});
        EXPECT_EQ(readOne(*reader), std::nullopt);
        EXPECT_EQ(script.reads(), 1U);
        EXPECT_EQ(reader->getState(), State::Eof);
    }
    // The passes of an earlier file do not count.
    reader->close();
    reader->open();
    const Script script({video(0), kEnd, kEnd, video(0)});
    EXPECT_EQ(readOne(*reader), (Got{'v', 0}));
    EXPECT_EQ(readOne(*reader), std::nullopt);
    EXPECT_EQ(script.reads(), 3U);
}

TEST_F(ScriptedReading, AFileWithoutStreamInformationStaysOpenWithNoTrackSelected) {
    // Selected tracks of an earlier file must be forgotten.
    open(Mode::Loop);
    reader->close();
    {
        const auto failing =
            calls().avformatFindStreamInfo.replace([](void*, void**) { return AVERROR(EIO); });
        EXPECT_THROW_TEXT(std::runtime_error,
                          "can't find stream info of " + scriptedFile() + " (#-5: Input/output error)",
                          reader->open());
    }
    EXPECT_EQ(reader->getState(), State::Opened);
    const Script script({video(0)});
    EXPECT_EQ(readOne(*reader), std::nullopt);
    EXPECT_EQ(script.reads(), 0U);
    EXPECT_THROW_TEXT(std::logic_error, "movie file reader already opened", reader->open());
    reader->close();
    EXPECT_EQ(reader->getState(), State::Closed);
    EXPECT_TRUE(reader->open());
    EXPECT_EQ(readOne(*reader), (Got{'v', 0}));
}

TEST_F(ScriptedReading, OpeningLooksAtTwoSecondsAtMostForWhatTheHeadersDoNotSay) {
    int searches = 0;
    const auto counting = calls().avformatFindStreamInfo.replace([&](void* context, void** options) {
        ++searches;
        EXPECT_EQ(static_cast<AVFormatContext*>(context)->max_analyze_duration, 2000000);
        return calls().avformatFindStreamInfo.real(context, options);
    });
    open(Mode::Once);
    EXPECT_EQ(searches, 1);
}

TEST_F(ScriptedReading, ARestartInTheMiddleContinuesFromTheEndOfWhatWasRead) {
    open(Mode::Once);
    const Script script({video(0, 40000), video(80000, 40000), video(7)});
    readOne(*reader);
    reader->restart();
    EXPECT_EQ(readOne(*reader), (Got{'v', 120000}));
    reader->restart();
    EXPECT_EQ(readOne(*reader), (Got{'v', 160007}));
}

TEST_F(ScriptedReading, ARestartBeforeAnythingWasReadLeavesTheTimesOfTheFile) {
    open(Mode::Once);
    reader->restart();
    reader->restart();
    const Script script({video(7)});
    EXPECT_EQ(readOne(*reader), (Got{'v', 7}));
}

// Lets a test see how far the origin is.
class OpenReader : public MediaFileReader {
public:
    using MediaFileReader::MediaFileReader;
    using MediaFileReader::timeOrigin;
};

TEST_F(ScriptedReading, ARestartWithdrawsTheWarningsThenSeeksThenMovesTheOriginThenDrains) {
    OpenReader own(scriptedFile(), Mode::Once, store);
    own.open();
    const Script script({video(0, 20000), video(20000, 0), kEnd, video(0, 0)});
    readAll(own);
    std::vector<std::string> order;
    const auto record = [&](const std::string& what) {
        order.push_back(what + ", origin " + std::to_string(own.timeOrigin()));
    };
    store->setObserver([&](vx::vdr::utils::WarningsStoreAsync::Change change, const std::string&) {
        record(change == vx::vdr::utils::WarningsStoreAsync::Change::Withdrawn ? "withdrawn" : "raised");
    });
    const auto seek =
        calls().avSeekFrame.replace([&](void* context, int stream, std::int64_t time, int flags) {
            record(fmt::format("seek {} {} {}", stream, time, flags));
            return calls().avSeekFrame.real(context, stream, time, flags);
        });
    const auto flush = calls().avcodecFlushBuffers.replace([&](void* context) {
        record("drained");
        calls().avcodecFlushBuffers.real(context);
    });
    own.restart();
    EXPECT_THAT(order, ElementsAre("withdrawn, origin 0", "seek -1 0 1, origin 0", "drained, origin 20000"));
    order.clear();
    readOne(own);
    own.restart();
    EXPECT_THAT(order, ElementsAre("raised, origin 20000", "withdrawn, origin 20000",
                                   "seek -1 0 1, origin 20000", "drained, origin 20000"));
    store->setObserver({});
}

TEST_F(ScriptedReading, ALoopThatCannotGoBackThrowsAndStaysAtTheEndWithItsDecodersAsTheyWere) {
    open(Mode::Loop);
    const Script script({video(0, 2000), video(2000, 0), kEnd, video(0)});
    readOne(*reader);
    readOne(*reader);
    ASSERT_THAT(store->texts(), testing::SizeIs(1));
    int drained = 0;
    const auto flush = calls().avcodecFlushBuffers.replace([&](void* context) {
        ++drained;
        calls().avcodecFlushBuffers.real(context);
    });
    {
        const auto seek =
            calls().avSeekFrame.replace([](void*, int, std::int64_t, int) { return AVERROR(EPERM); });
        EXPECT_THROW_TEXT(std::runtime_error, "Operation not permitted", static_cast<void>(reader->read()));
    }
    EXPECT_THAT(store->texts(), IsEmpty());
    EXPECT_EQ(drained, 0);
    EXPECT_EQ(reader->getState(), State::Eof);
    EXPECT_EQ(readOne(*reader), std::nullopt);
    EXPECT_EQ(script.reads(), 3U);
    reader->restart();
    EXPECT_EQ(readOne(*reader), (Got{'v', 2000}));
}

TEST_F(ScriptedReading, TheEndOfASourceThatCannotSeekLeavesTheWarningsInALoopToo) {
    open(Mode::Loop);
    reader->getAVFormatContext()->pb->seekable = 0;
    const Script script({video(0, 0), kEnd, video(0)});
    EXPECT_EQ(readOne(*reader), (Got{'v', 0}));
    EXPECT_EQ(readOne(*reader), std::nullopt);
    EXPECT_EQ(reader->getState(), State::Eof);
    EXPECT_EQ(readOne(*reader), std::nullopt);
    EXPECT_EQ(script.reads(), 2U);
    EXPECT_THROW_TEXT(std::runtime_error, "movie file is not seekable, restart is not supported",
                      reader->restart());
    EXPECT_EQ(reader->getState(), State::Eof);
    const std::string text = "Duration of video packets cannot be retrieved from " + name;
    EXPECT_THAT(store->events, ElementsAre("+" + text));
    EXPECT_THAT(log.texts(), ElementsAre("MediaFileReader: " + text));
}

struct Interleaving {
    std::vector<Step> steps;
    std::vector<std::string> warned;
    std::string logged;
};

TEST_F(ScriptedReading, TheSecondTrackIsLateFrom350MillisecondsOn) {
    const std::string beginning = "File " + name + " contains a non-interleaved media stream, issues with ";
    const std::string video350 = beginning + "video may occur";
    const std::string audio350 = beginning + "audio may occur";
    const auto line = [&](const std::string& counts) {
        return "MediaFileReader: " + name + " contains a non-interleaved media stream: difference " + counts;
    };
    const std::vector<Interleaving> rows = {
        {{audio(0, 1000000), video(650000)}, {video350}, line("350ms audio 1 pkts video 1 pkts")},
        {{audio(0, 1000000), video(650001)}, {}, ""},
        // The end of the packet itself does not count, however long it is.
        {{audio(0, 20000), video(0, 5000000)}, {}, ""},
        {{video(0, 5000000), audio(4980000, 20000)}, {}, ""},
        {{video(0, 250000), video(250000, 750999), audio(0, 20000)},
         {audio350},
         line("1000ms audio 1 pkts video 2 pkts")},
        // The other track that is left out does not settle the question, but its end counts.
        {{video(0), audio(900000, 100000, kOtherAudio), audio(0, 20000)},
         {audio350},
         line("1000ms audio 1 pkts video 1 pkts")},
        // Once both tracks have occurred nothing is checked any more.
        {{audio(0, 1000000), video(900000), video(0)}, {}, ""},
    };
    for (std::size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE(i);
        open(Mode::Once);
        const Script script(rows[i].steps);
        const LogCapture lines;
        readAll(*reader);
        EXPECT_EQ(store->texts(), rows[i].warned);
        if (rows[i].logged.empty()) {
            EXPECT_THAT(lines.texts(), IsEmpty());
        } else {
            EXPECT_THAT(lines.lines(), ElementsAre(LogCapture::Line{2, rows[i].logged}));
        }
    }
}

TEST_F(ScriptedReading, ATrackThatIsNotSelectedAnyMoreIsNotMissed) {
    open(Mode::Once);
    const Script script({audio(0, 1000000), video(0)});
    readOne(*reader);
    reader->selectTracks(std::nullopt, 0);
    EXPECT_EQ(readOne(*reader), (Got{'v', 0}));
    EXPECT_THAT(store->events, IsEmpty());
}

TEST_F(ScriptedReading, ANewPassWithdrawsTheWarningsAndAsksAgain) {
    open(Mode::Loop);
    const Script script({audio(0, 1000000), video(0, 0), kEnd, audio(0, 20000), video(0), kEnd,
                         audio(0, 1000000), video(0), kEnd});
    for (int i = 0; i < 2; ++i) {
        readOne(*reader);
    }
    EXPECT_THAT(store->texts(),
                ElementsAre("Duration of video packets cannot be retrieved from " + name,
                            "File " + name +
                                " contains a non-interleaved media stream, issues with video may occur"));
    for (int i = 0; i < 2; ++i) {
        readOne(*reader);
    }
    EXPECT_THAT(store->texts(), IsEmpty());
    for (int i = 0; i < 2; ++i) {
        readOne(*reader);
    }
    EXPECT_THAT(store->texts(), testing::SizeIs(1));
}

TEST_F(ScriptedReading, APacketOfATrackThatIsLeftOutIsLookedAtAsOneOfVideo) {
    open(Mode::Once);
    const Script script({audio(0, 0, kOtherAudio), video(0), audio(0, 0), video(1000)});
    readAll(*reader);
    const std::string of = " packets cannot be retrieved from " + name;
    EXPECT_THAT(store->events, ElementsAre("+Duration of video" + of, "-Duration of video" + of,
                                           "+Duration of audio" + of, "-Duration of audio" + of));
    EXPECT_THAT(log.texts(), ElementsAre("MediaFileReader: Duration of video" + of,
                                         "MediaFileReader: Duration of audio" + of));
}

TEST_F(ScriptedReading, AWarningIsRaisedBeforeItsLineIsLogged) {
    open(Mode::Once);
    std::vector<std::size_t> linesBefore;
    store->setObserver([&](vx::vdr::utils::WarningsStoreAsync::Change, const std::string&) {
        linesBefore.push_back(log.lines().size());
    });
    const Script script({audio(0, 1000000), video(0, 0)});
    readAll(*reader);
    store->setObserver({});
    EXPECT_THAT(linesBefore, ElementsAre(0U, 1U));
    EXPECT_THAT(log.texts(),
                ElementsAre(testing::HasSubstr("non-interleaved"), testing::HasSubstr("Duration")));
}

TEST_F(ScriptedReading, TheWarningsAreWithdrawnInOrderAndAfterTheFileIsClosed) {
    open(Mode::Once);
    const Script script({audio(0, 1000000), video(0, 0)});
    readAll(*reader);
    EXPECT_THAT(store->events, ElementsAre(testing::StartsWith("+File "), testing::StartsWith("+Duration ")))
        << "raised in this order by the one packet";
    // The state of the reader at the moment when each text is withdrawn.
    std::vector<std::string> gone;
    std::vector<State> states;
    store->setObserver([&](vx::vdr::utils::WarningsStoreAsync::Change, const std::string& text) {
        gone.push_back(text.substr(0, text.find(' ')));
        states.push_back(reader->getState());
    });
    reader->close();
    EXPECT_THAT(gone, ElementsAre("Duration", "File"));
    EXPECT_THAT(states, testing::Each(State::Closed));
}

TEST_F(ScriptedReading, ClosingAClosedReaderWithdrawsTheWarningsOnly) {
    open(Mode::Once);
    reader->close();
    const LogCapture lines(6);
    Packet packet;
    packet.duration = 0;
    reader->checkZeroDurationWarning(packet);
    ASSERT_THAT(store->texts(), testing::SizeIs(1));
    ASSERT_THAT(lines.lines(), testing::SizeIs(1));
    reader->close();
    EXPECT_THAT(store->texts(), IsEmpty());
    EXPECT_THAT(lines.lines(), testing::SizeIs(1));
}

// Against the clock of decoding: a frame far in the past is late whatever the machine does, one far ahead
// never.
constexpr std::int64_t kFarBehind = -100000000;
constexpr std::int64_t kFarAhead = 100000000;

class DecodingMonitor : public ScriptedReading {
protected:
    const std::string warning = "Not enough decoding resources to process the media file " + name +
                                ". This could lead to partial or full audio/video frames loss.";
};

TEST_F(DecodingMonitor, TheFirstFrameBeginsTheMeasurementAndIsNeverLate) {
    open(Mode::Once);
    const Script script({video(kFarBehind), video(kFarBehind + 1)});
    readOne(*reader);
    EXPECT_THAT(store->texts(), IsEmpty());
    readOne(*reader);
    EXPECT_THAT(store->events, ElementsAre("+" + warning));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(DecodingMonitor, AFrameMayBeTwoTenthsOfASecondLate) {
    open(Mode::Once);
    const Script script({video(-190000), video(-150000), video(-201000)});
    const auto start = std::chrono::steady_clock::now();
    readOne(*reader);
    readOne(*reader);
    if (std::chrono::steady_clock::now() - start < std::chrono::milliseconds(50)) {
        EXPECT_THAT(store->texts(), IsEmpty());
    }
    readOne(*reader);
    EXPECT_THAT(store->texts(), ElementsAre(warning));
}

TEST_F(DecodingMonitor, AFrameIsLateFrom200001WholeMicrosecondsOn) {
    std::int64_t nanoseconds = 5000000000;
    const auto clock = calls().clockGettime.replace([&](clockid_t, timespec* time) {
        *time = {nanoseconds / 1000000000, nanoseconds % 1000000000};
        return 0;
    });
    open(Mode::Once);
    const Script script({video(0), video(800000), video(799999)});
    readOne(*reader);
    // The part of a microsecond is cut off.
    nanoseconds += 1000000999;
    readOne(*reader);
    EXPECT_THAT(store->texts(), IsEmpty());
    readOne(*reader);
    EXPECT_THAT(store->texts(), ElementsAre(warning));
}

TEST_F(DecodingMonitor, MeasuresFromTheFirstFrameAndNotFromTheOneBefore) {
    open(Mode::Once);
    const Script script({video(0), video(1), video(2)});
    for (int i = 0; i < 3; ++i) {
        readOne(*reader);
        // The test measures time.
        std::this_thread::sleep_for(std::chrono::milliseconds(i < 2 ? 110 : 0));
    }
    EXPECT_THAT(store->texts(), ElementsAre(warning));
}

TEST_F(DecodingMonitor, IsRaisedOnceAndStays) {
    open(Mode::Once);
    const Script script({video(0), video(kFarBehind), video(kFarBehind + 1), video(kFarAhead)});
    readAll(*reader);
    EXPECT_THAT(store->events, ElementsAre("+" + warning));
}

TEST_F(DecodingMonitor, LooksAtVideoFramesOnly) {
    open(Mode::Once);
    const Script script({video(0), audio(kFarBehind, 1000), audio(kFarBehind + 1000, 1000)});
    readAll(*reader);
    EXPECT_THAT(store->texts(), testing::Not(testing::Contains(warning)));
}

TEST_F(DecodingMonitor, ANewCycleMeasuresFromItsBeginningAndIsTheFirstToBeWithdrawn) {
    open(Mode::Once);
    // Before any frame too.
    reader->clearWarningsCtx();
    const Script script({video(kFarBehind, 0), video(kFarBehind), video(kFarBehind)});
    readOne(*reader);
    EXPECT_THAT(store->texts(), testing::Contains(warning));
    ASSERT_THAT(store->texts(), testing::SizeIs(2));
    store->events.clear();
    reader->clearWarningsCtx();
    EXPECT_THAT(store->events,
                ElementsAre("-" + warning, "-Duration of video packets cannot be retrieved from " + name));
    readOne(*reader);
    EXPECT_THAT(store->texts(), ElementsAre(warning)) << "the first frame of a later cycle may be late";
}

TEST_F(DecodingMonitor, TheTimeUntilTheFirstFrameOfACycleDoesNotCount) {
    std::int64_t seconds = 5;
    const auto clock = calls().clockGettime.replace([&](clockid_t, timespec* time) {
        *time = {seconds, 0};
        return 0;
    });
    open(Mode::Once);
    const Script script({video(0), video(0), video(800000), video(799999), video(0)});
    readOne(*reader);
    reader->close();
    seconds += 100;
    reader->open();
    seconds += 100;
    readOne(*reader);
    EXPECT_THAT(store->texts(), IsEmpty());
    // From then on it does.
    seconds += 1;
    readOne(*reader);
    EXPECT_THAT(store->texts(), IsEmpty());
    readOne(*reader);
    EXPECT_THAT(store->texts(), ElementsAre(warning));
    reader->restart();
    seconds += 100;
    readOne(*reader);
    EXPECT_THAT(store->texts(), IsEmpty());
}

TEST_F(DecodingMonitor, IsNotThereWithoutAStore) {
    store.reset();
    open(Mode::Once);
    const Script script({video(0, 0), video(kFarBehind, 0), video(kFarBehind + 1, 0), audio(-1000000, 1000)});
    EXPECT_EQ(readAll(*reader).size(), 4U);
    EXPECT_THAT(log.lines(), IsEmpty());
}

}  // namespace
}  // namespace vidorra::test
