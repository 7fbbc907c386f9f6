#include <fmt/format.h>
#include <gmock/gmock.h>

#include <atomic>
#include <functional>
#include <latch>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/vdr_utils/recorded_changes.h"

namespace vidorra::test {
namespace {

using testing::IsEmpty;
using Change = WarningsStoreAsync::Change;

constexpr int kThreads = 8;
constexpr int kRounds = 300;

// Runs `body` with the numbers 0 to 7 on as many threads, which start together.
void onEightThreads(const std::function<void(int)>& body) {
    std::latch start(kThreads);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            start.arrive_and_wait();
            body(i);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST(StoreThreads, ShownAndWithdrawnAlternateForEachText) {
    const auto store = std::make_shared<WarningsStoreAsync>();
    // The calls come one at a time, so this needs no lock of its own.
    std::map<std::string, bool> visible;
    int calls = 0;
    int wrong = 0;
    store->setObserver([&](Change change, const std::string& text) {
        const bool shown = change == Change::Shown;
        ++calls;
        wrong += visible[text] == shown ? 1 : 0;
        visible[text] = shown;
    });
    onEightThreads([&](int thread) {
        for (int round = 0; round < kRounds; ++round) {
            // Texts that threads share, so that counts meet.
            Warning first = store->add(fmt::format("text {}", (thread + round) % 3));
            Warning second = store->add(fmt::format("text {}", round % 5));
            first = std::move(second);
        }
    });
    EXPECT_EQ(wrong, 0);
    EXPECT_GE(calls, 2 * 5);
    EXPECT_THAT(store->texts(), IsEmpty());
    for (const auto& [text, shown] : visible) {
        EXPECT_FALSE(shown) << text;
    }
}

TEST(StoreThreads, TextsAreWholeWhileOthersRaiseAndWithdraw) {
    const auto store = std::make_shared<WarningsStoreAsync>();
    const Warning lasting = store->add("always");
    std::atomic<int> wrong = 0;
    onEightThreads([&](int thread) {
        const std::string text = fmt::format("b{}", thread);
        for (int round = 0; round < kRounds; ++round) {
            if (thread % 2 == 0) {
                const Warning warning = store->add(text);
            } else {
                const std::vector<std::string> texts = store->texts();
                const bool good =
                    !texts.empty() && texts.front() == "always" && texts.size() <= 1 + kThreads / 2;
                wrong += good ? 0 : 1;
            }
        }
    });
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(store->texts(), std::vector<std::string>{"always"});
}

TEST(StoreThreads, ObserversMayBeReplacedWhileOthersRaise) {
    const auto store = std::make_shared<WarningsStoreAsync>();
    std::atomic<int> underWay = 0;
    std::atomic<int> overlaps = 0;
    std::atomic<int> calls = 0;
    onEightThreads([&](int thread) {
        for (int round = 0; round < kRounds; ++round) {
            if (thread == 0) {
                store->setObserver([&](Change, const std::string&) {
                    overlaps += underWay.fetch_add(1) == 0 ? 0 : 1;
                    ++calls;
                    underWay.fetch_sub(1);
                });
            } else {
                const Warning warning = store->add(std::to_string(thread));
            }
        }
    });
    const Warning last = store->add("last");
    EXPECT_EQ(overlaps, 0);
    EXPECT_GE(calls, 1);
}

TEST(StoreThreads, ObserversMayRaiseAndWithdrawWhileOthersDo) {
    const auto store = std::make_shared<WarningsStoreAsync>();
    int nested = 0;
    store->setObserver([&](Change change, const std::string& text) {
        if (change == Change::Shown && text != "nested") {
            ++nested;
            const Warning warning = store->add("nested");
        }
    });
    onEightThreads([&](int thread) {
        for (int round = 0; round < kRounds; ++round) {
            const Warning warning = store->add(std::to_string(thread));
        }
    });
    store->setObserver({});
    // Each thread has a text of its own.
    EXPECT_EQ(nested, kThreads * kRounds);
    EXPECT_THAT(store->texts(), IsEmpty());
}

TEST(StoreThreads, SetObserverReturnsWhenTheOldOneIsThrough) {
    const auto store = std::make_shared<WarningsStoreAsync>();
    std::latch inside(1);
    std::latch about(1);
    std::atomic<bool> through = false;
    store->setObserver([&](Change change, const std::string&) {
        if (change == Change::Shown) {
            inside.count_down();
            about.wait();
            // Gives the other thread the time to return too early.
            for (int i = 0; i < 1000; ++i) {
                std::this_thread::yield();
            }
            through = true;
        }
    });
    std::thread raising([&] { const Warning warning = store->add("late"); });
    inside.wait();
    about.count_down();
    store->setObserver({});
    EXPECT_TRUE(through);
    raising.join();
}

TEST(StoreThreads, TextsCanBeReadWhileAnObserverRuns) {
    const auto store = std::make_shared<WarningsStoreAsync>();
    std::latch inside(1);
    std::latch done(1);
    store->setObserver([&](Change change, const std::string&) {
        if (change == Change::Shown) {
            inside.count_down();
            done.wait();
        }
    });
    std::thread raising([&] { const Warning warning = store->add("late"); });
    inside.wait();
    EXPECT_EQ(store->texts(), std::vector<std::string>{"late"});
    done.count_down();
    raising.join();
}

TEST(StoreThreads, TheLastHoldersMayGoOnDifferentThreads) {
    for (int round = 0; round < 20; ++round) {
        auto store = std::make_shared<WarningsStoreAsync>();
        const std::weak_ptr<WarningsStoreAsync> watched = store;
        std::vector<std::optional<Warning>> warnings(kThreads);
        for (std::optional<Warning>& warning : warnings) {
            warning = store->add("late");
        }
        store.reset();
        onEightThreads([&](int thread) { warnings[static_cast<std::size_t>(thread)].reset(); });
        EXPECT_TRUE(watched.expired());
    }
}

}  // namespace
}  // namespace vidorra::test
