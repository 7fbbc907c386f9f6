#include "contact_sheet.h"

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <vector>

#include <vidorra/vidorra.h>

extern "C" {
#include <libavformat/avformat.h>
}

namespace demo {
namespace {

constexpr int kColumns = 4;
constexpr int kRows = 3;
constexpr int kTileWidth = 320;
constexpr int kGap = 8;

// Twelve frames, or fewer of a short video, each scaled to the width of a tile.
std::vector<vidorra::Picture> pickTiles(const std::string& video, std::uint64_t frames) {
    vidorra::FormatContext source;
    source.setUrl(video);
    source.open("", true, std::chrono::seconds(2));
    vidorra::Scaler scaler;
    scaler.setAlgorithm(vidorra::Scaler::ScalingAlgorithm::Area);
    std::vector<vidorra::Picture> tiles;
    std::uint64_t index = 0;
    constexpr std::uint64_t kTiles = kColumns * kRows;
    for (vidorra::Packet packet = source.readPacket(); !source.isEOF(); packet = source.readPacket()) {
        const AVStream* track = source.trackAtIndex(static_cast<unsigned>(packet.stream_index));
        if (track->codecpar->codec_type != AVMEDIA_TYPE_VIDEO) {
            continue;
        }
        const vidorra::VideoFrame frame = source.decodeVideoPacket(packet);
        if (frame.empty()) {
            continue;
        }
        if (index * kTiles >= tiles.size() * frames && tiles.size() < kTiles) {
            const vidorra::Size size = frame.picture().frameSize();
            const vidorra::Size tile{kTileWidth,
                                     std::max(2, kTileWidth * size.height / std::max(1, size.width))};
            tiles.push_back(scaler.scale(frame.picture(), tile, AV_PIX_FMT_RGB24, AVCOL_RANGE_JPEG));
        }
        ++index;
    }
    return tiles;
}

}  // namespace

void writeContactSheet(const std::string& video, std::uint64_t frames, const std::string& image) {
    const std::vector<vidorra::Picture> tiles = pickTiles(video, frames);
    if (tiles.empty()) {
        throw std::runtime_error(video + ": there is no picture in it");
    }
    const vidorra::Size tile = tiles.front().frameSize();
    vidorra::Picture sheet({kColumns * (tile.width + kGap) + kGap, kRows * (tile.height + kGap) + kGap},
                           AV_PIX_FMT_RGB24, AVCOL_RANGE_JPEG, 32);
    vidorra::fillRectangle(sheet, vidorra::Color(40, 44, 52));
    for (std::size_t i = 0; i < tiles.size(); ++i) {
        const vidorra::Point place{kGap + static_cast<int>(i % kColumns) * (tile.width + kGap),
                                   kGap + static_cast<int>(i / kColumns) * (tile.height + kGap)};
        vidorra::compose(sheet, tiles[i], place, vidorra::CheckColorRange::Yes, 1.0, 1);
    }
    vidorra::savePicture(sheet, image, AV_CODEC_ID_NONE);
}

}  // namespace demo
