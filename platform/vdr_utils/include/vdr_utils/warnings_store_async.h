#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "vdr_utils/warning.h"

namespace vx::vdr::utils {

/// The warnings that the user of a program sees, raised and withdrawn by whoever finds them. It lives in a
/// shared pointer, since each warning holds the store that it came from.
///
///     auto store = std::make_shared<WarningsStoreAsync>();
///     store->setObserver([](WarningsStoreAsync::Change change, const std::string& text) { ... });
///     Warning noSignal = store->add("Input 1 has no signal");
///     noSignal = Warning();
///
/// A text that is raised several times is visible until its last warning goes.
///
/// Threads: any. The observer runs on the thread that raises or withdraws, one call at a time and in the
/// order of the changes; it may raise and withdraw warnings itself.
class VDR_UTILS_API WarningsStoreAsync : public std::enable_shared_from_this<WarningsStoreAsync> {
public:
    enum class Change { Shown, Withdrawn };
    /// What it throws is dropped.
    using Observer = std::function<void(Change change, const std::string& text)>;

    WarningsStoreAsync();
    WarningsStoreAsync(const WarningsStoreAsync&) = delete;
    WarningsStoreAsync& operator=(const WarningsStoreAsync&) = delete;
    virtual ~WarningsStoreAsync();

    /// Makes a text visible and gives the warning that keeps it so. An empty text is no warning.
    [[nodiscard]] virtual Warning add(const std::string& text);

    /// Withdraws a text once. Called by the warnings themselves; a text that is not visible is ignored.
    virtual void remove(const std::string& text);

    /// Who hears of changes from now on; an empty one for nobody. When this returns, no call of the old one
    /// is under way, unless it is called from inside of it.
    void setObserver(Observer observer);

    /// The visible texts, in alphabetical order.
    [[nodiscard]] std::vector<std::string> texts() const;

private:
    void notify(Change change, const std::string& text);

    // Held across a change and the call of the observer, so that calls come in the order of the changes.
    // Recursive, since an observer may raise and withdraw.
    std::recursive_mutex mDelivery;
    // Guards the two members below, and is never held while the observer runs.
    mutable std::mutex mMutex;
    std::map<std::string, int> mTexts;
    Observer mObserver;
};

}  // namespace vx::vdr::utils
