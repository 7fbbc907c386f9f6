#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

#include "objstream/object.h"

namespace vidorra {

/// Logs each unknown key of a configuration with the most similar known key, at level 2. Encoders ignore
/// such keys. The lines begin with `logName`.
void logUnknownKeys(const objstream::object& config, std::initializer_list<std::string_view> known,
                    const std::string& logName);

}  // namespace vidorra
