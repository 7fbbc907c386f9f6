#pragma once

#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <typeinfo>

namespace objstream {

/// A configuration object with only the operations that the library calls, implemented differently from
/// ours: a scalar is kept as text.
class object {
public:
    object();
    object(const std::string& value);
    object(int value);

    object& operator[](const std::string& key);
    const object& operator[](const std::string& key) const;
    bool hasKey(const std::string& key) const;
    bool empty() const;
    void for_each_kv(std::function<bool(const std::string&, const object&)> visit) const;

    template <class T>
    T getValue() const {
        if (!mIsScalar) {
            throw std::bad_cast();
        }
        std::istringstream stream(mText);
        T value{};
        if (!(stream >> value)) {
            throw std::bad_cast();
        }
        return value;
    }

    template <class T>
    T getValue(T fallback) const {
        return mIsScalar ? getValue<T>() : fallback;
    }

private:
    bool mIsScalar = false;
    std::string mText;
    std::map<std::string, object> mEntries;
};

}  // namespace objstream
