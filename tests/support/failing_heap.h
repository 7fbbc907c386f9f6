#pragma once

namespace vidorra::test {

/// Makes one allocation of the program fail while it lives, in whatever library and thread: by malloc and its
/// kin, so by `new` and by FFmpeg too. One at a time. For programs that failing_heap.cpp is a source of,
/// which replaces the heap's functions; not with sanitizers, which have replaced them already.
class FailingHeap {
public:
    /// As many allocations as `succeeding` succeed, and the next one fails. `onFailure`, which may be null,
    /// is called just before it does.
    explicit FailingHeap(long succeeding, void (*onFailure)() = nullptr);
    FailingHeap(const FailingHeap&) = delete;
    FailingHeap& operator=(const FailingHeap&) = delete;
    ~FailingHeap();

    /// The allocations so far, the failed one included; those after it are not counted.
    long allocations() const;

    bool hasFailed() const;

private:
    long mSucceeding;
};

}  // namespace vidorra::test
