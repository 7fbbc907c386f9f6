#include "vidorra/core/dictionary.h"

#include <stdexcept>
#include <utility>

#include "ffmpeg/owners.h"
#include "vidorra/core/av_ptr.h"
#include "vidorra/core/av_res.h"

extern "C" {
#include <libavutil/dict.h>
}

namespace vidorra {

Dictionary::~Dictionary() {
    av_dict_free(&mDictionary);
}

Dictionary::Dictionary(const Dictionary& other) {
    AVDictionary* copy = nullptr;
    const AvRes res = av_dict_copy(&copy, other.mDictionary, 0);
    AvPtr<AVDictionary> owner = ffmpeg_ext::adopt(copy);
    if (!res.ok) {
        throw FFmpegError(res.error);
    }
    mDictionary = owner.release();
}

Dictionary& Dictionary::operator=(const Dictionary& other) {
    if (this != &other) {
        Dictionary copy(other);
        std::swap(mDictionary, copy.mDictionary);
    }
    return *this;
}

Dictionary::Dictionary(Dictionary&& other) noexcept
    : mDictionary(std::exchange(other.mDictionary, nullptr)) {}

Dictionary& Dictionary::operator=(Dictionary&& other) noexcept {
    Dictionary moved(std::move(other));
    std::swap(mDictionary, moved.mDictionary);
    return *this;
}

std::optional<std::string> Dictionary::getValue(const char* key) const {
    if (key == nullptr) {
        throw std::invalid_argument("parameter key is null");
    }
    const AVDictionaryEntry* entry = av_dict_get(mDictionary, key, nullptr, AV_DICT_MATCH_CASE);
    return entry != nullptr ? std::optional<std::string>(entry->value) : std::nullopt;
}

std::optional<std::string> Dictionary::getValue(const std::string& key) const {
    return getValue(key.c_str());
}

}  // namespace vidorra
