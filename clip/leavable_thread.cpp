#include "clip/leavable_thread.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <utility>

namespace vidorra {
namespace {

// A wait that can be interrupted ends much sooner.
constexpr std::chrono::milliseconds kPatience{1};

std::atomic<std::size_t>& leftThreads() noexcept {
    static std::atomic<std::size_t> count{0};
    return count;
}

}  // namespace

struct LeavableThread::State {
    // Guards the flags.
    std::mutex mutex;
    std::condition_variable changed;
    bool ended = false;
    bool left = false;
};

LeavableThread::LeavableThread(std::function<void()> work)
    : mState(std::make_shared<State>()), mThread([state = mState, action = std::move(work)]() mutable {
          action();
          // What it owns has to be gone at the end.
          action = nullptr;
          const std::lock_guard lock(state->mutex);
          state->ended = true;
          state->changed.notify_all();
          if (state->left) {
              --leftThreads();
          }
      }) {}

LeavableThread::~LeavableThread() {
    std::unique_lock lock(mState->mutex);
    if (mState->changed.wait_for(lock, kPatience, [this] { return mState->ended; })) {
        lock.unlock();
        mThread.join();
        return;
    }
    mState->left = true;
    ++leftThreads();
    mThread.detach();
}

std::size_t LeavableThread::left() noexcept {
    return leftThreads();
}

}  // namespace vidorra
