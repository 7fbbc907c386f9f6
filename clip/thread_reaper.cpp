#include "clip/thread_reaper.h"

#include <chrono>
#include <exception>
#include <list>
#include <mutex>
#include <utility>

namespace vidorra {
namespace {

struct Left {
    std::thread thread;
    std::future<void> done;
};

struct Threads {
    // Guards the list.
    std::mutex mutex;
    std::list<Left> left;
};

// Never destroyed: at the end of the process a thread may still be in a call that does not return.
Threads& threads() {
    static auto* const kThreads = new Threads();
    return *kThreads;
}

void joinEnded(std::list<Left>& left) {
    for (auto entry = left.begin(); entry != left.end();) {
        if (entry->done.wait_for(std::chrono::seconds(0)) == std::future_status::ready) {
            entry->thread.join();
            entry = left.erase(entry);
        } else {
            ++entry;
        }
    }
}

}  // namespace

void ThreadReaper::leave(std::thread thread, std::future<void> done) noexcept try {
    std::list<Left> one(1);
    one.front().done = std::move(done);
    const std::lock_guard lock(threads().mutex);
    joinEnded(threads().left);
    one.front().thread = std::move(thread);
    threads().left.splice(threads().left.end(), one);
} catch (const std::exception&) {
    thread.detach();
}

std::size_t ThreadReaper::count() noexcept {
    const std::lock_guard lock(threads().mutex);
    joinEnded(threads().left);
    return threads().left.size();
}

}  // namespace vidorra
