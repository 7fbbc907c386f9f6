#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "vdr_utils/warning.h"

namespace vx::vdr::utils {

/// The warnings that the user of a program sees. Any part of the program can raise and withdraw them. Create
/// the store with std::make_shared, since each warning holds a reference to its store.
///
///     auto store = std::make_shared<WarningsStoreAsync>();
///     store->setObserver([](WarningsStoreAsync::Change change, const std::string& text) { ... });
///     Warning noSignal = store->add("Input 1 has no signal");
///     noSignal = Warning();
///
/// A text that is raised several times is visible until its last warning is withdrawn.
///
/// Threads: thread-safe. The observer runs on the thread that raises or withdraws, one call at a time and in
/// the order of the changes; it may raise and withdraw warnings itself.
class VDR_UTILS_API WarningsStoreAsync : public std::enable_shared_from_this<WarningsStoreAsync> {
public:
    enum class Change { Shown, Withdrawn };
    /// Exceptions of an observer are dropped.
    using Observer = std::function<void(Change change, const std::string& text)>;

    WarningsStoreAsync();
    WarningsStoreAsync(const WarningsStoreAsync&) = delete;
    WarningsStoreAsync& operator=(const WarningsStoreAsync&) = delete;
    virtual ~WarningsStoreAsync();

    /// Makes a text visible and returns the warning that keeps it visible. An empty text gives a warning
    /// that is not raised.
    [[nodiscard]] virtual Warning add(const std::string& text);

    /// Withdraws a text once; called by the warnings themselves. A text that is not visible is ignored.
    virtual void remove(const std::string& text);

    /// Replaces the observer; an empty one means none. When this returns, no call of the old observer is
    /// running, unless this is called from inside it.
    void setObserver(Observer observer);

    /// The visible texts, in alphabetical order.
    [[nodiscard]] std::vector<std::string> texts() const;

private:
    void notify(Change change, const std::string& text);

    // Held during a change and the call of the observer, so that calls come in the order of the changes.
    // Recursive, since an observer may raise and withdraw warnings.
    std::recursive_mutex mDelivery;
    // Guards the two members below, and is never held while the observer runs.
    mutable std::mutex mMutex;
    std::map<std::string, int> mTexts;
    Observer mObserver;
};

}  // namespace vx::vdr::utils
