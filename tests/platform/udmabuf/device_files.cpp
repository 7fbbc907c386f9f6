#include "platform/udmabuf/device_files.h"

#include <fstream>
#include <ostream>
#include <stdexcept>
#include <utility>

#include "platform/udmabuf/src/udmabuf_paths.h"
#include "support/media.h"

namespace fs = std::filesystem;

namespace udmabuf {

std::string deviceFolder() {
    return vidorra::test::temporaryFolder() / "dev";
}

std::string controlFolder() {
    return vidorra::test::temporaryFolder() / "class";
}

}  // namespace udmabuf

namespace vidorra::test {
namespace {

void writeFile(const fs::path& path, const std::string& content) {
    std::ofstream file(path, std::ios::binary);
    file << content;
    if (!file.flush()) {
        throw std::runtime_error("cannot write " + path.string());
    }
}

}  // namespace

DeviceFiles::DeviceFiles(std::string name, std::uint64_t size)
    : DeviceFiles(std::move(name), size, std::to_string(size) + "\n") {}

DeviceFiles::DeviceFiles(std::string name, std::uint64_t size, const std::string& sizeText)
    : mName(std::move(name)) {
    fs::create_directories(udmabuf::deviceFolder());
    fs::create_directories(control(""));
    writeFile(device(), "");
    fs::resize_file(device(), size);
    writeFile(control("size"), sizeText);
    writeFile(control("sync_for_device"), "");
}

DeviceFiles::~DeviceFiles() {
    fs::remove_all(device());
    fs::remove_all(control(""));
}

fs::path DeviceFiles::device() const {
    return fs::path(udmabuf::deviceFolder()) / mName;
}

fs::path DeviceFiles::control(const std::string& file) const {
    return fs::path(udmabuf::controlFolder()) / mName / file;
}

std::vector<SyncCommand> DeviceFiles::syncCommands() const {
    // A file keeps what the driver would have received with each write.
    constexpr std::size_t kLength = 18;
    const std::string text = fileContent(control("sync_for_device"));
    if (text.size() % kLength != 0) {
        throw std::runtime_error("broken command in: " + text);
    }
    std::vector<SyncCommand> result;
    for (std::size_t i = 0; i < text.size(); i += kLength) {
        std::size_t end = 0;
        const std::string word = text.substr(i, kLength);
        const std::uint64_t value = std::stoull(word, &end, 0);
        if (end != kLength || word.compare(0, 2, "0x") != 0) {
            throw std::runtime_error("no command: " + word);
        }
        result.push_back(
            {value >> 32, value & 0xFFFFFFF0, static_cast<int>(value >> 2 & 3), (value & 1) != 0});
    }
    return result;
}

void PrintTo(const SyncCommand& command, std::ostream* stream) {
    *stream << "{offset " << command.offset << ", size " << command.size << ", direction "
            << command.direction << (command.start ? ", start}" : "}");
}

}  // namespace vidorra::test
