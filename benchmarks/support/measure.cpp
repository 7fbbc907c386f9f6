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

// Keeps the calling thread, and threads that it starts, on one CPU during the object's lifetime.
class PinToThisCpu {
public:
    PinToThisCpu() {
        cpu_set_t set;
        CPU_ZERO(&set);
        CPU_SET(sched_getcpu(), &set);
        if (sched_getaffinity(0, sizeof(mBefore), &mBefore) != 0 ||
            sched_setaffinity(0, sizeof(set), &set) != 0) {
            throw std::runtime_error("cannot stay on one CPU");
        }
    }
    PinToThisCpu(const PinToThisCpu&) = delete;
    PinToThisCpu& operator=(const PinToThisCpu&) = delete;
    ~PinToThisCpu() { sched_setaffinity(0, sizeof(mBefore), &mBefore); }

private:
    cpu_set_t mBefore{};
};

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

double timeIn(const Times& times, Comparison::Column column) {
    return column == Comparison::Column::Cpu ? times.cpu : times.wall;
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

Options parseOptions(int argc, char** argv, int repetitions) {
    Options options{repetitions};
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        const char* value = i + 1 < argc ? argv[i + 1] : "";
        if (argument == "--short") {
            options.repetitions = 2;
            options.shortRun = true;
        } else if (argument == "--repetitions" && std::atoi(value) > 0) {
            options.repetitions = std::atoi(value);
            ++i;
        } else if (argument == "--only" && *value != '\0') {
            options.only = value;
            ++i;
        } else {
            std::fprintf(stderr, "usage: %s [--short] [--repetitions N] [--only TEXT]\n", argv[0]);
            std::exit(2);
        }
    }
    if (options.shortRun) {
        reportShortRun();
    }
    return options;
}

void Comparison::add(std::string name, std::function<void(Stopwatch&)> run) {
    mCompetitors.push_back({std::move(name), std::move(run)});
}

void Comparison::run(int repetitions, Pinning pinning) {
    std::optional<PinToThisCpu> pin;
    if (pinning == Pinning::OneCpu) {
        pin.emplace();
    }
    mTimes.assign(mCompetitors.size(), {});
    std::vector<std::size_t> order(mCompetitors.size());
    std::iota(order.begin(), order.end(), 0);
    std::mt19937 random(std::random_device{}());
    // Starts at -1, since the first round is a warm-up.
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

double Comparison::seconds(const std::string& name, Column column) const {
    std::vector<double> values;
    for (const Times& times : timesOf(name)) {
        values.push_back(timeIn(times, column));
    }
    return median(values);
}

double Comparison::ratio(const std::string& name, const std::string& reference, Column column) const {
    const std::vector<Times>& ours = timesOf(name);
    const std::vector<Times>& theirs = timesOf(reference);
    std::vector<double> values;
    for (std::size_t i = 0; i < ours.size(); ++i) {
        values.push_back(timeIn(ours[i], column) / timeIn(theirs[i], column));
    }
    return median(values);
}

void Comparison::printTable() const {
    std::printf("\n%s, medians of %zu\n", mTitle.c_str(), mTimes.at(0).size());
    std::printf("  %-44s %10s %10s\n", "", "CPU ms", "wall ms");
    for (const Competitor& competitor : mCompetitors) {
        std::printf("  %-44s %10.3f %10.3f\n", competitor.name.c_str(), seconds(competitor.name) * 1e3,
                    seconds(competitor.name, Column::Wall) * 1e3);
    }
}

void Comparison::reportRatio(const std::string& name, const std::string& reference, std::optional<Aim> aim,
                             Column column) const {
    const std::string what = name + " / " + reference + (column == Column::Cpu ? ", CPU" : ", wall");
    report({mTitle, what, ratio(name, reference, column), "", aim});
}

void Comparison::reportTimes(const std::string& name, const std::string& peer, std::optional<Aim> aim) const {
    report({mTitle, "times " + peer, ratio(peer, name), "", aim});
}

const std::vector<Times>& Comparison::timesOf(const std::string& name) const {
    for (std::size_t i = 0; i < mCompetitors.size(); ++i) {
        if (mCompetitors[i].name == name) {
            return mTimes[i];
        }
    }
    throw std::invalid_argument("no competitor " + name);
}

}  // namespace vidorra::bench
