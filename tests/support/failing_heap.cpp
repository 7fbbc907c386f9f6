#include "support/failing_heap.h"

#include <atomic>
#include <cerrno>
#include <cstddef>

namespace {

// How many allocations succeed before one fails; negative while all do.
std::atomic<long> untilFailure{-1};
std::atomic<void (*)()> callOnFailure{nullptr};

bool failsNow() {
    if (untilFailure.load(std::memory_order_relaxed) < 0 || untilFailure.fetch_sub(1) != 0) {
        return false;
    }
    if (void (*const call)() = callOnFailure) {
        call();
    }
    // As the C library does, which relies on it itself when it starts a thread.
    errno = ENOMEM;
    return true;
}

}  // namespace

#pragma GCC visibility push(default)
// The C library's allocator under the names that it keeps for replacements like these.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);

void* malloc(std::size_t size) {
    return failsNow() ? nullptr : __libc_malloc(size);
}
void* calloc(std::size_t count, std::size_t size) {
    return failsNow() ? nullptr : __libc_calloc(count, size);
}
void* realloc(void* memory, std::size_t size) {
    return failsNow() ? nullptr : __libc_realloc(memory, size);
}
void* memalign(std::size_t alignment, std::size_t size) {
    return failsNow() ? nullptr : __libc_memalign(alignment, size);
}
void* aligned_alloc(std::size_t alignment, std::size_t size) {
    return memalign(alignment, size);
}
int posix_memalign(void** memory, std::size_t alignment, std::size_t size) {
    void* const block = memalign(alignment, size);
    if (block == nullptr) {
        return ENOMEM;
    }
    *memory = block;
    return 0;
}
}
#pragma GCC visibility pop

namespace vidorra::test {

FailingHeap::FailingHeap(long succeeding, void (*onFailure)()) : mSucceeding(succeeding) {
    callOnFailure = onFailure;
    untilFailure = succeeding;
}

FailingHeap::~FailingHeap() {
    untilFailure = -1;
}

long FailingHeap::allocations() const {
    const long left = untilFailure;
    return left < 0 ? mSucceeding + 1 : mSucceeding - left;
}

bool FailingHeap::hasFailed() const {
    return untilFailure < 0;
}

}  // namespace vidorra::test
