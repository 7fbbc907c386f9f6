#include "vidorra/core/av_res.h"

#include <sstream>
#include <type_traits>

#include "support/throw_text.h"

namespace vidorra {
namespace {

static_assert(std::is_trivially_copyable_v<AvRes>);
static_assert(sizeof(AvRes) <= 8);

TEST(AvRes, ReturnValuesFromZeroUpAreSuccessesWithoutAnAmount) {
    for (const int returned : {0, 1, 5, INT32_MAX}) {
        const AvRes res = returned;
        EXPECT_TRUE(res.ok) << returned;
        EXPECT_EQ(res.error, AvError(0)) << returned;
    }
}

TEST(AvRes, NegativeReturnValuesAreFailuresWithThatCode) {
    for (const int returned : {-1, -22, -541478725, INT32_MIN}) {
        const AvRes res = returned;
        EXPECT_FALSE(res.ok) << returned;
        EXPECT_EQ(res.error, AvError(returned)) << returned;
    }
}

TEST(AvRes, IsMadeFromAnErrorByTheSameRule) {
    const AvRes failure = AvError::Eof;
    EXPECT_FALSE(failure.ok);
    EXPECT_EQ(failure.error, AvError::Eof);
    const AvRes success = AvError(5);
    EXPECT_TRUE(success.ok);
    EXPECT_EQ(success.error, AvError(0));
}

std::string streamed(const AvRes& res) {
    std::ostringstream stream;
    stream << res;
    return stream.str();
}

TEST(AvRes, TextIsNoErrorOrTheTextOfTheError) {
    EXPECT_EQ(streamed(AvRes(5)), "no error");
    EXPECT_EQ(to_string(AvRes(5)), "no error");
    EXPECT_EQ(fmt::format("{}", AvRes(5)), "no error");
    EXPECT_EQ(streamed(AvRes(AvError::Eof)), "#-541478725: End of file");
    EXPECT_EQ(to_string(AvRes(AvError::Eof)), "#-541478725: End of file");
    EXPECT_EQ(fmt::format("{}", AvRes(AvError::Eof)), "#-541478725: End of file");
}

TEST(AvRes, FormatterTakesTheSpecificationOfAString) {
    EXPECT_EQ(fmt::format("[{:>12}]", AvRes(0)), "[    no error]");
    EXPECT_EQ(fmt::format("[{:.2}]", AvRes(0)), "[no]");
    EXPECT_EQ(fmt::format("[{:*^14.4}]", AvRes(-100000)), "[*****#-10*****]");
}

TEST(AvRes, ThrowIfErrorDoesNothingAfterASuccess) {
    EXPECT_NO_THROW(AvRes(0).throwIfError("never seen {}", 1));
    EXPECT_NO_THROW(AvRes(5).throwIfError("never seen {}", 1));
}

TEST(AvRes, ThrowIfErrorThrowsTheFormattedMessageWithTheError) {
    EXPECT_THROW_TEXT(FFmpegError, "Cannot open a.mp4, try 3 FFmpeg AV_ERROR: #-541478725: End of file",
                      AvRes(AvError::Eof).throwIfError("Cannot open {}, try {}", "a.mp4", 3));
    try {
        AvRes(-22).throwIfError("plain");
        ADD_FAILURE() << "nothing was thrown";
    } catch (const FFmpegError& error) {
        EXPECT_EQ(error.error(), AvError::InvalidArgument);
    }
}

}  // namespace
}  // namespace vidorra
