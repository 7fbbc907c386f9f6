#include "mux/coded_content.h"

#include <algorithm>
#include <array>

extern "C" {
#include <libavcodec/codec_par.h>
}

namespace vidorra {
namespace {

using Visit = std::function<void(const std::uint8_t* data, std::size_t size)>;

// A slice of a picture, by the header of its NAL unit; not parameter sets, delimiters and messages, which
// containers add and take away.
bool isSlice(AVCodecID codec, std::uint8_t header) {
    if (codec == AV_CODEC_ID_H264) {
        const int type = header & 0x1f;
        return type >= 1 && type <= 5;
    }
    return ((header >> 1) & 0x3f) < 32;
}

void visitUnit(AVCodecID codec, const std::uint8_t* data, std::size_t size, const Visit& visit) {
    while (size > 0 && data[size - 1] == 0) {
        --size;
    }
    if (size > 0 && isSlice(codec, data[0])) {
        visit(data, size);
    }
}

void visitStartCodes(AVCodecID codec, const std::uint8_t* data, std::size_t size, const Visit& visit) {
    constexpr std::array<std::uint8_t, 3> kStart = {0, 0, 1};
    const std::uint8_t* const end = data + size;
    const std::uint8_t* unit = std::search(data, end, kStart.begin(), kStart.end());
    while (unit != end) {
        unit += kStart.size();
        const std::uint8_t* next = std::search(unit, end, kStart.begin(), kStart.end());
        visitUnit(codec, unit, static_cast<std::size_t>(next - unit), visit);
        unit = next;
    }
}

void visitLengths(AVCodecID codec, std::size_t lengthSize, const std::uint8_t* data, std::size_t size,
                  const Visit& visit) {
    while (size > lengthSize) {
        std::size_t length = 0;
        for (std::size_t i = 0; i < lengthSize; ++i) {
            length = length << 8 | data[i];
        }
        data += lengthSize;
        size -= lengthSize;
        length = std::min(length, size);
        visitUnit(codec, data, length, visit);
        data += length;
        size -= length;
    }
}

// By how many bytes each unit's length is told, or 0 for start codes.
std::size_t lengthSizeOf(const AVCodecParameters& parameters) {
    if (parameters.extradata_size < 7 || parameters.extradata[0] != 1) {
        return 0;
    }
    const int place = parameters.codec_id == AV_CODEC_ID_H264 ? 4 : 21;
    return place < parameters.extradata_size ? (parameters.extradata[place] & 3U) + 1 : 0;
}

}  // namespace

void visitCodedContent(const AVCodecParameters& parameters, const std::uint8_t* data, std::size_t size,
                       const Visit& visit) {
    std::size_t header = 0;
    if (parameters.codec_id == AV_CODEC_ID_H264 || parameters.codec_id == AV_CODEC_ID_HEVC) {
        const std::size_t lengthSize = lengthSizeOf(parameters);
        if (lengthSize == 0) {
            visitStartCodes(parameters.codec_id, data, size, visit);
        } else {
            visitLengths(parameters.codec_id, lengthSize, data, size, visit);
        }
        return;
    }
    if (parameters.codec_id == AV_CODEC_ID_AAC && size > 9 && data[0] == 0xff && (data[1] & 0xf6) == 0xf0) {
        header = (data[1] & 1) != 0 ? 7 : 9;
    } else if (parameters.codec_id == AV_CODEC_ID_AV1 && size > 2 && data[0] == 0x12 && data[1] == 0) {
        header = 2;
    }
    visit(data + header, size - header);
}

}  // namespace vidorra
