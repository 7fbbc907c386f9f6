#pragma once

#include <string>
#include <vector>

#include <vidorra/vidorra.h>

namespace vidorra::test {

/// Records raised ("+" and the text) and withdrawn ("-") warnings, in order.
class RecordingStore : public vx::vdr::utils::WarningsStoreAsync {
public:
    vx::vdr::utils::Warning add(const std::string& text) override {
        events.push_back("+" + text);
        return WarningsStoreAsync::add(text);
    }
    void remove(const std::string& text) override {
        events.push_back("-" + text);
        WarningsStoreAsync::remove(text);
    }

    std::vector<std::string> events;
};

}  // namespace vidorra::test
