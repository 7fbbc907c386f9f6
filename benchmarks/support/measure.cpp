#include "support/measure.h"

#include <sched.h>
#include <sys/resource.h>
#include <time.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <numeric>
#include <random>
#include <stdexcept>
#include <string_view>

namespace vidorra::bench {
namespace {

double clockSeconds(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

double seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

Times now() {
    rusage children{};
    getrusage(RUSAGE_CHILDREN, &children);
    return {clockSeconds(CLOCK_PROCESS_CPUTIME_ID) + seconds(children.ru_utime) + seconds(children.ru_stime),
            clockSeconds(CLOCK_MONOTONIC)};
}

void pinToThisCpu() {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(sched_getcpu(), &set);
    if (sched_setaffinity(0, sizeof(set), &set) != 0) {
        std::fputs("not pinned to one CPU\n", stderr);
    }
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

template <class Function>
double medianOf(const std::vector<Times>& times, Function function) {
    std::vector<double> values;
    for (std::size_t i = 0; i < times.size(); ++i) {
        values.push_back(function(i));
    }
    return median(values);
}

}  // namespace

void Stopwatch::start() {
    mStart = now();
}

void Stopwatch::stop() {
    const Times end = now();
    mTotal.cpu += end.cpu - mStart.cpu;
    mTotal.wall += end.wall - mStart.wall;
}

Options parseOptions(int argc, char** argv) {
    Options options{15, false};
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        const int number = i + 1 < argc ? std::atoi(argv[i + 1]) : 0;
        if (argument == "--short") {
            options = {2, true};
        } else if (argument == "--repetitions" && number > 0) {
            options.repetitions = number;
            ++i;
        } else {
            std::fprintf(stderr, "usage: %s [--short] [--repetitions N]\n", argv[0]);
            std::exit(2);
        }
    }
    return options;
}

void Comparison::add(std::string name, std::function<void(Stopwatch&)> run) {
    mCompetitors.push_back({std::move(name), std::move(run)});
}

void Comparison::run(int repetitions) {
    pinToThisCpu();
    mTimes.assign(mCompetitors.size(), {});
    std::vector<std::size_t> order(mCompetitors.size());
    std::iota(order.begin(), order.end(), 0);
    std::mt19937 random(std::random_device{}());
    // From -1 on: the first round warms up.
    for (int i = -1; i < repetitions; ++i) {
        std::shuffle(order.begin(), order.end(), random);
        for (const std::size_t index : order) {
            Stopwatch stopwatch;
            mCompetitors[index].run(stopwatch);
            if (i >= 0) {
                mTimes[index].push_back(stopwatch.total());
            }
        }
    }
}

double Comparison::cpu(const std::string& name) const {
    const std::vector<Times>& times = mTimes[indexOf(name)];
    return medianOf(times, [&](std::size_t i) { return times[i].cpu; });
}

void Comparison::printTable() const {
    std::printf("\n%s, medians of %zu\n", mTitle.c_str(), mTimes.at(0).size());
    std::printf("  %-44s %10s %10s\n", "", "CPU ms", "wall ms");
    for (std::size_t index = 0; index < mCompetitors.size(); ++index) {
        const std::vector<Times>& times = mTimes[index];
        std::printf("  %-44s %10.3f %10.3f\n", mCompetitors[index].name.c_str(),
                    medianOf(times, [&](std::size_t i) { return times[i].cpu; }) * 1e3,
                    medianOf(times, [&](std::size_t i) { return times[i].wall; }) * 1e3);
    }
}

void Comparison::printRatio(const std::string& name, const std::string& reference, std::optional<double> aim,
                            Column column) const {
    const std::vector<Times>& ours = mTimes[indexOf(name)];
    const std::vector<Times>& theirs = mTimes[indexOf(reference)];
    const double cpuRatio = medianOf(ours, [&](std::size_t i) { return ours[i].cpu / theirs[i].cpu; });
    const double wallRatio = medianOf(ours, [&](std::size_t i) { return ours[i].wall / theirs[i].wall; });
    const bool cpu = column == Column::Cpu;
    const double judged = cpu ? cpuRatio : wallRatio;
    const std::string aimText = aim ? std::string("aim: ") + (cpu ? "CPU" : "wall") + " at most " +
                                          std::to_string(*aim).substr(0, 4) +
                                          (judged <= *aim ? "" : ", MISSED")
                                    : "no aim";
    std::printf("  %-44s %10.3f %10.3f   %s\n", (name + " / " + reference).c_str(), cpuRatio, wallRatio,
                aimText.c_str());
}

std::size_t Comparison::indexOf(const std::string& name) const {
    for (std::size_t i = 0; i < mCompetitors.size(); ++i) {
        if (mCompetitors[i].name == name) {
            return i;
        }
    }
    throw std::invalid_argument("no competitor " + name);
}

}  // namespace vidorra::bench
