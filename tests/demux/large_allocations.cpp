#include "demux/large_allocations.h"

#include <atomic>
#include <cerrno>
#include <cstdint>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define SANITIZER_ALLOCATES
// Of <sanitizer/allocator_interface.h>, which GCC does not install.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*allocated)(const volatile void*, std::size_t),
                                                         void (*freed)(const volatile void*));
#endif

namespace {

std::atomic<std::size_t> watchedSize{SIZE_MAX};
std::atomic<std::size_t> allocations{0};

void note(std::size_t size) {
    if (size >= watchedSize.load(std::memory_order_relaxed)) {
        ++allocations;
    }
}

}  // namespace

#ifdef SANITIZER_ALLOCATES

// The sanitizer has already replaced the allocator, and reports every block.
[[maybe_unused]] static const int installed = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void*, std::size_t size) { note(size); }, [](const volatile void*) {});

#else

// The C library's allocator under the names that it keeps for replacements like these.
extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);

#define EXPORTED __attribute__((visibility("default")))

EXPORTED void* malloc(std::size_t size) {
    note(size);
    return __libc_malloc(size);
}

EXPORTED void* calloc(std::size_t count, std::size_t size) {
    note(count * size);
    return __libc_calloc(count, size);
}

EXPORTED void* realloc(void* block, std::size_t size) {
    note(size);
    return __libc_realloc(block, size);
}

EXPORTED void* aligned_alloc(std::size_t alignment, std::size_t size) {
    note(size);
    return __libc_memalign(alignment, size);
}

EXPORTED int posix_memalign(void** block, std::size_t alignment, std::size_t size) {
    note(size);
    *block = __libc_memalign(alignment, size);
    return *block != nullptr ? 0 : ENOMEM;
}

}  // extern "C"

#endif

namespace vidorra::test {

LargeAllocations::LargeAllocations(std::size_t size) {
    allocations = 0;
    watchedSize = size;
}

LargeAllocations::~LargeAllocations() {
    watchedSize = SIZE_MAX;
}

std::size_t LargeAllocations::count() const {
    return allocations;
}

}  // namespace vidorra::test
