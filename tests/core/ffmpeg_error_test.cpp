#include "vidorra/core/ffmpeg_error.h"

#include <type_traits>

namespace vidorra {
namespace {

static_assert(std::is_base_of_v<std::runtime_error, FFmpegError>);

TEST(FFmpegError, TextIsTheMessageAndTheError) {
    const FFmpegError error(AvError::Eof, "Cannot read");
    EXPECT_STREQ(error.what(), "Cannot read FFmpeg AV_ERROR: #-541478725: End of file");
    EXPECT_EQ(error.error(), AvError::Eof);
}

TEST(FFmpegError, AnEmptyMessageKeepsTheSeparator) {
    EXPECT_STREQ(FFmpegError(AvError::Eof, "").what(), " FFmpeg AV_ERROR: #-541478725: End of file");
}

TEST(FFmpegError, WithoutAMessageTextIsTheErrorAlone) {
    const FFmpegError error(AvError::MfxDevInitFailed);
    EXPECT_STREQ(error.what(), "#-55922759");
    EXPECT_EQ(error.error(), AvError::MfxDevInitFailed);
}

TEST(FFmpegError, IsCaughtAsARuntimeErrorThrownByTheLibrary) {
    try {
        throw FFmpegError(AvError::Again, "Try later");
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "Try later FFmpeg AV_ERROR: #-11: Resource temporarily unavailable");
    }
}

}  // namespace
}  // namespace vidorra
