#include "core/log.h"

namespace vidorra {
namespace {

struct LevelRow {
    logger::Level level;
    int number;
};

TEST(LogLevels, HaveTheNumbersOfTheLoggingInterface) {
    for (const LevelRow& row : {LevelRow{kLogError, 1}, LevelRow{kLogWarning, 2}, LevelRow{kLogInfo, 4},
                                LevelRow{kLogSource, 5}, LevelRow{kLogCodec, 6}}) {
        EXPECT_EQ(static_cast<int>(row.level), row.number);
    }
}

}  // namespace
}  // namespace vidorra
