// Sources that are closed while memory is short.
#include <gmock/gmock.h>

#include <optional>
#include <string>
#include <utility>

#include "demux/clips.h"
#include "demux/decoders.h"
#include "support/failing_new.h"
#include "support/log_capture.h"
#include "support/media.h"

namespace vidorra {
namespace {

using test::FailingNew;
using test::LogCapture;

std::string plainFile() {
    return test::mediaFile("plain.nut", test::joined({test::movingPicture("16x16", 0.08), {"-c:v", "mjpeg"}}))
        .string();
}

TEST(MemoryShortage, ASourceGoesWithoutItsLogLine) {
    std::optional<FormatContext> source = test::opened(plainFile());
    ASSERT_NE(source->getCodecContext(0), nullptr);
    const LogCapture log(5);
    {
        const FailingNew failing;
        source.reset();
    }
    EXPECT_THAT(log.lines(), testing::IsEmpty());
}

TEST(MemoryShortage, ASourceThatIsReplacedGoesWithoutItsLogLine) {
    FormatContext source = test::opened(plainFile());
    FormatContext next = test::opened(plainFile());
    const AVFormatContext* const context = next.getAVFormatContext();
    const LogCapture log(5);
    {
        const FailingNew failing;
        source = std::move(next);
    }
    EXPECT_EQ(source.getAVFormatContext(), context);
    EXPECT_FALSE(next.isOpened());
    EXPECT_THAT(log.lines(), testing::IsEmpty());
}

TEST(MemoryShortage, ClosingASourceSucceeds) {
    FormatContext source = test::opened(plainFile());
    const LogCapture log(5);
    {
        const FailingNew failing;
        EXPECT_NO_THROW(source.close());
    }
    EXPECT_FALSE(source.isOpened());
    EXPECT_TRUE(source.open("", true, std::chrono::seconds(1)));
}

}  // namespace
}  // namespace vidorra
