#pragma once

#include <new>
#include <string>
#include <utility>

#include "vdr_utils/export.h"

namespace vx::vdr::utils {

/// A failed allocation, with a message about what could not be allocated.
///
///     throw BadAlloc("no memory for a picture of 1920x1080");
class VDR_UTILS_API BadAlloc : public std::bad_alloc {
public:
    explicit BadAlloc(std::string message) : mMessage(std::move(message)) {}

    /// The message, valid as long as the exception.
    [[nodiscard]] const char* what() const noexcept override { return mMessage.c_str(); }

private:
    std::string mMessage;
};

}  // namespace vx::vdr::utils
