#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

struct AVFrame;

namespace vidorra::test {

/// The first picture that FFmpeg's filters make, one after the other, each by name and arguments, in this
/// pixel format and no other: null when one of the filters does not know it, for nothing is converted between
/// them.
std::unique_ptr<AVFrame, void (*)(AVFrame*)> filteredPicture(
    const std::string& format, const std::vector<std::pair<std::string, std::string>>& filters);

}  // namespace vidorra::test
