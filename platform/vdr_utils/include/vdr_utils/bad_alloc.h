#pragma once

#include <new>
#include <string>
#include <utility>

namespace vx::vdr::utils {

/// A failed allocation that says what could not be allocated.
class __attribute__((visibility("default"))) BadAlloc : public std::bad_alloc {
public:
    explicit BadAlloc(std::string message) : mMessage(std::move(message)) {}

    /// The message, valid as long as the exception.
    [[nodiscard]] const char* what() const noexcept override { return mMessage.c_str(); }

private:
    std::string mMessage;
};

}  // namespace vx::vdr::utils
