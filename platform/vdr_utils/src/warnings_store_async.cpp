#include "vdr_utils/warnings_store_async.h"

#include <utility>

namespace vx::vdr::utils {

Warning::Warning(std::shared_ptr<WarningsStoreAsync> store, std::string text) noexcept
    : mStore(std::move(store)), mText(std::move(text)) {}

Warning::Warning(Warning&& other) noexcept
    : mStore(std::move(other.mStore)), mText(std::exchange(other.mText, {})) {}

Warning& Warning::operator=(Warning&& other) noexcept {
    if (this != &other) {
        withdraw();
        mStore = std::move(other.mStore);
        mText = std::exchange(other.mText, {});
    }
    return *this;
}

Warning::~Warning() {
    withdraw();
}

void Warning::withdraw() noexcept {
    if (mStore == nullptr) {
        return;
    }
    // Kept until the end, since this may be the last reference.
    const std::shared_ptr<WarningsStoreAsync> store = std::move(mStore);
    const std::string text = std::exchange(mText, {});
    try {
        store->remove(text);
    } catch (...) {
        // Destructors withdraw warnings and must not throw.
    }
}

WarningsStoreAsync::WarningsStoreAsync() = default;

WarningsStoreAsync::~WarningsStoreAsync() = default;

Warning WarningsStoreAsync::add(const std::string& text) {
    if (text.empty()) {
        return {};
    }
    // Everything that can fail comes before the text is counted: otherwise nothing would withdraw it.
    const std::shared_ptr<WarningsStoreAsync> self = shared_from_this();
    std::string held = text;
    const std::lock_guard delivery(mDelivery);
    bool first = false;
    {
        const std::lock_guard lock(mMutex);
        first = ++mTexts[text] == 1;
    }
    Warning warning(self, std::move(held));
    if (first) {
        notify(Change::Shown, text);
    }
    return warning;
}

void WarningsStoreAsync::remove(const std::string& text) {
    const std::lock_guard delivery(mDelivery);
    {
        const std::lock_guard lock(mMutex);
        const auto found = mTexts.find(text);
        if (found == mTexts.end() || --found->second > 0) {
            return;
        }
        mTexts.erase(found);
    }
    notify(Change::Withdrawn, text);
}

void WarningsStoreAsync::setObserver(Observer observer) {
    const std::lock_guard delivery(mDelivery);
    const std::lock_guard lock(mMutex);
    mObserver.swap(observer);
}

std::vector<std::string> WarningsStoreAsync::texts() const {
    const std::lock_guard lock(mMutex);
    std::vector<std::string> result;
    result.reserve(mTexts.size());
    for (const auto& entry : mTexts) {
        result.push_back(entry.first);
    }
    return result;
}

void WarningsStoreAsync::notify(Change change, const std::string& text) {
    try {
        // A copy, since the observer may replace itself.
        Observer observer;
        {
            const std::lock_guard lock(mMutex);
            observer = mObserver;
        }
        if (observer) {
            observer(change, text);
        }
    } catch (...) {
        // An observer's failure does not affect raising and withdrawing.
    }
}

}  // namespace vx::vdr::utils
