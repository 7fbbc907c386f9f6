#pragma once

#include <optional>
#include <string>

#include "vidorra/core/export.h"
#include "vidorra/core/ffmpeg_fwd.h"

namespace vidorra {

/// The owner of an FFmpeg dictionary: options for FFmpeg, or strings from it.
///
///     Dictionary options;
///     av_dict_set(options.address(), "movflags", "faststart", 0);
///     AvRes(avformat_write_header(muxer, options.address())).throwIfError("cannot begin {}", path);
///
/// Owns: the AVDictionary, null while it is empty.
/// Threads: one at a time.
class VIDORRA_API Dictionary {
public:
    Dictionary() noexcept = default;
    ~Dictionary();

    /// A copy of all entries. Throws FFmpegError when FFmpeg cannot copy; the target of an assignment is
    /// then unchanged.
    Dictionary(const Dictionary& other);
    Dictionary& operator=(const Dictionary& other);

    /// The moved-from dictionary is empty.
    Dictionary(Dictionary&& other) noexcept;
    Dictionary& operator=(Dictionary&& other) noexcept;

    /// The value of a key, matched case-sensitively; nothing for a missing key. Throws std::invalid_argument
    /// for null.
    [[nodiscard]] std::optional<std::string> getValue(const char* key) const;
    [[nodiscard]] std::optional<std::string> getValue(const std::string& key) const;

    /// For FFmpeg functions that read the dictionary. Null while it is empty.
    [[nodiscard]] AVDictionary* get() const noexcept { return mDictionary; }

    /// For FFmpeg functions that fill, consume or replace the dictionary.
    [[nodiscard]] AVDictionary** address() noexcept { return &mDictionary; }

private:
    AVDictionary* mDictionary = nullptr;
};

}  // namespace vidorra
