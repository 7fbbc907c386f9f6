#pragma once

#include <unistd.h>

#include <cstddef>

#include "vdr_utils/export.h"

namespace vx::utils::priv {

/// Lets a std::unique_ptr own a file descriptor, which it closes:
///
///     std::unique_ptr<int, FileDescriptorDeleter> file(open(path, O_RDONLY));
///     if (!file) { ... }
///     read(file.get(), bytes, size);
struct VDR_UTILS_API FileDescriptorDeleter {
    /// The number of an open file, or none for every negative one, as functions of the system return them.
    class VDR_UTILS_API pointer {
    public:
        // Implicit, all three: a unique_ptr treats it as a pointer, the functions of the system as a number.
        constexpr pointer(int descriptor = -1) noexcept : mDescriptor(descriptor < 0 ? -1 : descriptor) {}
        constexpr pointer(std::nullptr_t) noexcept : pointer() {}
        constexpr operator int() const noexcept { return mDescriptor; }

        // 0 is a file.
        constexpr explicit operator bool() const noexcept { return mDescriptor >= 0; }

        friend constexpr bool operator==(pointer a, pointer b) noexcept {
            return a.mDescriptor == b.mDescriptor;
        }
        friend constexpr bool operator!=(pointer a, pointer b) noexcept { return !(a == b); }

    private:
        int mDescriptor;
    };

    /// Closes it; what close() says is dropped, since the descriptor is gone either way.
    void operator()(pointer descriptor) const noexcept { close(descriptor); }
};

}  // namespace vx::utils::priv
