#include "vdr_utils/warnings_store_async.h"

#include <gmock/gmock.h>

#include <optional>
#include <stdexcept>
#include <type_traits>
#include <utility>

#include "platform/vdr_utils/recorded_changes.h"

namespace vidorra::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Change = WarningsStoreAsync::Change;

static_assert(std::has_virtual_destructor_v<WarningsStoreAsync>);
static_assert(!std::is_copy_constructible_v<WarningsStoreAsync>);
static_assert(!std::is_copy_constructible_v<Warning> && !std::is_copy_assignable_v<Warning>);
static_assert(std::is_nothrow_move_constructible_v<Warning> && std::is_nothrow_move_assignable_v<Warning>);
static_assert(std::is_nothrow_destructible_v<Warning>);

class Store : public testing::Test {
protected:
    void observe() { store->setObserver(changes.observer()); }

    RecordedChanges changes;
    std::shared_ptr<WarningsStoreAsync> store = std::make_shared<WarningsStoreAsync>();
};

TEST(Warning, IsNotRaisedAtFirst) {
    const Warning warning;
    EXPECT_THAT(warning.text(), IsEmpty());
}

TEST_F(Store, ShowsNothingAtFirst) {
    EXPECT_THAT(store->texts(), IsEmpty());
}

TEST_F(Store, GivesAWarningThatHoldsTheText) {
    const Warning warning = store->add("no signal");
    EXPECT_EQ(warning.text(), "no signal");
    EXPECT_THAT(store->texts(), ElementsAre("no signal"));
}

TEST_F(Store, GivesAWarningThatHoldsTheStore) {
    const std::weak_ptr<WarningsStoreAsync> watched = store;
    {
        const Warning warning = store->add("no signal");
        store.reset();
        EXPECT_FALSE(watched.expired());
    }
    EXPECT_TRUE(watched.expired());
}

TEST_F(Store, WithdrawsTheTextWhenTheWarningIsDestroyed) {
    { const Warning warning = store->add("no signal"); }
    EXPECT_THAT(store->texts(), IsEmpty());
}

TEST_F(Store, WithdrawsTheTextWhenADefaultWarningIsAssigned) {
    Warning warning = store->add("no signal");
    warning = Warning();
    EXPECT_THAT(warning.text(), IsEmpty());
    EXPECT_THAT(store->texts(), IsEmpty());
}

TEST_F(Store, WithdrawsTheOldTextWhenAnotherWarningIsAssigned) {
    observe();
    Warning warning = store->add("first");
    warning = store->add("second");
    EXPECT_EQ(warning.text(), "second");
    EXPECT_THAT(changes.all(), ElementsAre("+first", "+second", "-first"));
}

TEST_F(Store, KeepsATextThatIsRaisedAgainOverItself) {
    observe();
    Warning warning = store->add("late");
    warning = store->add("late");
    EXPECT_THAT(store->texts(), ElementsAre("late"));
    EXPECT_THAT(changes.all(), ElementsAre("+late"));
}

TEST_F(Store, KeepsATextRaisedTwiceUntilItsLastWarningGoes) {
    observe();
    std::optional<Warning> first = store->add("late");
    std::optional<Warning> second = store->add("late");
    EXPECT_THAT(store->texts(), ElementsAre("late"));
    first.reset();
    EXPECT_THAT(store->texts(), ElementsAre("late"));
    EXPECT_THAT(changes.all(), ElementsAre("+late"));
    second.reset();
    EXPECT_THAT(store->texts(), IsEmpty());
    EXPECT_THAT(changes.all(), ElementsAre("+late", "-late"));
}

TEST_F(Store, ShowsATextAgainThatWasWithdrawn) {
    observe();
    { const Warning warning = store->add("late"); }
    const Warning again = store->add("late");
    EXPECT_THAT(changes.all(), ElementsAre("+late", "-late", "+late"));
}

TEST_F(Store, ListsTextsInAlphabeticalOrder) {
    const Warning c = store->add("c");
    const Warning a = store->add("a");
    const Warning b = store->add("b");
    EXPECT_THAT(store->texts(), ElementsAre("a", "b", "c"));
}

TEST_F(Store, TakesAnEmptyTextForNoWarning) {
    observe();
    const Warning warning = store->add("");
    EXPECT_THAT(warning.text(), IsEmpty());
    EXPECT_THAT(store->texts(), IsEmpty());
    EXPECT_THAT(changes.all(), IsEmpty());
}

TEST_F(Store, IgnoresTheRemovalOfATextThatIsNotVisible) {
    observe();
    const Warning warning = store->add("a");
    store->remove("b");
    EXPECT_THAT(store->texts(), ElementsAre("a"));
    EXPECT_THAT(changes.all(), ElementsAre("+a"));
}

TEST_F(Store, IsSeparateFromOtherStores) {
    const auto other = std::make_shared<WarningsStoreAsync>();
    const Warning here = store->add("same");
    { const Warning there = other->add("same"); }
    EXPECT_THAT(store->texts(), ElementsAre("same"));
    EXPECT_THAT(other->texts(), IsEmpty());
}

TEST_F(Store, AWarningMovedOnKeepsTheTextAndLeavesTheOldOneNotRaised) {
    observe();
    Warning old = store->add("late");
    {
        const Warning fresh = std::move(old);
        EXPECT_EQ(fresh.text(), "late");
        EXPECT_THAT(old.text(), IsEmpty());
        old = Warning();
        EXPECT_THAT(changes.all(), ElementsAre("+late"));
    }
    EXPECT_THAT(changes.all(), ElementsAre("+late", "-late"));
}

TEST_F(Store, AWarningAssignedOnLeavesTheOldOneNotRaised) {
    observe();
    Warning target;
    {
        Warning old = store->add("late");
        target = std::move(old);
        EXPECT_THAT(old.text(), IsEmpty());
    }
    EXPECT_EQ(target.text(), "late");
    EXPECT_THAT(changes.all(), ElementsAre("+late"));
}

TEST_F(Store, AWarningAssignedToItselfStaysRaised) {
    observe();
    Warning warning = store->add("late");
    Warning& same = warning;
    warning = std::move(same);
    EXPECT_EQ(warning.text(), "late");
    EXPECT_THAT(changes.all(), ElementsAre("+late"));
}

TEST_F(Store, TellsTheObserverAfterTheChange) {
    std::vector<std::vector<std::string>> seen;
    store->setObserver([&](Change, const std::string&) { seen.push_back(store->texts()); });
    { const Warning warning = store->add("late"); }
    EXPECT_THAT(seen, ElementsAre(ElementsAre("late"), IsEmpty()));
    store->setObserver({});
}

TEST_F(Store, TellsAnObserverOnlyOfWhatComesAfterIt) {
    Warning early = store->add("early");
    observe();
    EXPECT_THAT(changes.all(), IsEmpty());
    early = Warning();
    EXPECT_THAT(changes.all(), ElementsAre("-early"));
}

TEST_F(Store, TellsNobodyAfterAnEmptyObserver) {
    observe();
    store->setObserver({});
    const Warning warning = store->add("late");
    EXPECT_THAT(changes.all(), IsEmpty());
}

TEST_F(Store, TellsTheObserverOfTheLastWithdrawalAlsoWhenTheWarningIsTheLastHolder) {
    observe();
    std::optional<Warning> warning = store->add("late");
    store.reset();
    warning.reset();
    EXPECT_THAT(changes.all(), ElementsAre("+late", "-late"));
}

TEST_F(Store, LetsTheObserverRaiseAWarning) {
    Warning second;
    store->setObserver([&](Change change, const std::string& text) {
        changes.record(change, text);
        if (change == Change::Shown && text == "first") {
            second = store->add("second");
        }
    });
    const Warning first = store->add("first");
    EXPECT_THAT(store->texts(), ElementsAre("first", "second"));
    EXPECT_THAT(changes.all(), ElementsAre("+first", "+second"));
    store->setObserver({});
}

TEST_F(Store, LetsTheObserverRaiseTheTextThatItHearsOf) {
    Warning held;
    store->setObserver([&](Change change, const std::string& text) {
        changes.record(change, text);
        if (change == Change::Shown) {
            held = store->add(text);
        }
    });
    { const Warning warning = store->add("late"); }
    EXPECT_THAT(store->texts(), ElementsAre("late"));
    EXPECT_THAT(changes.all(), ElementsAre("+late"));
    held = Warning();
    EXPECT_THAT(changes.all(), ElementsAre("+late", "-late"));
    store->setObserver({});
}

TEST_F(Store, LetsTheObserverRaiseAWithdrawnTextAgain) {
    Warning held;
    store->setObserver([&](Change change, const std::string& text) {
        changes.record(change, text);
        if (change == Change::Withdrawn && held.text().empty()) {
            held = store->add(text);
        }
    });
    { const Warning warning = store->add("late"); }
    EXPECT_THAT(store->texts(), ElementsAre("late"));
    EXPECT_THAT(changes.all(), ElementsAre("+late", "-late", "+late"));
    store->setObserver({});
}

TEST_F(Store, LetsTheObserverWithdrawAWarning) {
    Warning other = store->add("other");
    store->setObserver([&](Change change, const std::string& text) {
        changes.record(change, text);
        if (text == "late") {
            other = Warning();
        }
    });
    const Warning warning = store->add("late");
    EXPECT_THAT(store->texts(), ElementsAre("late"));
    EXPECT_THAT(changes.all(), ElementsAre("+late", "-other"));
    store->setObserver({});
}

TEST_F(Store, LetsTheObserverReplaceItself) {
    RecordedChanges later;
    store->setObserver([&](Change change, const std::string& text) {
        store->setObserver(later.observer());
        // What this closure holds is still alive.
        changes.record(change, text);
    });
    { const Warning warning = store->add("late"); }
    EXPECT_THAT(changes.all(), ElementsAre("+late"));
    EXPECT_THAT(later.all(), ElementsAre("-late"));
}

TEST_F(Store, LetsTheObserverRemoveItself) {
    store->setObserver([&](Change change, const std::string& text) {
        store->setObserver({});
        changes.record(change, text);
    });
    { const Warning warning = store->add("late"); }
    EXPECT_THAT(changes.all(), ElementsAre("+late"));
}

TEST_F(Store, ReplacesAnObserverThatHoldsAWarning) {
    auto held = std::make_shared<Warning>(store->add("held"));
    store->setObserver([held](Change, const std::string&) {});
    held.reset();
    observe();
    EXPECT_THAT(store->texts(), IsEmpty());
    EXPECT_THAT(changes.all(), ElementsAre("-held"));
}

TEST_F(Store, DropsWhatTheObserverThrows) {
    store->setObserver([&](Change change, const std::string& text) {
        changes.record(change, text);
        throw std::runtime_error("observer");
    });
    {
        Warning warning;
        EXPECT_NO_THROW(warning = store->add("late"));
        EXPECT_EQ(warning.text(), "late");
        EXPECT_THAT(store->texts(), ElementsAre("late"));
    }
    EXPECT_THAT(store->texts(), IsEmpty());
    EXPECT_THAT(changes.all(), ElementsAre("+late", "-late"));
}

TEST_F(Store, GoesOnTellingAnObserverThatHasThrown) {
    bool thrown = false;
    store->setObserver([&](Change change, const std::string& text) {
        changes.record(change, text);
        if (!std::exchange(thrown, true)) {
            throw 1;
        }
    });
    const Warning a = store->add("a");
    const Warning b = store->add("b");
    EXPECT_THAT(changes.all(), ElementsAre("+a", "+b"));
    store->setObserver({});
}

// Another kind of store: it keeps no texts, and records the calls of warnings and their users.
class ForeignStore : public WarningsStoreAsync {
public:
    Warning add(const std::string& text) override {
        calls.push_back("add " + text);
        return {shared_from_this(), "<" + text + ">"};
    }
    void remove(const std::string& text) override {
        calls.push_back("remove " + text);
        if (throwing) {
            throw std::runtime_error("remove");
        }
    }

    std::vector<std::string> calls;
    bool throwing = false;
};

TEST(DerivedStore, GetsTheCallsOfTheBase) {
    const auto foreign = std::make_shared<ForeignStore>();
    const std::shared_ptr<WarningsStoreAsync> base = foreign;
    {
        const Warning warning = base->add("a");
        EXPECT_EQ(warning.text(), "<a>");
        EXPECT_THAT(foreign->calls, ElementsAre("add a"));
    }
    EXPECT_THAT(foreign->calls, ElementsAre("add a", "remove <a>"));
    EXPECT_THAT(base->texts(), IsEmpty());
}

TEST(DerivedStore, IsAskedToWithdrawOnceForEachWarning) {
    const auto foreign = std::make_shared<ForeignStore>();
    Warning warning = foreign->add("a");
    warning = foreign->add("b");
    warning = Warning();
    warning = Warning();
    EXPECT_THAT(foreign->calls, ElementsAre("add a", "add b", "remove <a>", "remove <b>"));
}

TEST(DerivedStore, IsNotAskedByAWarningThatWasMovedFrom) {
    const auto foreign = std::make_shared<ForeignStore>();
    Warning target;
    {
        Warning source = foreign->add("a");
        target = std::move(source);
    }
    EXPECT_THAT(foreign->calls, ElementsAre("add a"));
}

TEST(DerivedStore, IsAskedByAWarningWithAnEmptyTextToo) {
    const auto foreign = std::make_shared<ForeignStore>();
    { const Warning warning(foreign, ""); }
    EXPECT_THAT(foreign->calls, ElementsAre("remove "));
}

TEST(DerivedStore, WithdrawsBeforeTheNewWarningIsTakenOver) {
    struct LookingStore : WarningsStoreAsync {
        void remove(const std::string&) override { seen = watched->text(); }
        const Warning* watched = nullptr;
        std::string seen = "not called";
    };
    const auto store = std::make_shared<LookingStore>();
    Warning warning(store, "old");
    store->watched = &warning;
    warning = Warning(nullptr, "new");
    EXPECT_NE(store->seen, "new");
    EXPECT_NE(store->seen, "not called");
    EXPECT_EQ(warning.text(), "new");
}

TEST(DerivedStore, MayThrowWhenItWithdraws) {
    const auto foreign = std::make_shared<ForeignStore>();
    foreign->throwing = true;
    {
        Warning warning = foreign->add("a");
        warning = Warning();
        EXPECT_THAT(warning.text(), IsEmpty());
        warning = foreign->add("b");
    }
    EXPECT_THAT(foreign->calls, ElementsAre("add a", "remove <a>", "add b", "remove <b>"));
}

TEST(DerivedStore, MayCallTheOperationsOfTheBase) {
    struct PrefixingStore : WarningsStoreAsync {
        Warning add(const std::string& text) override { return WarningsStoreAsync::add("input: " + text); }
    };
    const auto store = std::make_shared<PrefixingStore>();
    {
        const Warning warning = store->add("late");
        EXPECT_EQ(warning.text(), "input: late");
        EXPECT_THAT(store->texts(), ElementsAre("input: late"));
    }
    EXPECT_THAT(store->texts(), IsEmpty());
}

}  // namespace
}  // namespace vidorra::test
