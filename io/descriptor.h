#pragma once

#include <unistd.h>

namespace vidorra {

/// Owns a file descriptor; a negative one means none.
class Descriptor {
public:
    explicit Descriptor(int descriptor) noexcept : mDescriptor(descriptor) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() {
        if (mDescriptor >= 0) {
            close(mDescriptor);
        }
    }

    [[nodiscard]] int get() const noexcept { return mDescriptor; }

private:
    int mDescriptor;
};

}  // namespace vidorra
