#include "core/log.h"

#include "support/log_capture.h"

namespace vidorra {
namespace {

struct LevelRow {
    logger::Level level;
    int number;
};

TEST(LogLevels, HaveTheNumbersOfTheLoggingInterface) {
    for (const LevelRow& row : {LevelRow{kLogError, 1}, LevelRow{kLogWarning, 2}, LevelRow{kLogInfo, 4},
                                LevelRow{kLogSource, 5}, LevelRow{kLogDebug, 5}, LevelRow{kLogCodec, 6}}) {
        EXPECT_EQ(static_cast<int>(row.level), row.number);
    }
}

// Counts how often it is formatted.
struct Counted {
    int* count;
};

std::string to_string(const Counted& value) {
    return "counted " + std::to_string(++*value.count);
}

}  // namespace
}  // namespace vidorra

template <>
struct fmt::formatter<vidorra::Counted> : vidorra::TextFormatter<vidorra::Counted> {};

namespace vidorra {
namespace {

using Line = test::LogCapture::Line;

TEST(LogFormatted, WritesOneLineThatStartsWithThePrefix) {
    const test::LogCapture log(6);
    logFormatted(kLogWarning, "reader: ", "{} of {}", 3, "five");
    logFormatted(kLogCodec, {}, "{{100%s}}");
    EXPECT_THAT(log.lines(), testing::ElementsAre(Line{2, "reader: 3 of five"}, Line{6, "{100%s}"}));
}

TEST(LogFormatted, ADisabledLevelFormatsNothing) {
    const test::LogCapture log(2);
    int count = 0;
    logFormatted(kLogInfo, "prefix", "{}", Counted{&count});
    EXPECT_EQ(count, 0);
    logFormatted(kLogWarning, {}, "{}", Counted{&count});
    EXPECT_EQ(count, 1);
    EXPECT_THAT(log.texts(), testing::ElementsAre("counted 1"));
}

}  // namespace
}  // namespace vidorra
