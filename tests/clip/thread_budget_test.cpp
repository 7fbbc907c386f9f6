#include "clip/thread_budget.h"

#include <gtest/gtest.h>

#include <thread>

namespace vidorra {
namespace {

// The budget belongs to the process: each test leaves it as it was.
class ThreadBudget : public testing::Test {
protected:
    ~ThreadBudget() override {
        ThreadShare::setBudget(static_cast<int>(std::thread::hardware_concurrency()));
    }
};

TEST_F(ThreadBudget, IsSharedByAll) {
    ThreadShare::setBudget(5);
    const ThreadShare first(3);
    const ThreadShare second(16);
    const ThreadShare third(16);
    EXPECT_EQ(first.count(), 3);
    EXPECT_EQ(second.count(), 2);
    EXPECT_EQ(third.count(), 0);
}

TEST_F(ThreadBudget, GetsBackWhatWasTaken) {
    ThreadShare::setBudget(4);
    { const ThreadShare share(4); }
    ThreadShare share(4);
    EXPECT_EQ(share.count(), 4);
    share = ThreadShare();
    EXPECT_EQ(ThreadShare(4).count(), 4);
}

TEST_F(ThreadBudget, ASingleThreadIsNotTaken) {
    ThreadShare::setBudget(4);
    const ThreadShare most(3);
    const ThreadShare none(4);
    EXPECT_EQ(none.count(), 0);
    EXPECT_EQ(ThreadShare(1).count(), 0);
}

TEST_F(ThreadBudget, ASmallerOneLeavesSharesThatWereTaken) {
    ThreadShare::setBudget(4);
    const ThreadShare share(4);
    ThreadShare::setBudget(2);
    EXPECT_EQ(share.count(), 4);
    EXPECT_EQ(ThreadShare(2).count(), 0);
}

}  // namespace
}  // namespace vidorra
