#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

struct AVFrame;

namespace vidorra::test {

/// The first picture from a chain of FFmpeg filters, each with name and arguments, all in this pixel format.
/// Null when one of the filters does not support the format, since nothing is converted between them.
std::unique_ptr<AVFrame, void (*)(AVFrame*)> filteredPicture(
    const std::string& format, const std::vector<std::pair<std::string, std::string>>& filters);

}  // namespace vidorra::test
