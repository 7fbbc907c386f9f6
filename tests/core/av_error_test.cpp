#include "vidorra/core/av_error.h"

#include <array>
#include <tl/expected.hpp>
#include <type_traits>

#include "vidorra/core/ffmpeg_fwd.h"

extern "C" {
#include <libavutil/error.h>
}

namespace vidorra {
namespace {

static_assert(std::is_trivially_copyable_v<AvError>);
static_assert(sizeof(AvError) == 4);
static_assert(!std::is_convertible_v<int, AvError>);
static_assert(std::is_same_v<decltype(AvError::Unknown), const AvError>);
static_assert(std::is_same_v<decltype(AvError(0).code()), int>);

struct ConstantRow {
    const char* name;
    AvError constant;
    int code;
    int fromFFmpeg;
};

TEST(AvError, ConstantsHaveTheNumbersOfFFmpeg) {
    const ConstantRow rows[] = {
        {"Unknown", AvError::Unknown, -1313558101, AVERROR_UNKNOWN},
        {"InvalidData", AvError::InvalidData, -1094995529, AVERROR_INVALIDDATA},
        {"Eof", AvError::Eof, -541478725, AVERROR_EOF},
        {"Again", AvError::Again, -11, AVERROR(EAGAIN)},
        {"OutOfRange", AvError::OutOfRange, -34, AVERROR(ERANGE)},
        {"OptionNotFound", AvError::OptionNotFound, -1414549496, AVERROR_OPTION_NOT_FOUND},
        {"DecoderNotFound", AvError::DecoderNotFound, -1128613112, AVERROR_DECODER_NOT_FOUND},
        {"OutOfMemory", AvError::OutOfMemory, -12, AVERROR(ENOMEM)},
        {"InvalidArgument", AvError::InvalidArgument, -22, AVERROR(EINVAL)},
        {"OmxDecoderWrongPixelFmt", AvError::OmxDecoderWrongPixelFmt, -592989519,
         FFERRTAG('O', 'M', 'X', '#')},
        {"OmxBFramesNotSupported", AvError::OmxBFramesNotSupported, -1331187023,
         FFERRTAG('O', 'M', 'X', 'O')},
        {"MfxDevInitFailed", AvError::MfxDevInitFailed, -55922759, FFERRTAG('G', 'P', 'U', 3)},
    };
    for (const ConstantRow& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.constant.code(), row.code);
        EXPECT_EQ(row.constant.code(), row.fromFFmpeg);
    }
}

TEST(AvError, ComparesByItsCode) {
    EXPECT_TRUE(AvError(-22) == AvError::InvalidArgument);
    EXPECT_FALSE(AvError(-22) != AvError::InvalidArgument);
    EXPECT_TRUE(AvError(-22) != AvError::OutOfMemory);
    EXPECT_FALSE(AvError(-22) == AvError::OutOfMemory);
    EXPECT_TRUE(AvError(-22) < AvError(-12));
    EXPECT_FALSE(AvError(-12) < AvError(-22));
    EXPECT_FALSE(AvError(-12) < AvError(-12));
}

TEST(AvError, KeepsAnyCode) {
    for (const int code : {0, 1, -1, INT32_MAX, INT32_MIN}) {
        EXPECT_EQ(AvError(code).code(), code);
    }
}

TEST(AvError, TextIsTheCodeAndFFmpegsWords) {
    EXPECT_EQ(AvError::Eof.toString(), "#-541478725: End of file");
    EXPECT_EQ(AvError::InvalidData.toString(), "#-1094995529: Invalid data found when processing input");
}

TEST(AvError, TextIsTheCodeAloneWhereFFmpegHasNoWords) {
    EXPECT_EQ(AvError::OmxDecoderWrongPixelFmt.toString(), "#-592989519");
    EXPECT_EQ(AvError::OmxBFramesNotSupported.toString(), "#-1331187023");
    EXPECT_EQ(AvError::MfxDevInitFailed.toString(), "#-55922759");
    EXPECT_EQ(AvError(-100000).toString(), "#-100000");
    EXPECT_EQ(AvError(5).toString(), "#5");
}

TEST(AvError, TextOfSystemErrorsIsThatOfFFmpegInABufferOf64Bytes) {
    for (int number = 1; number < 140; ++number) {
        std::array<char, 64> words{};
        const int code = AVERROR(number);
        const int res = av_strerror(code, words.data(), words.size());
        std::string expected = std::to_string(code).insert(0, 1, '#');
        if (res >= 0) {
            expected.append(": ").append(words.data());
        }
        EXPECT_EQ(AvError(code).toString(), expected);
    }
}

TEST(AvError, IsTheErrorOfAnExpectedValue) {
    const tl::expected<int, AvError> failed = tl::unexpected(AvError::Again);
    try {
        (void)failed.value();
        ADD_FAILURE() << "nothing was thrown";
    } catch (const tl::bad_expected_access<AvError>& error) {
        EXPECT_EQ(error.error(), AvError::Again);
    }
}

}  // namespace
}  // namespace vidorra
