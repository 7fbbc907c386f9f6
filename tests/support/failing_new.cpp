#include "support/failing_new.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

thread_local bool failing = false;

}  // namespace

void* operator new(std::size_t size) {
    void* const memory = failing ? nullptr : std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace vidorra::test {

FailingNew::FailingNew() {
    failing = true;
}

FailingNew::~FailingNew() {
    failing = false;
}

}  // namespace vidorra::test
