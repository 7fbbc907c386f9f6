#pragma once

#include <cstddef>
#include <functional>
#include <istream>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <typeinfo>
#include <variant>

#include "objstream/export.h"

namespace objstream {

/// A scalar that could not be converted. S is the type in which the scalar holds its value: std::string,
/// long long, int, bool or double.
template <class S>
class OBJSTREAM_API bad_objstream_cast : public std::bad_cast {
public:
    /// The type names are those that std::type_info gives.
    bad_objstream_cast(const S& value, std::string_view sourceType, std::string_view targetType);

    /// "Failed to convert object with value abc from type ... to type int", valid as long as the exception.
    [[nodiscard]] const char* what() const noexcept override;

private:
    std::string mMessage;
};

extern template class bad_objstream_cast<std::string>;
extern template class bad_objstream_cast<long long>;
extern template class bad_objstream_cast<int>;
extern template class bad_objstream_cast<bool>;
extern template class bad_objstream_cast<double>;

/// A configuration value: nothing, a scalar, a map from strings to objects, or an array of objects. Copies
/// are deep.
///
///     objstream::object config;
///     config["codec"] = "mpeg4";
///     config["width"] = 640;
///     config["options"]["b"] = 2000000;
///
/// Threads: as for standard containers: any number of readers, or one writer.
class OBJSTREAM_API object {
public:
    /// A scalar holds exactly one of these.
    using Scalar = std::variant<std::string, long long, int, bool, double>;

    enum class Kind { Nothing, Scalar, Map, Array };

    /// Nothing.
    object() noexcept;
    object(const std::string& value);
    object(const char* value);
    object(int value);
    object(bool value);
    object(double value);
    object(long long value);
    /// Held as long long.
    object(long value);
    /// An empty map and an empty array.
    static object map();
    static object array();

    object(const object& other);
    /// The moved-from object is nothing.
    object(object&& other) noexcept;
    /// The new value may be a part of this object.
    object& operator=(const object& other);
    object& operator=(object&& other) noexcept;
    ~object();

    [[nodiscard]] Kind kind() const noexcept;

    /// Whether this is nothing. A map without keys or a string without characters is not nothing.
    [[nodiscard]] bool empty() const noexcept;

    /// The entry of a key; a missing entry is added. The reference is valid until this object is assigned to
    /// or destroyed. Turns nothing into a map; throws std::logic_error for a scalar or an array.
    object& operator[](const std::string& key);

    /// The entry of a key; an object that is nothing if the entry is missing or this is not a map.
    const object& operator[](const std::string& key) const;

    /// False unless this is a map with that key.
    [[nodiscard]] bool hasKey(const std::string& key) const;

    /// Calls the function for each pair of a map, in the byte order of the keys, until it returns false.
    /// Calls nothing for other kinds.
    void for_each_kv(const std::function<bool(const std::string& key, const object& value)>& visit) const;

    /// Appends to an array. Turns nothing into an array; throws std::logic_error for a scalar or a map.
    void append(object value);

    /// The number of elements of an array or of pairs of a map; 0 for the other kinds.
    [[nodiscard]] std::size_t size() const noexcept;

    /// An element of an array. Throws std::out_of_range past its end and for other kinds.
    [[nodiscard]] const object& at(std::size_t index) const;

    /// The scalar with the type that it was given; null for other kinds.
    [[nodiscard]] const Scalar* scalar() const noexcept;

    /// The scalar converted to T as by boost::lexical_cast: a number from its whole text, a bool from "0" or
    /// "1", and another type through its stream extraction, which has to consume the whole text; leading
    /// blanks are not skipped. Throws std::bad_cast if this is not a scalar, bad_objstream_cast when the
    /// conversion fails, and what an extraction operator throws.
    template <class T>
    [[nodiscard]] T getValue() const {
        const Scalar* held = scalar();
        if (held == nullptr) {
            throw std::bad_cast();
        }
        return convert<T>(*held);
    }

    /// The same, but returns `fallback` if this is not a scalar.
    template <class T>
    [[nodiscard]] T getValue(T fallback) const {
        const Scalar* held = scalar();
        return held != nullptr ? convert<T>(*held) : fallback;
    }

    /// Equal when the kind, the type of a scalar and all content are equal.
    friend OBJSTREAM_API bool operator==(const object& a, const object& b);
    friend bool operator!=(const object& a, const object& b) { return !(a == b); }

private:
    struct Map;
    struct Array;

    // The types that Boost converts itself. Boost stays out of this header: stream extraction of a caller's
    // type is passed to it as a function.
    template <class T>
    static constexpr bool kIsBuiltIn = std::is_arithmetic_v<T> || std::is_same_v<T, std::string>;
    using Extract = bool (*)(std::istream& stream, void* value);

    template <class T>
    static T convertToBuiltIn(const Scalar& held);
    static void convertByExtraction(const Scalar& held, const std::type_info& target, Extract extract,
                                    void* value);

    template <class T>
    static T convert(const Scalar& held) {
        if constexpr (kIsBuiltIn<T>) {
            return convertToBuiltIn<T>(held);
        } else {
            T value = T();
            convertByExtraction(
                held, typeid(T),
                [](std::istream& stream, void* target) {
                    return static_cast<bool>(stream >> *static_cast<T*>(target));
                },
                &value);
            return value;
        }
    }

    std::variant<std::monostate, Scalar, std::unique_ptr<Map>, std::unique_ptr<Array>> mContent;
};

extern template std::string object::convertToBuiltIn<std::string>(const Scalar& held);
extern template bool object::convertToBuiltIn<bool>(const Scalar& held);
extern template char object::convertToBuiltIn<char>(const Scalar& held);
extern template signed char object::convertToBuiltIn<signed char>(const Scalar& held);
extern template unsigned char object::convertToBuiltIn<unsigned char>(const Scalar& held);
extern template short object::convertToBuiltIn<short>(const Scalar& held);
extern template unsigned short object::convertToBuiltIn<unsigned short>(const Scalar& held);
extern template int object::convertToBuiltIn<int>(const Scalar& held);
extern template unsigned object::convertToBuiltIn<unsigned>(const Scalar& held);
extern template long object::convertToBuiltIn<long>(const Scalar& held);
extern template unsigned long object::convertToBuiltIn<unsigned long>(const Scalar& held);
extern template long long object::convertToBuiltIn<long long>(const Scalar& held);
extern template unsigned long long object::convertToBuiltIn<unsigned long long>(const Scalar& held);
extern template float object::convertToBuiltIn<float>(const Scalar& held);
extern template double object::convertToBuiltIn<double>(const Scalar& held);
extern template long double object::convertToBuiltIn<long double>(const Scalar& held);

}  // namespace objstream
