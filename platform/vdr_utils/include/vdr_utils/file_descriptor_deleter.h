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
    /// The number of an open file. Every negative number, as system calls return on failure, means none.
    class VDR_UTILS_API pointer {
    public:
        // All three are implicit: unique_ptr treats this as a pointer, system calls as a number.
        constexpr pointer(int descriptor = -1) noexcept : mDescriptor(descriptor < 0 ? -1 : descriptor) {}
        constexpr pointer(std::nullptr_t) noexcept : pointer() {}
        constexpr operator int() const noexcept { return mDescriptor; }

        // 0 is a valid descriptor.
        constexpr explicit operator bool() const noexcept { return mDescriptor >= 0; }

        friend constexpr bool operator==(pointer a, pointer b) noexcept {
            return a.mDescriptor == b.mDescriptor;
        }
        friend constexpr bool operator!=(pointer a, pointer b) noexcept { return !(a == b); }

    private:
        int mDescriptor;
    };

    /// Closes the descriptor. The result of close() is ignored, since the descriptor is released either way.
    void operator()(pointer descriptor) const noexcept { close(descriptor); }
};

}  // namespace vx::utils::priv
