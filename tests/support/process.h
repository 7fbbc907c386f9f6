#pragma once

#include <string>
#include <vector>

namespace vidorra::test {

/// Runs a program, found through PATH, and returns its stdout. Throws std::runtime_error with its stderr
/// when it does not exit with 0.
std::string run(const std::vector<std::string>& command);

/// The lines of a text, without their ends.
std::vector<std::string> lines(const std::string& text);

/// The parts of a text between separators.
std::vector<std::string> split(const std::string& text, char separator);

}  // namespace vidorra::test
