#include "clip/thread_budget.h"

#include <algorithm>
#include <mutex>
#include <thread>
#include <type_traits>
#include <utility>

namespace vidorra {
namespace {

struct Budget {
    // Guards the numbers.
    std::mutex mutex;
    int most = static_cast<int>(std::thread::hardware_concurrency());
    int taken = 0;
};

// Readers may end after static objects.
static_assert(std::is_trivially_destructible_v<Budget>, "the budget stays usable at the end of the process");

Budget& budget() noexcept {
    static Budget theBudget;
    return theBudget;
}

}  // namespace

ThreadShare::ThreadShare(int wanted) noexcept {
    const std::lock_guard lock(budget().mutex);
    const int count = std::min(wanted, budget().most - budget().taken);
    if (count >= 2) {
        mCount = count;
        budget().taken += count;
    }
}

ThreadShare::ThreadShare(ThreadShare&& other) noexcept : mCount(std::exchange(other.mCount, 0)) {}

ThreadShare& ThreadShare::operator=(ThreadShare&& other) noexcept {
    std::swap(mCount, other.mCount);
    return *this;
}

ThreadShare::~ThreadShare() {
    if (mCount != 0) {
        const std::lock_guard lock(budget().mutex);
        budget().taken -= mCount;
    }
}

void ThreadShare::setBudget(int threads) noexcept {
    const std::lock_guard lock(budget().mutex);
    budget().most = threads;
}

}  // namespace vidorra
