#pragma once

#include <filesystem>
#include <set>
#include <string>
#include <system_error>

namespace vidorra::test {

/// The file descriptors that this process has open.
inline std::set<int> openDescriptors() {
    std::set<int> result;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        const std::filesystem::path target = std::filesystem::read_symlink(entry.path(), error);
        // The descriptor that reads this folder is closed afterwards.
        if (target.filename() != "fd") {
            result.insert(std::stoi(entry.path().filename()));
        }
    }
    return result;
}

}  // namespace vidorra::test
