// What savePicture() makes of answers that encoders seldom give.
#include "vidorra/picture/picture_file.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>

#include "encode/encoder_calls.h"
#include "encode/patterns.h"
#include "support/descriptors.h"
#include "support/log_capture.h"
#include "support/media.h"
#include "support/throw_text.h"
#include "vidorra/core/av_res.h"
#include "vidorra/core/format.h"

namespace vidorra {
namespace {

using test::encoderCalls;

class SavePictureCalls : public testing::Test {
protected:
    SavePictureCalls() { std::filesystem::remove(mPath); }

    void save() const {
        savePicture(test::plainPicture({16, 8}, AV_PIX_FMT_RGB24, 7), mPath.string(), AV_CODEC_ID_PNG);
    }

    std::filesystem::path mPath = test::temporaryFolder() / "calls.png";
    int mCalls = 0;
};

TEST_F(SavePictureCalls, AskForThePacketUpToTenTimes) {
    const auto receive = encoderCalls().avcodecReceivePacket.replace([this](void* context, void* packet) {
        return ++mCalls < 10 ? AvError::InvalidData.code()
                             : encoderCalls().avcodecReceivePacket.real(context, packet);
    });
    save();
    EXPECT_EQ(mCalls, 10);
    EXPECT_EQ(test::fileContent(mPath).substr(1, 3), "PNG");
}

TEST_F(SavePictureCalls, GiveUpAfterTenTimesWithTheLatestError) {
    const auto descriptors = test::openDescriptors();
    const auto receive = encoderCalls().avcodecReceivePacket.replace([this](void*, void*) {
        return ++mCalls < 10 ? AvError::InvalidData.code() : AvError::OutOfMemory.code();
    });
    EXPECT_THROW_TEXT(std::runtime_error, fmt::format("Encoding failed: {}", AvRes(AvError::OutOfMemory)),
                      save());
    EXPECT_EQ(mCalls, 10);
    EXPECT_EQ(std::filesystem::file_size(mPath), 0U);
    EXPECT_EQ(test::openDescriptors(), descriptors);
}

TEST_F(SavePictureCalls, ReportAFrameThatIsRefusedAndAskForNoPacket) {
    const test::LogCapture log;
    const auto descriptors = test::openDescriptors();
    const auto send = encoderCalls().avcodecSendFrame.replace(
        [](void*, const void*) { return AvError::InvalidData.code(); });
    const auto receive =
        encoderCalls().avcodecReceivePacket.replace([this](void*, void*) { return -(++mCalls); });
    EXPECT_THROW_TEXT(std::runtime_error, fmt::format("Encoding failed: {}", AvRes(AvError::InvalidData)),
                      save());
    EXPECT_EQ(mCalls, 0);
    EXPECT_EQ(std::filesystem::file_size(mPath), 0U);
    EXPECT_EQ(test::openDescriptors(), descriptors);
}

TEST_F(SavePictureCalls, TakeTheFirstPacketAlthoughItIsEmpty) {
    const auto receive = encoderCalls().avcodecReceivePacket.replace([this](void*, void*) {
        ++mCalls;
        return 0;
    });
    EXPECT_THROW_TEXT(std::runtime_error, fmt::format("Encoding failed: {}", AvRes(0)), save());
    EXPECT_EQ(mCalls, 1);
}

}  // namespace
}  // namespace vidorra
