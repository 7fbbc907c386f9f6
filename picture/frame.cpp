#include "vidorra/picture/frame.h"

#include <ostream>

namespace vidorra {

Frame::Frame(const Timestamp& timestamp) : mTimestamp(timestamp) {}

Frame::~Frame() = default;

std::ostream& operator<<(std::ostream& stream, const Frame& frame) {
    return stream << frame.debugDescription();
}

}  // namespace vidorra
