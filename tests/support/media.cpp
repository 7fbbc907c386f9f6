#include "support/media.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <sstream>
#include <stdexcept>

#include "support/process.h"

namespace vidorra::test {
namespace fs = std::filesystem;
namespace {

// Held while a file is made, so that concurrent test processes make it once.
class FolderLock {
public:
    explicit FolderLock(const fs::path& folder)
        : mDescriptor(open((folder / ".lock").c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0644)) {
        if (mDescriptor < 0 || flock(mDescriptor, LOCK_EX) != 0) {
            throw std::runtime_error("cannot lock " + folder.string());
        }
    }
    FolderLock(const FolderLock&) = delete;
    FolderLock& operator=(const FolderLock&) = delete;
    ~FolderLock() { close(mDescriptor); }

private:
    int mDescriptor;
};

// Removed, with its content, when the process ends.
struct TemporaryFolder {
    fs::path path;
    TemporaryFolder() {
        std::string pattern = (fs::temp_directory_path() / "vidorra-test-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("no temporary folder");
        }
        path = pattern;
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        fs::remove_all(path, ignored);
    }
};

}  // namespace

fs::path mediaFile(const std::string& name, const std::vector<std::string>& arguments) {
    std::string key = name;
    for (const std::string& argument : arguments) {
        key += '\0' + argument;
    }
    const fs::path base = VIDORRA_TEST_MEDIA_DIR;
    const fs::path folder = base / fmt::format("{:016x}", std::hash<std::string>()(key));
    fs::create_directories(base);
    const FolderLock lock(base);
    if (!fs::exists(folder)) {
        // The folder gets its name last, so when it exists the file is complete.
        const fs::path unfinished = folder.string() + ".unfinished";
        fs::remove_all(unfinished);
        fs::create_directories(unfinished);
        std::vector<std::string> command = {"ffmpeg", "-hide_banner", "-loglevel", "error", "-nostdin", "-y"};
        command.insert(command.end(), arguments.begin(), arguments.end());
        command.push_back((unfinished / name).string());
        run(command);
        fs::rename(unfinished, folder);
    }
    return folder / name;
}

fs::path temporaryFolder() {
    static const TemporaryFolder folder;
    return folder.path;
}

fs::path temporaryFile(const std::string& name, const std::string& content) {
    fs::path path = temporaryFolder() / name;
    std::ofstream stream(path, std::ios::binary);
    stream << content;
    stream.close();
    if (!stream) {
        throw std::runtime_error("cannot write " + path.string());
    }
    return path;
}

std::string fileContent(const fs::path& path) {
    std::ifstream stream(path, std::ios::binary);
    if (!stream) {
        throw std::runtime_error("cannot read " + path.string());
    }
    std::ostringstream content;
    content << stream.rdbuf();
    return content.str();
}

}  // namespace vidorra::test
