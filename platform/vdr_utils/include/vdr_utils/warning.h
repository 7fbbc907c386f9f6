#pragma once

#include <memory>
#include <string>

#include "vdr_utils/export.h"

namespace vx::vdr::utils {

class WarningsStoreAsync;

/// A warning that the user sees as long as this object holds it. To raise a warning, assign the result of
/// WarningsStoreAsync::add(); to withdraw it, assign Warning(). A warning keeps its store alive.
///
///     auto store = std::make_shared<WarningsStoreAsync>();
///     const Warning noSignal = store->add("Input 1 has no signal");
///
/// Threads: one at a time.
class VDR_UTILS_API Warning {
public:
    /// Not raised.
    Warning() noexcept = default;

    /// For stores: holds a text that the store has made visible.
    Warning(std::shared_ptr<WarningsStoreAsync> store, std::string text) noexcept;

    Warning(const Warning&) = delete;
    Warning& operator=(const Warning&) = delete;
    /// The moved-from warning is no longer raised.
    Warning(Warning&& other) noexcept;
    /// Withdraws the present text first.
    Warning& operator=(Warning&& other) noexcept;
    ~Warning();

    /// Empty when not raised.
    [[nodiscard]] const std::string& text() const noexcept { return mText; }

private:
    void withdraw() noexcept;

    std::shared_ptr<WarningsStoreAsync> mStore;
    std::string mText;
};

}  // namespace vx::vdr::utils
