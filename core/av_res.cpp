#include "vidorra/core/av_res.h"

#include <ostream>

namespace vidorra {

void AvRes::raise(const std::string& message) const {
    throw FFmpegError(error, message);
}

std::string to_string(const AvRes& res) {
    return res.ok ? "no error" : res.error.toString();
}

std::ostream& operator<<(std::ostream& stream, const AvRes& res) {
    return stream << to_string(res);
}

}  // namespace vidorra
