#pragma once

#include <array>
#include <string>

extern "C" {
#include <libavutil/error.h>
}

namespace vidorra {

/// FFmpeg's text for an error code, without the code.
inline std::string errorText(int code) {
    std::array<char, 255> text{};
    av_strerror(code, text.data(), text.size());
    return text.data();
}

}  // namespace vidorra
