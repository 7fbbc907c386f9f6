#pragma once

#include <iosfwd>

#include "options.h"
#include "play_file.h"

namespace demo {

/// Reads the whole file, decodes its video, reports what it saw, and returns the facts that playing needs.
/// Throws std::runtime_error for a file that cannot be read, or whose video gives no frame.
FileFacts decodeFile(const Options& options, std::ostream& output);

}  // namespace demo
