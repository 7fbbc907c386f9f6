#include "logger/logger.h"

#include <iomanip>
#include <optional>
#include <stdexcept>
#include <type_traits>
#include <vector>

#include "platform/logger/stderr_pipe.h"
#include "support/log_capture.h"

namespace {

using logger::Level;
using vidorra::test::LogCapture;
using vidorra::test::StderrPipe;
using Line = LogCapture::Line;

static_assert(static_cast<int>(Level::Error) == 1);
static_assert(static_cast<int>(Level::Warning) == 2);
static_assert(static_cast<int>(Level::Notice) == 3);
static_assert(static_cast<int>(Level::Info) == 4);
static_assert(static_cast<int>(Level::Debug) == 5);
static_assert(static_cast<int>(Level::Trace) == 6);

using logger::MessageOstream;
static_assert(std::is_same_v<decltype(logger::log(Level::Info)), MessageOstream>);
static_assert(std::is_same_v<decltype(logger::log(Level::Info, std::string())), MessageOstream>);
static_assert(std::is_constructible_v<bool, MessageOstream&>);
static_assert(!std::is_convertible_v<MessageOstream&, bool>);
static_assert(std::is_same_v<decltype(std::declval<MessageOstream&>().ostream()), std::ostream&>);
static_assert(std::is_nothrow_move_constructible_v<MessageOstream>);
static_assert(!std::is_copy_constructible_v<MessageOstream>);

// Before any test has changed it.
const Level kInitialLevel = logger::level();

constexpr Level kLevels[] = {Level::Error, Level::Warning, Level::Notice,
                             Level::Info,  Level::Debug,   Level::Trace};

// Counts how often it was written to a stream.
struct Counted {
    int* count;

    friend std::ostream& operator<<(std::ostream& stream, const Counted& value) {
        return stream << "counted " << ++*value.count;
    }
};

TEST(LoggerLevel, IsInitiallyThatOfWarnings) {
    EXPECT_EQ(kInitialLevel, Level::Warning);
}

TEST(LoggerLevel, IsWhatWasSetLast) {
    const LogCapture restoreLater;
    for (const Level level : kLevels) {
        logger::setLevel(level);
        EXPECT_EQ(logger::level(), level);
    }
}

TEST(LoggerLevel, LetsLinesUpToItThrough) {
    for (const Level limit : kLevels) {
        const LogCapture log(static_cast<int>(limit));
        std::vector<Line> expected;
        for (const Level level : kLevels) {
            logger::log(level) << "line";
            logger::print(level, "print");
            if (level <= limit) {
                expected.push_back({static_cast<int>(level), "line"});
                expected.push_back({static_cast<int>(level), "print"});
            }
        }
        EXPECT_EQ(log.lines(), expected) << static_cast<int>(limit);
    }
}

TEST(LoggerLevel, OfWarningsDecidesAboutWarning) {
    LogCapture log(1);
    logger::warning("dropped");
    logger::setLevel(Level::Warning);
    logger::warning("written");
    EXPECT_THAT(log.lines(), testing::ElementsAre(Line{2, "written"}));
}

TEST(LoggerLevel, DisabledFormatsNothing) {
    const LogCapture log(2);
    int count = 0;
    logger::log(Level::Info) << Counted{&count} << ", " << Counted{&count};
    EXPECT_EQ(count, 0);
    logger::log(Level::Warning) << Counted{&count} << ", " << Counted{&count};
    EXPECT_EQ(count, 2);
    EXPECT_THAT(log.texts(), testing::ElementsAre("counted 1, counted 2"));
}

TEST(LoggerLevel, MessageConvertsToWhetherItsLevelIsEnabled) {
    const LogCapture log(2);
    EXPECT_TRUE(static_cast<bool>(logger::log(Level::Error)));
    EXPECT_TRUE(static_cast<bool>(logger::log(Level::Warning)));
    EXPECT_FALSE(static_cast<bool>(logger::log(Level::Notice)));
    EXPECT_FALSE(static_cast<bool>(logger::log(Level::Info, "prefix")));
}

TEST(LoggerMessage, IsWrittenAsOneLineByItsDestructor) {
    const LogCapture log;
    {
        MessageOstream message = logger::log(Level::Warning);
        message << "a" << 1 << 'b';
        message << 2.5;
        EXPECT_THAT(log.lines(), testing::IsEmpty());
    }
    EXPECT_THAT(log.lines(), testing::ElementsAre(Line{2, "a1b2.5"}));
}

TEST(LoggerMessage, StartsWithItsPrefix) {
    const LogCapture log;
    logger::log(Level::Error, "video-encoder-h264: ") << "opened";
    logger::log(Level::Error, std::string("100%s ")) << "x";
    (void)logger::log(Level::Error, "alone");
    EXPECT_THAT(log.texts(), testing::ElementsAre("video-encoder-h264: opened", "100%s x", "alone"));
}

TEST(LoggerMessage, OffersItsStream) {
    const LogCapture log;
    {
        MessageOstream message = logger::log(Level::Warning, "p:");
        ASSERT_TRUE(message);
        message.ostream() << std::hex << 255;
        message << " " << std::setw(4) << 16;
    }
    EXPECT_THAT(log.texts(), testing::ElementsAre("p:ff   10"));
}

TEST(LoggerMessage, IsAnEmptyLineWithoutInsertions) {
    const LogCapture log;
    (void)logger::log(Level::Warning);
    EXPECT_THAT(log.texts(), testing::ElementsAre(""));
}

TEST(LoggerMessage, IsWrittenOnceAfterAMove) {
    const LogCapture log;
    {
        std::optional<MessageOstream> last;
        {
            MessageOstream first = logger::log(Level::Warning, "p ");
            first << "before ";
            MessageOstream second = std::move(first);
            EXPECT_FALSE(static_cast<bool>(first));
            EXPECT_TRUE(static_cast<bool>(second));
            first << "lost";
            second << "after";
            last.emplace(std::move(second));
        }
        EXPECT_THAT(log.lines(), testing::IsEmpty());
        *last << "!";
    }
    EXPECT_THAT(log.lines(), testing::ElementsAre(Line{2, "p before after!"}));
}

TEST(LoggerMessage, StaysDisabledAfterAMove) {
    const LogCapture log;
    {
        MessageOstream first = logger::log(Level::Info);
        MessageOstream second = std::move(first);
        EXPECT_FALSE(static_cast<bool>(second));
        second << "lost";
    }
    EXPECT_THAT(log.lines(), testing::IsEmpty());
}

TEST(LoggerMessage, IsWrittenWhileAnExceptionPasses) {
    const LogCapture log;
    try {
        MessageOstream message = logger::log(Level::Warning);
        message << "so far";
        throw std::runtime_error("stop");
    } catch (const std::runtime_error&) {
    }
    EXPECT_THAT(log.texts(), testing::ElementsAre("so far"));
}

TEST(LoggerPrint, FormatsAsPrintfDoes) {
    const LogCapture log(6);
    logger::print(Level::Trace, "%d of %s, %5.2f%%, 0x%04x", -3, "five", 2.5, 255);
    logger::warning("input %d has no %s", 7, "signal");
    EXPECT_THAT(log.lines(), testing::ElementsAre(Line{6, "-3 of five,  2.50%, 0x00ff"},
                                                  Line{2, "input 7 has no signal"}));
}

TEST(LoggerPrint, KeepsALongLineWhole) {
    for (const std::size_t length : {0U, 1U, 1022U, 1023U, 1024U, 1025U, 2048U, 100000U}) {
        const LogCapture log;
        std::string text;
        for (std::size_t i = 0; i < length; ++i) {
            text += static_cast<char>('a' + i % 26);
        }
        logger::print(Level::Warning, "%s", text.c_str());
        logger::warning("%s%d", text.c_str(), 7);
        EXPECT_THAT(log.texts(), testing::ElementsAre(text, text + "7")) << length;
    }
}

TEST(LoggerPrint, DropsALineThatTheCLibraryCannotFormat) {
    const LogCapture log;
    // The locale in which a program starts has no such characters.
    logger::warning("a %ls b", L"\u4e16");
    logger::warning("a %ls b", L"c");
    EXPECT_THAT(log.texts(), testing::ElementsAre("a c b"));
}

TEST(LoggerLine, LosesTheLineEndsAtItsEndAndNoOthers) {
    const LogCapture log;
    logger::print(Level::Warning, "one\n");
    logger::warning("two\r\n\n");
    logger::log(Level::Warning) << "three\n\n\r\n";
    logger::warning("\nfour\n five \n");
    logger::warning("\n");
    logger::warning("%s", (std::string(2000, 'x') + "\n").c_str());
    EXPECT_THAT(log.texts(),
                testing::ElementsAre("one", "two", "three", "\nfour\n five ", "", std::string(2000, 'x')));
}

TEST(LoggerSink, InitialOneNamesTheLevelOnStderr) {
    const LogCapture restoreLevelLater(6);
    logger::setSink({});
    StderrPipe pipe;
    for (const Level level : kLevels) {
        logger::print(level, "line %d\n", static_cast<int>(level));
    }
    EXPECT_EQ(pipe.text(),
              "error: line 1\nwarning: line 2\nnotice: line 3\ninfo: line 4\ndebug: line 5\ntrace: line 6\n");
}

TEST(LoggerSink, InitialOneWritesLongLinesWhole) {
    const LogCapture restoreLevelLater;
    logger::setSink({});
    StderrPipe pipe;
    const std::string text(100000, 'x');
    logger::log(Level::Error) << text;
    EXPECT_EQ(pipe.text(), "error: " + text + "\n");
}

TEST(LoggerSink, GetsLinesInPlaceOfStderr) {
    std::vector<std::string> first;
    std::vector<std::string> second;
    StderrPipe pipe;
    logger::setSink([&](Level, std::string_view line) { first.emplace_back(line); });
    logger::warning("one");
    logger::setSink([&](Level, std::string_view line) { second.emplace_back(line); });
    logger::warning("two");
    logger::setSink({});
    logger::warning("three");
    EXPECT_THAT(first, testing::ElementsAre("one"));
    EXPECT_THAT(second, testing::ElementsAre("two"));
    EXPECT_EQ(pipe.text(), "warning: three\n");
}

TEST(LoggerSink, ThatLogsHasItsLinesWrittenToStderr) {
    std::vector<std::string> lines;
    StderrPipe pipe;
    logger::setSink([&](Level, std::string_view line) {
        lines.emplace_back(line);
        logger::warning("inside %d", static_cast<int>(lines.size()));
        logger::log(Level::Error) << "and more";
    });
    logger::warning("outside");
    logger::warning("again");
    logger::setSink({});
    EXPECT_THAT(lines, testing::ElementsAre("outside", "again"));
    EXPECT_EQ(pipe.text(), "warning: inside 1\nerror: and more\nwarning: inside 2\nerror: and more\n");
}

TEST(LoggerSink, ThatThrowsLosesItsLineAndNothingElse) {
    int calls = 0;
    StderrPipe pipe;
    logger::setSink([&](Level, std::string_view line) {
        ++calls;
        if (line == "throw") {
            throw std::runtime_error("from the sink");
        }
        if (line == "throw a number") {
            throw 5;
        }
    });
    EXPECT_NO_THROW(logger::warning("throw"));
    EXPECT_NO_THROW(logger::log(Level::Warning) << "throw a number");
    EXPECT_NO_THROW(logger::warning("go on"));
    logger::setSink({});
    EXPECT_EQ(calls, 3);
    // It is outside of the sink again: lines go where they are meant to.
    std::vector<std::string> lines;
    logger::setSink([&](Level, std::string_view line) { lines.emplace_back(line); });
    logger::warning("after");
    logger::setSink({});
    EXPECT_THAT(lines, testing::ElementsAre("after"));
    EXPECT_EQ(pipe.text(), "");
}

TEST(LoggerSink, MayReplaceItself) {
    std::vector<std::string> first;
    std::vector<std::string> second;
    // What the sink holds must live until it returns.
    auto held = std::make_shared<std::string>("held");
    const std::weak_ptr<std::string> watch = held;
    logger::setSink([&, held = std::move(held)](Level, std::string_view line) {
        logger::setSink([&](Level, std::string_view next) { second.emplace_back(next); });
        first.push_back(std::string(line) + " " + *held);
    });
    logger::warning("one");
    EXPECT_TRUE(watch.expired());
    logger::warning("two");
    logger::setSink({});
    EXPECT_THAT(first, testing::ElementsAre("one held"));
    EXPECT_THAT(second, testing::ElementsAre("two"));
}

TEST(LoggerSink, MayRemoveItself) {
    int calls = 0;
    StderrPipe pipe;
    logger::setSink([&](Level, std::string_view) {
        ++calls;
        logger::setSink({});
    });
    logger::warning("one");
    logger::warning("two");
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(pipe.text(), "warning: two\n");
}

TEST(LoggerSink, RunsOnTheThreadThatLogs) {
    std::thread::id seen;
    logger::setSink([&](Level, std::string_view) { seen = std::this_thread::get_id(); });
    std::thread thread([] { logger::warning("line"); });
    const std::thread::id id = thread.get_id();
    thread.join();
    EXPECT_EQ(seen, id);
    logger::warning("line");
    EXPECT_EQ(seen, std::this_thread::get_id());
    logger::setSink({});
}

}  // namespace
