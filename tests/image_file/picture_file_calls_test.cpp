// How picture files call FFmpeg, and how savePicture() handles results that encoders rarely return.
#include "vidorra/image_file/picture_file.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "encode/encoder_calls.h"
#include "encode/patterns.h"
#include "support/descriptors.h"
#include "support/log_capture.h"
#include "support/media.h"
#include "support/throw_text.h"
#include "vidorra/core/av_res.h"
#include "vidorra/core/format.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/frame.h>
}

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

TEST_F(SavePictureCalls, SetTheRateAndTheQualityOfTheEncoder) {
    std::vector<std::string> options;
    const auto set = encoderCalls().avOptSet.replace(
        [&options](void* object, const char* name, const char* value, int flags) {
            options.push_back(std::string(name) + "=" + value);
            return encoderCalls().avOptSet.real(object, name, value, flags);
        });
    save();
    EXPECT_THAT(options, testing::IsSupersetOf({"b=2304", "qmax=8"}));
}

TEST_F(SavePictureCalls, EncodeOneFrameASecond) {
    int calls = 0;
    const auto send = encoderCalls().avcodecSendFrame.replace([&calls](void* context, const void* frame) {
        const AVRational timeBase = static_cast<const AVCodecContext*>(context)->time_base;
        EXPECT_EQ(av_cmp_q(timeBase, {1, 1}), 0) << timeBase.num << "/" << timeBase.den;
        EXPECT_EQ(static_cast<const AVFrame*>(frame)->pts, 0);
        ++calls;
        return encoderCalls().avcodecSendFrame.real(context, frame);
    });
    save();
    EXPECT_EQ(calls, 1);
}

TEST_F(SavePictureCalls, GiveACodecWithoutAListOfFormatsThePictureAsItIs) {
    const test::Pattern source = test::pattern({16, 8}, AV_PIX_FMT_BGR24, 5, AVCOL_RANGE_MPEG);
    savePicture(source.picture, mPath.string(), AV_CODEC_ID_RAWVIDEO);
    const std::string content = test::fileContent(mPath);
    EXPECT_TRUE(std::equal(content.begin(), content.end(), source.bytes.begin(), source.bytes.end(),
                           [](char a, std::uint8_t b) { return static_cast<std::uint8_t>(a) == b; }));
}

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

// The first packet is all that is wanted.
TEST(LoadPictureCalls, DoNotAnalyzeTheFile) {
    const std::string path =
        test::mediaFile("load.png", {"-f", "lavfi", "-i", "testsrc2=s=60x34", "-frames:v", "1"}).string();
    std::vector<std::string> options;
    const auto set = encoderCalls().avDictSetInt.replace(
        [&options](void** dictionary, const char* key, std::int64_t value, int flags) {
            options.push_back(std::string(key) + "=" + std::to_string(value));
            return encoderCalls().avDictSetInt.real(dictionary, key, value, flags);
        });
    int analyzed = 0;
    const auto find = encoderCalls().avformatFindStreamInfo.replace([&analyzed](void* context, void** given) {
        ++analyzed;
        return encoderCalls().avformatFindStreamInfo.real(context, given);
    });
    EXPECT_EQ(loadPicture(path, AV_PIX_FMT_NONE, AVCOL_RANGE_JPEG).frameSize(), (Size{60, 34}));
    EXPECT_THAT(options, testing::Contains("analyzeduration=0"));
    EXPECT_EQ(analyzed, 0);
}

}  // namespace
}  // namespace vidorra
