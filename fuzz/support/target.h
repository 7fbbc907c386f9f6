#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

/// The function that libFuzzer and the smoke program call; each target defines it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace vidorra::fuzz {

/// The first inputs; each target defines them.
std::vector<std::string> seeds();

/// Aborts the program when the library breaks a promise.
inline void expect(bool holds, const char* promise) {
    if (!holds) {
        std::fprintf(stderr, "broken promise: %s\n", promise);
        std::abort();
    }
}

/// Takes numbers from the front of an input; zeros when it is used up.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : mData(data), mSize(size) {}

    [[nodiscard]] bool empty() const { return mSize == 0; }

    std::uint8_t byte() {
        if (mSize == 0) {
            return 0;
        }
        --mSize;
        return *mData++;
    }

    /// Any value.
    std::int32_t number() {
        std::uint32_t value = 0;
        for (int i = 0; i < 4; ++i) {
            value = value << 8U | byte();
        }
        return static_cast<std::int32_t>(value);
    }

    /// Up to and including `last`, which is less than 256.
    int upTo(int last) { return byte() % (last + 1); }

    /// The rest of the input.
    std::string rest() {
        std::string text(reinterpret_cast<const char*>(mData), mSize);
        mSize = 0;
        return text;
    }

private:
    const std::uint8_t* mData;
    std::size_t mSize;
};

}  // namespace vidorra::fuzz
