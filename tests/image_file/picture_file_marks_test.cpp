// Which picture files mark what they load as modified: the marks are counted in this program.
#include <gtest/gtest.h>

#include "support/counted_marks.h"
#include "support/media.h"
#include "vidorra/image_file/picture_file.h"

namespace vidorra {
namespace {

using test::modificationMarks;

TEST(PictureFileMarks, APictureInTheFormatOfTheDecoderIsMarked) {
    const std::string path =
        test::mediaFile("load.png", {"-f", "lavfi", "-i", "testsrc2=s=60x34", "-frames:v", "1"}).string();
    const int before = modificationMarks();
    const Picture picture = loadPicture(path, AV_PIX_FMT_NONE, AVCOL_RANGE_JPEG);
    ASSERT_EQ(picture.pixelFormat(), AV_PIX_FMT_RGB24);
    EXPECT_EQ(modificationMarks() - before, 1);
}

TEST(PictureFileMarks, APictureOfRawSamplesIsNotMarked) {
    const std::string path = test::temporaryFile("raw.yuv", std::string(24, 'x')).string();
    const int before = modificationMarks();
    EXPECT_FALSE(loadPictureFromYUV420PFile(path, {4, 4}, AVCOL_RANGE_MPEG).empty());
    EXPECT_EQ(modificationMarks(), before);
}

}  // namespace
}  // namespace vidorra
