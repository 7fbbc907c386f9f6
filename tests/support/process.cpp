#include "support/process.h"

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace vidorra::test {
namespace {

std::string readAll(int descriptor) {
    std::string text;
    std::array<char, 65536> buffer{};
    for (ssize_t count; (count = read(descriptor, buffer.data(), buffer.size())) > 0;) {
        text.append(buffer.data(), static_cast<std::size_t>(count));
    }
    close(descriptor);
    return text;
}

}  // namespace

std::string run(const std::vector<std::string>& command) {
    std::array<int, 2> out{};
    std::array<int, 2> err{};
    if (pipe(out.data()) != 0 || pipe(err.data()) != 0) {
        throw std::runtime_error("no pipe for " + command.front());
    }
    const pid_t child = fork();
    if (child == 0) {
        dup2(out[1], STDOUT_FILENO);
        dup2(err[1], STDERR_FILENO);
        for (int descriptor : {out[0], out[1], err[0], err[1]}) {
            close(descriptor);
        }
        std::vector<char*> arguments;
        for (const std::string& argument : command) {
            arguments.push_back(const_cast<char*>(argument.c_str()));
        }
        arguments.push_back(nullptr);
        execvp(arguments[0], arguments.data());
        _exit(127);
    }
    close(out[1]);
    close(err[1]);
    std::string errors;
    std::thread reader([&] { errors = readAll(err[0]); });
    std::string output = readAll(out[0]);
    reader.join();
    int status = 0;
    waitpid(child, &status, 0);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        throw std::runtime_error(command.front() + " failed: " + errors);
    }
    return output;
}

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> result;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        result.push_back(line);
    }
    return result;
}

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> result;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, separator);) {
        result.push_back(part);
    }
    return result;
}

}  // namespace vidorra::test
