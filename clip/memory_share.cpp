#include "clip/memory_share.h"

#include <atomic>

namespace vidorra {
namespace {

std::atomic<std::size_t>& ofProcess() noexcept {
    static std::atomic<std::size_t> bytes{0};
    return bytes;
}

}  // namespace

MemoryShare::~MemoryShare() {
    ofProcess() -= mBytes;
}

void MemoryShare::add(std::size_t bytes) noexcept {
    mBytes += bytes;
    ofProcess() += bytes;
}

void MemoryShare::remove(std::size_t bytes) noexcept {
    mBytes -= bytes;
    ofProcess() -= bytes;
}

bool MemoryShare::full() const noexcept {
    return mBytes >= mMost || (mBytes >= kAlwaysSpared && ofProcess() >= kMostOfProcess);
}

}  // namespace vidorra
