#include "support/report.h"

#include <errno.h>
#include <fmt/format.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <string_view>
#include <thread>

extern "C" {
#include <libavutil/avutil.h>
}

namespace vidorra::bench {
namespace {

bool isShortRun = false;

// The first value of a key of /proc/cpuinfo.
std::string cpuInfo(std::string_view key) {
    std::ifstream file("/proc/cpuinfo");
    for (std::string line; std::getline(file, line);) {
        const std::size_t colon = line.find(": ");
        const std::string name = line.substr(0, line.find_last_not_of("\t :", line.find(':')) + 1);
        if (name == key && colon != std::string::npos) {
            return line.substr(colon + 2);
        }
    }
    return "unknown";
}

// In a virtual machine several processors can have the same name; family and model distinguish them.
std::string processor() {
    return fmt::format("{} (family {}, model {})", cpuInfo("model name"), cpuInfo("cpu family"),
                       cpuInfo("model"));
}

// The caches of the first CPU, such as "L1 Data 32K, L2 Unified 512K".
std::string caches() {
    std::string result;
    for (int i = 0;; ++i) {
        const std::string folder = fmt::format("/sys/devices/system/cpu/cpu0/cache/index{}/", i);
        std::string level;
        std::string type;
        std::string size;
        if (!(std::ifstream(folder + "level") >> level) || !(std::ifstream(folder + "type") >> type) ||
            !(std::ifstream(folder + "size") >> size)) {
            return result.empty() ? "unknown" : result;
        }
        if (type != "Instruction") {
            result += fmt::format("{}L{} {} {}", result.empty() ? "" : ", ", level, type, size);
        }
    }
}

// The instruction sets that the kernels are written for.
std::string instructions() {
#if defined(__x86_64__)
    if (__builtin_cpu_supports("avx512bw") != 0 && __builtin_cpu_supports("avx512vl") != 0) {
        return "AVX-512";
    }
    return __builtin_cpu_supports("avx2") != 0 ? "AVX2" : "SSE2";
#else
    return "baseline vectors";
#endif
}

std::string compiler() {
#if defined(__clang__)
    return fmt::format("clang {}", __clang_version__);
#else
    return fmt::format("GCC {}", __VERSION__);
#endif
}

double load() {
    double average = 0;
    return getloadavg(&average, 1) == 1 ? average : 0;
}

void append(std::string_view lines) {
    const char* path = std::getenv("VIDORRA_BENCHMARK_RESULTS");
    if (path == nullptr || *path == '\0') {
        return;
    }
    std::ofstream file(path, std::ios::app);
    static const bool aboutIsWritten = [&file] {
        file << fmt::format("about\tprocessor\t{}, {} CPUs, {}\n", processor(),
                            std::thread::hardware_concurrency(), instructions())
             << fmt::format("about\tcaches\t{}\n", caches())
             << fmt::format("about\tcompiler\t{}\n", compiler())
             << fmt::format("about\tFFmpeg\t{}\n", av_version_info());
        return true;
    }();
    static_cast<void>(aboutIsWritten);
    file << lines;
    if (!file.flush()) {
        throw std::runtime_error(fmt::format("cannot write {}", path));
    }
}

std::string number(double value) {
    return fmt::format("{:.{}f}", value, value < 10 ? 3 : value < 1000 ? 2 : 0);
}

std::string_view boundName(const Aim& aim) {
    return aim.bound == Aim::Bound::AtLeast ? "at least" : "at most";
}

}  // namespace

std::string verdict(double value, const std::optional<Aim>& aim) {
    if (!aim || isShortRun) {
        return "";
    }
    const auto holds = [&](double bound) {
        return aim->bound == Aim::Bound::AtLeast ? value >= bound : value <= bound;
    };
    if (holds(aim->value)) {
        return "reached";
    }
    return aim->floor && !holds(*aim->floor) ? "below the floor" : "missed";
}

void report(const Figure& figure) {
    const std::optional<Aim>& aim = figure.aim;
    const std::string judged = verdict(figure.value, aim);
    std::string row = fmt::format("{:<44} {:<50} {:>8} {:<3}", figure.group, figure.name,
                                  number(figure.value), figure.unit);
    if (aim) {
        const char* remark = judged == "missed"            ? "MISSED"
                             : judged == "below the floor" ? "BELOW THE FLOOR"
                                                           : judged.c_str();
        row += fmt::format(" {:>8} {:<5} {:<12} {}", boundName(*aim), fmt::format("{:g}", aim->value),
                           aim->floor ? fmt::format("floor {:g}", *aim->floor) : "", remark);
    }
    row.erase(row.find_last_not_of(' ') + 1);
    std::printf("%s\n", row.c_str());
    std::fflush(stdout);
    append(fmt::format("figure\t{}\t{}\t{}\t{:.6g}\t{}\t{}\t{}\t{}\t{}\t{:.1f}\n",
                       program_invocation_short_name, figure.group, figure.name, figure.value, figure.unit,
                       aim ? boundName(*aim) : "", aim ? fmt::format("{:g}", aim->value) : "",
                       aim && aim->floor ? fmt::format("{:g}", *aim->floor) : "", judged, load()));
}

void reportShortRun() {
    isShortRun = true;
    std::printf("A short run: its figures say nothing.\n");
    append("about\tshort run\tits figures say nothing\n");
}

}  // namespace vidorra::bench
