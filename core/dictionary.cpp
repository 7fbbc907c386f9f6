#include "vidorra/core/dictionary.h"

#include <stdexcept>
#include <utility>

#include "vidorra/core/av_res.h"

extern "C" {
#include <libavutil/dict.h>
}

namespace vidorra {

Dictionary::~Dictionary() {
    av_dict_free(&mDictionary);
}

Dictionary::Dictionary(const Dictionary& other) {
    // The destructor does not run for a constructor that throws, so a Dictionary of its own holds what was
    // copied.
    Dictionary copy;
    copy = other;
    std::swap(mDictionary, copy.mDictionary);
}

Dictionary& Dictionary::operator=(const Dictionary& other) {
    if (this == &other) {
        return *this;
    }
    AVDictionary* copy = nullptr;
    const AvRes res = av_dict_copy(&copy, other.mDictionary, 0);
    if (!res.ok) {
        av_dict_free(&copy);
        throw FFmpegError(res.error);
    }
    av_dict_free(&mDictionary);
    mDictionary = copy;
    return *this;
}

Dictionary::Dictionary(Dictionary&& other) noexcept
    : mDictionary(std::exchange(other.mDictionary, nullptr)) {}

Dictionary& Dictionary::operator=(Dictionary&& other) noexcept {
    if (this != &other) {
        av_dict_free(&mDictionary);
        mDictionary = std::exchange(other.mDictionary, nullptr);
    }
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
