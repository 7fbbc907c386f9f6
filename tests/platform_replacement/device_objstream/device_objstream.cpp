#include "objstream/object.h"

namespace objstream {

object::object() = default;
object::object(const std::string& value) : mIsScalar(true), mText(value) {}
object::object(int value) : mIsScalar(true), mText(std::to_string(value)) {}

object& object::operator[](const std::string& key) {
    return mEntries[key];
}

const object& object::operator[](const std::string& key) const {
    static const object nothing;
    const auto found = mEntries.find(key);
    return found != mEntries.end() ? found->second : nothing;
}

bool object::hasKey(const std::string& key) const {
    return mEntries.count(key) != 0;
}

bool object::empty() const {
    return !mIsScalar && mEntries.empty();
}

void object::for_each_kv(std::function<bool(const std::string&, const object&)> visit) const {
    for (const auto& [key, value] : mEntries) {
        if (!visit(key, value)) {
            return;
        }
    }
}

}  // namespace objstream
