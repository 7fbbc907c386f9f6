// Writes pictures from all over a video, four a row, into one image:
//
//     contact_sheet VIDEO IMAGE
#include <algorithm>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include <vidorra/vidorra.h>

namespace {

constexpr int kColumns = 4;
constexpr int kRows = 3;
constexpr int kTileWidth = 320;
constexpr int kGap = 8;

// The pictures that show at equal distances, each scaled to the width of a tile.
std::vector<vidorra::Picture> pickTiles(const std::string& video) {
    vidorra::ClipOptions options;
    options.audio = vidorra::TrackChoice::None;
    vidorra::ClipReader reader(video, options);
    const vidorra::Timestamp duration = reader.duration();
    vidorra::Scaler scaler;
    scaler.setAlgorithm(vidorra::Scaler::ScalingAlgorithm::Area);
    std::vector<vidorra::Picture> tiles;
    constexpr int kTiles = kColumns * kRows;
    for (int i = 0; i < kTiles; ++i) {
        if (!duration.isNull) {
            reader.seek({vidorra::Timebase(), duration.value * i / kTiles});
        }
        const vidorra::ClipFrame frame = reader.read();
        if (!frame) {
            break;
        }
        const vidorra::Picture& picture = frame.video()->picture();
        const vidorra::Size size = picture.frameSize();
        const int height = std::max(2, kTileWidth * size.height / std::max(1, size.width));
        tiles.push_back(scaler.scale(picture, {kTileWidth, height}, AV_PIX_FMT_RGB24, AVCOL_RANGE_JPEG));
    }
    return tiles;
}

void writeSheet(const std::vector<vidorra::Picture>& tiles, const std::string& image) {
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

}  // namespace

int main(int argc, char** argv) try {
    if (argc != 3) {
        std::cerr << "usage: contact_sheet VIDEO IMAGE\n";
        return 2;
    }
    const std::vector<vidorra::Picture> tiles = pickTiles(argv[1]);
    if (tiles.empty()) {
        throw std::runtime_error(std::string(argv[1]) + ": there is no picture in it");
    }
    writeSheet(tiles, argv[2]);
} catch (const std::exception& error) {
    std::cerr << "contact_sheet: " << error.what() << '\n';
    return 1;
}
