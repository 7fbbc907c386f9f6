#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "vdr_utils/warnings_store_async.h"

namespace vidorra::test {

using vx::vdr::utils::Warning;
using vx::vdr::utils::WarningsStoreAsync;

/// The changes that an observer heard of, as "+text" and "-text".
class RecordedChanges {
public:
    WarningsStoreAsync::Observer observer() {
        return [this](WarningsStoreAsync::Change change, const std::string& text) { record(change, text); };
    }

    void record(WarningsStoreAsync::Change change, const std::string& text) {
        const std::lock_guard lock(mMutex);
        mChanges.push_back((change == WarningsStoreAsync::Change::Shown ? "+" : "-") + text);
    }

    std::vector<std::string> all() const {
        const std::lock_guard lock(mMutex);
        return mChanges;
    }

private:
    // Guards mChanges.
    mutable std::mutex mMutex;
    std::vector<std::string> mChanges;
};

}  // namespace vidorra::test
