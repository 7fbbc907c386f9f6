#include "vidorra/core/bad_cast.h"

namespace vidorra {

BadCast::BadCast(const std::string& message) : mMessage(message) {}

const char* BadCast::what() const noexcept {
    return mMessage.c_str();
}

}  // namespace vidorra
