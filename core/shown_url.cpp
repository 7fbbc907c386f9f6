#include "core/shown_url.h"

#include <algorithm>

namespace vidorra {
namespace {

constexpr std::size_t kShownOfData = 100;

}  // namespace

std::string withoutPasswords(std::string_view text) {
    constexpr std::string_view kMark = "://";
    std::string result;
    std::size_t copied = 0;
    for (std::size_t mark = text.find(kMark); mark != text.npos; mark = text.find(kMark, mark + 1)) {
        // As in FFmpeg: the user part of a URL ends at the last "@" before the path, and its first ":" ends
        // the name.
        const std::size_t user = mark + kMark.size();
        const std::size_t path = std::min(text.find_first_of("/?#", user), text.size());
        const std::string_view authority = text.substr(user, path - user);
        const std::size_t at = authority.rfind('@');
        const std::size_t colon = authority.find(':');
        if (at != authority.npos && colon < at) {
            result.append(text.substr(copied, user + colon + 1 - copied)).append("***");
            copied = user + at;
        }
    }
    return result.append(text.substr(copied));
}

std::string shownUrl(std::string_view url) {
    constexpr std::string_view kData = "data:";
    return withoutPasswords(url.substr(0, kData.size()) == kData ? url.substr(0, kShownOfData) : url);
}

}  // namespace vidorra
