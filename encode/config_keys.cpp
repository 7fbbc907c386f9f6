#include "encode/config_keys.h"

#include <algorithm>
#include <cstddef>
#include <numeric>
#include <vector>

#include "core/log.h"

namespace vidorra {
namespace {

// How many letters must be added, removed or replaced to turn one text into the other.
std::size_t editDistance(std::string_view a, std::string_view b) {
    // The distances between the part of `a` seen so far and each prefix of `b`.
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), 0U);
    for (const char letter : a) {
        std::size_t diagonal = row[0]++;
        for (std::size_t i = 0; i < b.size(); ++i) {
            const std::size_t replaced = diagonal + (letter == b[i] ? 0 : 1);
            diagonal = row[i + 1];
            row[i + 1] = std::min({replaced, row[i] + 1, row[i + 1] + 1});
        }
    }
    return row.back();
}

}  // namespace

void logUnknownKeys(const objstream::object& config, std::initializer_list<std::string_view> known,
                    const std::string& logName) {
    config.for_each_kv([&](const std::string& key, const objstream::object&) {
        if (std::find(known.begin(), known.end(), key) == known.end()) {
            const auto* nearest =
                std::min_element(known.begin(), known.end(), [&key](std::string_view a, std::string_view b) {
                    return editDistance(key, a) < editDistance(key, b);
                });
            logger::log(kLogWarning, logName)
                << "the key \"" << key << "\" is unknown and ignored; the nearest known one is \"" << *nearest
                << "\". Options of the codec are keys of \"options\".";
        }
        return true;
    });
}

}  // namespace vidorra
