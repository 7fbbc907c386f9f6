// The arguments of the keying kernels: this program's kernels take precedence over the library's.

#include "vidorra/process/chroma_keying.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "vidorra/core/enum_text.h"

namespace vidorra {
namespace {

struct KernelCall {
    std::string kernel;
    std::array<const unsigned char*, 4> planes;
    std::array<int, 4> linesizes;
    const unsigned char* alpha;
    int alphaLinesize;
    Size size;
    std::array<int, 2> key;
    float first;
    float second;
};

std::vector<KernelCall> gCalls;

}  // namespace

void chromakey_yuva420p(const unsigned char* const* srcData, const int* srcLinesize, unsigned char* dstAlpha,
                        int dstLinesize, int width, int height, const unsigned char* key, float first,
                        float second) {
    gCalls.push_back({"copying",
                      {srcData[0], srcData[1], srcData[2], srcData[3]},
                      {srcLinesize[0], srcLinesize[1], srcLinesize[2], srcLinesize[3]},
                      dstAlpha,
                      dstLinesize,
                      {width, height},
                      {key[0], key[1]},
                      first,
                      second});
}

void chromakey_yuva420p_inplace(unsigned char** data, const int* linesize, int width, int height,
                                const unsigned char* key, float first, float second) {
    gCalls.push_back({"in place",
                      {data[0], data[1], data[2], data[3]},
                      {linesize[0], linesize[1], linesize[2], linesize[3]},
                      data[3],
                      linesize[3],
                      {width, height},
                      {key[0], key[1]},
                      first,
                      second});
}

namespace {

class ChromaKeyingCalls : public testing::Test {
protected:
    ChromaKeyingCalls() { gCalls.clear(); }

    // Expects one call, with the planes of a picture and its size.
    static KernelCall theCall(const std::string& kernel, const Picture& picture) {
        if (gCalls.size() != 1) {
            ADD_FAILURE() << gCalls.size() << " calls";
            return {};
        }
        KernelCall call = gCalls[0];
        EXPECT_EQ(call.kernel, kernel);
        for (std::size_t plane = 0; plane < 4; ++plane) {
            EXPECT_EQ(call.planes[plane], picture.data()[plane]) << plane;
            EXPECT_EQ(call.linesizes[plane], picture.linesize()[plane]) << plane;
        }
        EXPECT_EQ(call.size, picture.frameSize());
        return call;
    }
};

TEST_F(ChromaKeyingCalls, PlanarPicturesAndTheirNewAlphaGoToTheCopyingKernel) {
    for (const AVPixelFormat format : {AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUVA420P}) {
        gCalls.clear();
        const Picture src(Size{21, 6}, format, AVCOL_RANGE_MPEG, 32);
        const Picture result = chromaKeying(src, Color(255, 0, 0, 7), 0.25F, 0.75F);
        const KernelCall call = theCall("copying", src);
        EXPECT_EQ(call.alpha, result.data()[3]);
        EXPECT_EQ(call.alphaLinesize, 21);
        EXPECT_THAT(call.key, testing::ElementsAre(85, 255));
        EXPECT_EQ(call.first, 0.25F);
        EXPECT_EQ(call.second, 0.75F);
    }
}

TEST_F(ChromaKeyingCalls, OtherPicturesGoToTheKernelThatWorksInPlaceWhenTheyAreConverted) {
    const Picture src(Size{32, 16}, AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG, 32);
    const Picture result = chromaKeying(src, Color(0, 255, 0), 0.5F, 3.0F);
    const KernelCall call = theCall("in place", result);
    EXPECT_THAT(call.key, testing::ElementsAre(44, 21));
    EXPECT_EQ(call.first, 0.5F);
    EXPECT_EQ(call.second, 3.0F);
}

TEST_F(ChromaKeyingCalls, KeyingInPlaceIsOneCall) {
    Picture picture(Size{22, 10}, AV_PIX_FMT_YUVA420P, AVCOL_RANGE_JPEG, 32);
    chromaKeyingInPlace(picture, Color(255, 255, 255), -1.0F, 0.125F);
    const KernelCall call = theCall("in place", picture);
    EXPECT_THAT(call.key, testing::ElementsAre(128, 128));
    EXPECT_EQ(call.first, -1.0F);
    EXPECT_EQ(call.second, 0.125F);
}

}  // namespace
}  // namespace vidorra
