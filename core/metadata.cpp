#include "vidorra/core/metadata.h"

#include <ostream>
#include <utility>

namespace vidorra {

void Metadata::addValue(std::string key, std::string value) {
    mValues.insert_or_assign(std::move(key), std::move(value));
}

void Metadata::addValue(std::string key, bool value) {
    addValue(std::move(key), value ? "true" : "false");
}

void Metadata::addValue(std::string key, const char* value) {
    addValue(std::move(key), std::string(value));
}

// Deliberate: all functions take keys by value, also those that only look up: this is the known interface.
// NOLINTBEGIN(performance-unnecessary-value-param)
bool Metadata::hasKey(std::string key) const {
    return mValues.count(key) != 0;
}

std::string Metadata::getValue(std::string key) const {
    const auto found = mValues.find(key);
    return found != mValues.end() ? found->second : std::string();
}

std::string Metadata::operator[](std::string key) const {
    return getValue(std::move(key));
}

void Metadata::removeValue(std::string key) {
    mValues.erase(key);
}
// NOLINTEND(performance-unnecessary-value-param)

std::ostream& operator<<(std::ostream& stream, const Metadata& metadata) {
    bool first = true;
    for (const auto& [key, value] : metadata.mValues) {
        if (!first) {
            stream << std::endl;
        }
        first = false;
        stream << key << ": " << value;
    }
    return stream;
}

}  // namespace vidorra
