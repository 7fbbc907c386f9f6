// GCC 12 warns of an impossible overlap inside Boost's conversion of a bool to a string.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wrestrict"
#endif

#include "objstream/object.h"

#include <boost/core/demangle.hpp>
#include <boost/lexical_cast.hpp>
#include <boost/lexical_cast/try_lexical_convert.hpp>

#include <fmt/format.h>

#include <limits>
#include <map>
#include <stdexcept>
#include <utility>
#include <vector>

namespace objstream {
namespace {

// A value of a type that only the caller's code knows. Boost extracts it like the value itself.
struct Extraction {
    bool (*extract)(std::istream& stream, void* value);
    void* value;

    friend std::istream& operator>>(std::istream& stream, const Extraction& extraction) {
        if (!extraction.extract(stream, extraction.value)) {
            stream.setstate(std::ios::failbit);
        }
        return stream;
    }
};

std::string typeName(std::string_view name) {
    if (!name.empty() && name.front() == '*') {
        name.remove_prefix(1);
    }
    return boost::core::demangle(std::string(name).c_str());
}

// A conversion may fail inside an extraction operator that itself casts; the error then names the types of
// that cast.
template <class S, class Convert>
void convertOrThrow(const S& value, const std::type_info& target, Convert convert) {
    try {
        if (!convert(value)) {
            throw boost::bad_lexical_cast(typeid(S), target);
        }
    } catch (const boost::bad_lexical_cast& error) {
        throw bad_objstream_cast<S>(value, error.source_type().name(), error.target_type().name());
    }
}

}  // namespace

struct object::Map {
    std::map<std::string, object> entries;
};

struct object::Array {
    std::vector<object> elements;
};

namespace {

// Not by the variant's own copying: libstdc++ takes a variant with a string for one that always has a value,
// and destroys what is not there when there is no memory for the copy.
object::Scalar copyOf(const object::Scalar& scalar) {
    return std::visit([](auto value) { return object::Scalar(std::move(value)); }, scalar);
}

}  // namespace

template <class S>
bad_objstream_cast<S>::bad_objstream_cast(const S& value, std::string_view sourceType,
                                          std::string_view targetType)
    : mMessage(fmt::format("Failed to convert object with value {} from type {} to type {}", value,
                           typeName(sourceType), typeName(targetType))) {}

template <class S>
const char* bad_objstream_cast<S>::what() const noexcept {
    return mMessage.c_str();
}

template class bad_objstream_cast<std::string>;
template class bad_objstream_cast<long long>;
template class bad_objstream_cast<int>;
template class bad_objstream_cast<bool>;
template class bad_objstream_cast<double>;

object::object() noexcept = default;
object::object(const std::string& value) : mContent(Scalar(value)) {}
object::object(const char* value) : object(std::string(value)) {}
object::object(int value) : mContent(Scalar(value)) {}
object::object(bool value) : mContent(Scalar(value)) {}
object::object(double value) : mContent(Scalar(value)) {}
object::object(long long value) : mContent(Scalar(value)) {}
object::object(long value) : object(static_cast<long long>(value)) {}

object object::map() {
    object made;
    made.mContent = std::make_unique<Map>();
    return made;
}

object object::array() {
    object made;
    made.mContent = std::make_unique<Array>();
    return made;
}

object::object(const object& other) {
    switch (other.kind()) {
    case Kind::Nothing:
        break;
    case Kind::Scalar:
        mContent = copyOf(*other.scalar());
        break;
    case Kind::Map:
        mContent = std::make_unique<Map>(*std::get<std::unique_ptr<Map>>(other.mContent));
        break;
    case Kind::Array:
        mContent = std::make_unique<Array>(*std::get<std::unique_ptr<Array>>(other.mContent));
        break;
    }
}

// NOLINTNEXTLINE(bugprone-exception-escape): no alternative throws when it is moved.
object::object(object&& other) noexcept : mContent(std::exchange(other.mContent, std::monostate())) {}

object& object::operator=(const object& other) {
    return *this = object(other);
}

object& object::operator=(object&& other) noexcept {
    // The new content may be part of the old content, so it is moved out before the old content is
    // destroyed.
    mContent = std::exchange(other.mContent, std::monostate());
    return *this;
}

object::~object() = default;

object::Kind object::kind() const noexcept {
    return static_cast<Kind>(mContent.index());
}

bool object::empty() const noexcept {
    return kind() == Kind::Nothing;
}

object& object::operator[](const std::string& key) {
    if (empty()) {
        mContent = std::make_unique<Map>();
    }
    if (kind() != Kind::Map) {
        throw std::logic_error(
            fmt::format("objstream::object: \"{}\" is asked of an object that is no map", key));
    }
    return std::get<std::unique_ptr<Map>>(mContent)->entries[key];
}

const object& object::operator[](const std::string& key) const {
    static const object nothing;
    if (kind() != Kind::Map) {
        return nothing;
    }
    const auto& entries = std::get<std::unique_ptr<Map>>(mContent)->entries;
    const auto found = entries.find(key);
    return found != entries.end() ? found->second : nothing;
}

bool object::hasKey(const std::string& key) const {
    return kind() == Kind::Map && std::get<std::unique_ptr<Map>>(mContent)->entries.count(key) != 0;
}

void object::for_each_kv(const std::function<bool(const std::string&, const object&)>& visit) const {
    if (kind() != Kind::Map) {
        return;
    }
    for (const auto& [key, value] : std::get<std::unique_ptr<Map>>(mContent)->entries) {
        if (!visit(key, value)) {
            return;
        }
    }
}

void object::append(object value) {
    if (empty()) {
        mContent = std::make_unique<Array>();
    }
    if (kind() != Kind::Array) {
        throw std::logic_error("objstream::object: something is appended to an object that is no array");
    }
    std::get<std::unique_ptr<Array>>(mContent)->elements.push_back(std::move(value));
}

std::size_t object::size() const noexcept {
    switch (kind()) {
    case Kind::Map:
        return std::get<std::unique_ptr<Map>>(mContent)->entries.size();
    case Kind::Array:
        return std::get<std::unique_ptr<Array>>(mContent)->elements.size();
    default:
        return 0;
    }
}

const object& object::at(std::size_t index) const {
    if (kind() != Kind::Array || index >= size()) {
        throw std::out_of_range(fmt::format("objstream::object: there is no element {}", index));
    }
    return std::get<std::unique_ptr<Array>>(mContent)->elements[index];
}

const object::Scalar* object::scalar() const noexcept {
    return std::get_if<Scalar>(&mContent);
}

bool operator==(const object& a, const object& b) {
    if (a.kind() != b.kind()) {
        return false;
    }
    switch (a.kind()) {
    case object::Kind::Scalar:
        return *a.scalar() == *b.scalar();
    case object::Kind::Map:
        return std::get<std::unique_ptr<object::Map>>(a.mContent)->entries ==
               std::get<std::unique_ptr<object::Map>>(b.mContent)->entries;
    case object::Kind::Array:
        return std::get<std::unique_ptr<object::Array>>(a.mContent)->elements ==
               std::get<std::unique_ptr<object::Array>>(b.mContent)->elements;
    default:
        return true;
    }
}

template <class T>
T object::convertToBuiltIn(const Scalar& held) {
    T result{};
    std::visit(
        [&result](const auto& value) {
            convertOrThrow(value, typeid(T), [&result](const auto& source) {
                using Source = std::decay_t<decltype(source)>;
                if constexpr (std::is_unsigned_v<T> && std::is_same_v<Source, long long>) {
                    // Boost negates this value in a conversion to an unsigned type, which overflows. It
                    // reads the text correctly.
                    if (source == std::numeric_limits<long long>::min()) {
                        return boost::conversion::try_lexical_convert(std::to_string(source), result);
                    }
                }
                return boost::conversion::try_lexical_convert(source, result);
            });
        },
        held);
    return result;
}

void object::convertByExtraction(const Scalar& held, const std::type_info& target, Extract extract,
                                 void* value) {
    Extraction extraction{extract, value};
    std::visit(
        [&target, &extraction](const auto& source) {
            convertOrThrow(source, target, [&extraction](const auto& from) {
                return boost::conversion::try_lexical_convert(from, extraction);
            });
        },
        held);
}

template OBJSTREAM_API std::string object::convertToBuiltIn<std::string>(const Scalar& held);
template OBJSTREAM_API bool object::convertToBuiltIn<bool>(const Scalar& held);
template OBJSTREAM_API char object::convertToBuiltIn<char>(const Scalar& held);
template OBJSTREAM_API signed char object::convertToBuiltIn<signed char>(const Scalar& held);
template OBJSTREAM_API unsigned char object::convertToBuiltIn<unsigned char>(const Scalar& held);
template OBJSTREAM_API short object::convertToBuiltIn<short>(const Scalar& held);
template OBJSTREAM_API unsigned short object::convertToBuiltIn<unsigned short>(const Scalar& held);
template OBJSTREAM_API int object::convertToBuiltIn<int>(const Scalar& held);
template OBJSTREAM_API unsigned object::convertToBuiltIn<unsigned>(const Scalar& held);
template OBJSTREAM_API long object::convertToBuiltIn<long>(const Scalar& held);
template OBJSTREAM_API unsigned long object::convertToBuiltIn<unsigned long>(const Scalar& held);
template OBJSTREAM_API long long object::convertToBuiltIn<long long>(const Scalar& held);
template OBJSTREAM_API unsigned long long object::convertToBuiltIn<unsigned long long>(const Scalar& held);
template OBJSTREAM_API float object::convertToBuiltIn<float>(const Scalar& held);
template OBJSTREAM_API double object::convertToBuiltIn<double>(const Scalar& held);
template OBJSTREAM_API long double object::convertToBuiltIn<long double>(const Scalar& held);

}  // namespace objstream
