#pragma once

#include <iosfwd>

#include "options.h"

namespace demo {

/// Reads the whole file, decodes its video and writes what it saw. Throws std::runtime_error for a file that
/// cannot be read, or whose video gives no frame.
void decodeFile(const Options& options, std::ostream& output);

}  // namespace demo
