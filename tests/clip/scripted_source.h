#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "clips.h"
#include "support/media.h"
#include "vidorra/io/byte_source.h"

namespace vidorra::test {

inline std::vector<std::uint8_t> content(const std::string& path) {
    const std::string bytes = fileContent(path);
    return {bytes.begin(), bytes.end()};
}

/// Memory whose calls a test can change.
class Scripted : public ByteSource {
public:
    explicit Scripted(std::vector<std::uint8_t> bytes) : mBytes(std::move(bytes)) {}

    std::optional<std::size_t> read(std::uint8_t* target, std::size_t size) override {
        count();
        if (emptyEvery != 0 && calls % emptyEvery == 0) {
            return 0;
        }
        if (tooMany) {
            return size + 1;
        }
        if (mPosition >= mBytes.size()) {
            return std::nullopt;
        }
        const std::size_t given = std::min({size, chunk, mBytes.size() - mPosition});
        std::copy_n(mBytes.begin() + static_cast<std::ptrdiff_t>(mPosition), given, target);
        mPosition += given;
        return given;
    }
    bool seek(std::uint64_t position) override {
        count();
        if (canSeek) {
            mPosition = position;
        }
        return canSeek;
    }
    std::optional<std::uint64_t> size() const override {
        count();
        return knowsSize ? std::optional<std::uint64_t>(mBytes.size()) : std::nullopt;
    }
    std::string name() const override { return "script"; }

    /// Of read(), seek() and size().
    mutable int calls = 0;
    /// The call that throws.
    int throwAt = 0;
    int emptyEvery = 0;
    bool tooMany = false;
    bool canSeek = true;
    bool knowsSize = true;
    std::size_t chunk = ~std::size_t{0};

private:
    void count() const {
        if (++calls == throwAt) {
            throw std::range_error("the source is tired");
        }
    }

    std::vector<std::uint8_t> mBytes;
    std::size_t mPosition = 0;
};

inline std::shared_ptr<Scripted> scripted(const std::string& path = clip()) {
    return std::make_shared<Scripted>(content(path));
}

}  // namespace vidorra::test
