#pragma once

#include <iosfwd>
#include <map>
#include <string>

#include "vidorra/core/export.h"

namespace vidorra {

/// The strings that travel with a frame, ordered by key. A key may be empty.
///
///     frame.metadata().addValue("source", "camera 1");
///
/// Threads: one at a time.
class VIDORRA_API Metadata {
public:
    /// Stores a value under a key and replaces an existing one. A bool is stored as the text "true" or
    /// "false".
    void addValue(std::string key, std::string value);
    void addValue(std::string key, bool value);
    /// Without this overload a literal would convert to bool.
    void addValue(std::string key, const char* value);

    [[nodiscard]] bool hasKey(std::string key) const;

    /// The value of a key, empty when the key is absent; hasKey() tells the two cases apart.
    [[nodiscard]] std::string getValue(std::string key) const;

    /// The same; it never inserts anything.
    [[nodiscard]] std::string operator[](std::string key) const;

    /// Removes an entry, if there is one.
    void removeValue(std::string key);

private:
    friend VIDORRA_API std::ostream& operator<<(std::ostream& stream, const Metadata& metadata);

    std::map<std::string, std::string> mValues;
};

/// Writes the entries as "key: value", with a line end and a flush between entries but not after the last.
VIDORRA_API std::ostream& operator<<(std::ostream& stream, const Metadata& metadata);

}  // namespace vidorra
