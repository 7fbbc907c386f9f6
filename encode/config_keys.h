#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

#include "objstream/object.h"

namespace vidorra {

/// Logs each key of a configuration that is not among the known ones, with the known one that is most like
/// it, at level 2. An encoder ignores such keys. `logName` begins the lines.
void logUnknownKeys(const objstream::object& config, std::initializer_list<std::string_view> known,
                    const std::string& logName);

}  // namespace vidorra
