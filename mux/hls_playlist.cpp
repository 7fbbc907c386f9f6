#include "mux/hls_playlist.h"

#include <algorithm>
#include <filesystem>

#include "mux/whole_file.h"
#include "vidorra/core/format.h"

namespace vidorra {
namespace {

std::string relativeTo(const std::string& playlist, const std::string& segment) {
    const std::filesystem::path folder = std::filesystem::path(playlist).parent_path();
    const std::filesystem::path relative = std::filesystem::path(segment).lexically_relative(folder);
    return relative.empty() || *relative.begin() == ".." ? segment : relative.string();
}

}  // namespace

void HlsPlaylist::add(const std::string& segment, std::int64_t microseconds) {
    mEntries += fmt::format("#EXTINF:{}.{:06},\n{}\n", microseconds / 1000000, microseconds % 1000000,
                            relativeTo(mPath, segment));
    mLongest = std::max(mLongest, microseconds);
    write("");
}

void HlsPlaylist::end() {
    write("#EXT-X-ENDLIST\n");
}

void HlsPlaylist::write(const char* tail) const {
    // No segment may be longer than this, rounded to the nearest second.
    const std::int64_t target = std::max<std::int64_t>((mLongest + 500000) / 1000000, 1);
    const std::string text = fmt::format(
        "#EXTM3U\n#EXT-X-VERSION:3\n#EXT-X-PLAYLIST-TYPE:EVENT\n#EXT-X-TARGETDURATION:{}\n"
        "#EXT-X-MEDIA-SEQUENCE:0\n{}{}",
        target, mEntries, tail);
    WholeFile file(mPath, false);
    file.write(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
    file.close();
    file.rename();
}

}  // namespace vidorra
