#pragma once

#include <memory>
#include <string>

#include "vdr_utils/export.h"

namespace vx::vdr::utils {

class WarningsStoreAsync;

/// A warning that the user sees as long as this object holds it. Raise one by assigning what
/// WarningsStoreAsync::add() gives, clear it by assigning a default one. It keeps its store alive.
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
    /// Leaves the other one not raised.
    Warning(Warning&& other) noexcept;
    /// Withdraws the text that was held.
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
