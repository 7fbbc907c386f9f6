// Tells what the library does with a file.
//
//     vidorra-inspect FILE            for people
//     vidorra-inspect --json FILE     one JSON object, described in inspect/file_report.h

#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "inspect/file_report.h"
#include "logger/logger.h"
#include "objstream/json.h"

extern "C" {
#include <libavutil/log.h>
}

int main(int argc, char** argv) try {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    const bool json = !arguments.empty() && arguments.front() == "--json";
    if (arguments.size() != (json ? 2U : 1U) || arguments.back() == "--help") {
        std::cerr << "usage: vidorra-inspect [--json] FILE\n";
        return 2;
    }
    av_log_set_level(AV_LOG_QUIET);
    logger::setSink([](logger::Level, std::string_view) {});
    const objstream::object report = vidorra::inspect::reportOf(arguments.back());
    std::cout << (json ? objstream::toJson(report, objstream::JsonLayout::Pretty)
                       : vidorra::inspect::textOf(report));
    return 0;
} catch (const std::exception& error) {
    std::cerr << "vidorra-inspect: " << error.what() << '\n';
    return 1;
}
