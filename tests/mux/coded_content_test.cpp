#include "mux/coded_content.h"

#include <gmock/gmock.h>

#include <vector>

extern "C" {
#include <libavcodec/codec_par.h>
}

namespace vidorra {
namespace {

using Bytes = std::vector<std::uint8_t>;
using testing::ElementsAre;

std::vector<Bytes> partsOf(AVCodecID codec, const Bytes& packet, Bytes extradata = {}) {
    AVCodecParameters parameters{};
    parameters.codec_id = codec;
    parameters.extradata = extradata.data();
    parameters.extradata_size = static_cast<int>(extradata.size());
    std::vector<Bytes> parts;
    visitCodedContent(
        parameters, packet.data(), packet.size(),
        [&](const std::uint8_t* data, std::size_t size) { parts.emplace_back(data, data + size); });
    return parts;
}

TEST(CodedContent, SlicesAreTheSameBehindStartCodesAndLengths) {
    const Bytes slice = {0x65, 1, 2, 3};
    const Bytes other = {0x41, 9};
    EXPECT_THAT(partsOf(AV_CODEC_ID_H264, {0, 0, 0, 1, 0x67, 7, 0, 0, 1, 0x65, 1, 2, 3, 0, 0, 0, 1, 0x41, 9}),
                ElementsAre(slice, other));
    EXPECT_THAT(partsOf(AV_CODEC_ID_H264, {0, 0, 0, 4, 0x65, 1, 2, 3, 0, 0, 0, 2, 0x41, 9},
                        {1, 100, 0, 30, 0xff, 0xe1, 0, 0}),
                ElementsAre(slice, other));
    EXPECT_THAT(
        partsOf(AV_CODEC_ID_H264, {0, 4, 0x65, 1, 2, 3, 0, 2, 0x06, 9}, {1, 100, 0, 30, 0xfd, 0xe1, 0, 0}),
        ElementsAre(slice));
    // A length beyond the end, and a packet of nothing but a part of one.
    EXPECT_THAT(partsOf(AV_CODEC_ID_H264, {0, 9, 0x65, 1, 2, 3}, {1, 100, 0, 30, 0xfd, 0xe1, 0, 0}),
                ElementsAre(slice));
    EXPECT_THAT(partsOf(AV_CODEC_ID_H264, {0, 0, 0}, {1, 100, 0, 30, 0xff, 0xe1, 0, 0}), ElementsAre());
}

TEST(CodedContent, ParameterSetsOfHevcAreNoContent) {
    EXPECT_THAT(partsOf(AV_CODEC_ID_HEVC, {0, 0, 1, 0x40, 1, 5, 0, 0, 1, 0x26, 1, 8}),
                ElementsAre(Bytes{0x26, 1, 8}));
}

TEST(CodedContent, HeadersOfStreamsAreTakenAway) {
    const Bytes raw = {0x21, 2, 3, 4};
    EXPECT_THAT(partsOf(AV_CODEC_ID_AAC, {0xff, 0xf1, 1, 2, 3, 4, 5, 0x21, 2, 3, 4}), ElementsAre(raw));
    EXPECT_THAT(partsOf(AV_CODEC_ID_AAC, {0xff, 0xf0, 1, 2, 3, 4, 5, 6, 7, 0x21, 2, 3, 4}), ElementsAre(raw));
    EXPECT_THAT(partsOf(AV_CODEC_ID_AAC, raw), ElementsAre(raw));
    EXPECT_THAT(partsOf(AV_CODEC_ID_AV1, {0x12, 0, 0x21, 2, 3, 4}), ElementsAre(raw));
    EXPECT_THAT(partsOf(AV_CODEC_ID_MPEG4, {0xff, 0xf1, 1}), ElementsAre(Bytes{0xff, 0xf1, 1}));
}

}  // namespace
}  // namespace vidorra
