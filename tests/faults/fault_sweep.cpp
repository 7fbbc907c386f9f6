// Lets single allocations fail in all paths through the library, each in a process of its own, and tells what
// came of it. Fails when the library crashed, hung, gave another result without a word, or an object did not
// work afterwards.
//
//     fault_sweep                        the names of the scenarios
//     fault_sweep SCENARIO POINTS        as many points as told, spread evenly; "all" for every one
//     fault_sweep all POINTS             the same in all scenarios
//     fault_sweep SCENARIO at POINT      one point in this process, for a debugger
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "faults/trial.h"

namespace vidorra::test {
namespace {

constexpr unsigned kSeed = 20;

std::vector<NamedScenario> allScenarios() {
    std::vector<NamedScenario> all;
    for (const auto& scenarios :
         {sourceScenarios(), pictureScenarios(), sampleScenarios(), processScenarios(), filterScenarios(),
          encoderScenarios(), platformScenarios()}) {
        all.insert(all.end(), scenarios.begin(), scenarios.end());
    }
    return all;
}

// One point in each of `count` stretches of equal length.
std::vector<long> pointsOf(long allocations, long count) {
    std::mt19937 random(kSeed);
    std::vector<long> points;
    if (count >= allocations) {
        count = allocations;
    }
    for (long i = 0; i < count; ++i) {
        const long begin = allocations * i / count;
        const long end = allocations * (i + 1) / count;
        points.push_back(begin + static_cast<long>(random() % static_cast<unsigned long>(end - begin)));
    }
    return points;
}

void printStack(const char* title, const std::vector<std::string>& stack) {
    if (stack.empty()) {
        return;
    }
    std::printf("    %s\n", title);
    for (const std::string& name : stack) {
        std::printf("        %s\n", name.c_str());
    }
}

// Trials with the same outcome, text and stacks are told once.
class Findings {
public:
    void add(const Trial& trial, long point) {
        std::string key = std::string(kOutcomeNames[static_cast<std::size_t>(trial.outcome)]) + trial.text;
        for (const auto* stack : {&trial.crashStack, &trial.failureStack}) {
            for (const std::string& name : *stack) {
                key += "\n" + name;
            }
        }
        Finding& finding = mFindings[key];
        finding.trial = trial;
        finding.points.push_back(point);
    }

    void print() const {
        for (const auto& [key, finding] : mFindings) {
            std::printf("  %s, %zu times, first at point %ld: %s\n",
                        kOutcomeNames[static_cast<std::size_t>(finding.trial.outcome)], finding.points.size(),
                        finding.points.front(), finding.trial.text.c_str());
            printStack("when the process crashed:", finding.trial.crashStack);
            printStack("when the allocation failed:", finding.trial.failureStack);
        }
    }

private:
    struct Finding {
        Trial trial;
        std::vector<long> points;
    };
    std::map<std::string, Finding> mFindings;
};

// Whether the library did what it promises at each of the points.
bool sweep(const NamedScenario& scenario, const std::string& wanted) {
    const Reference reference = referenceOf(scenario);
    const long count = wanted == "all" ? reference.allocations : std::stol(wanted);
    std::array<long, kOutcomeNames.size()> counts{};
    Findings findings;
    for (const long point : pointsOf(reference.allocations, count)) {
        const Trial trial = tryPoint(scenario, reference, point);
        ++counts[static_cast<std::size_t>(trial.outcome)];
        if (trial.outcome >= Outcome::FFmpegCrash) {
            findings.add(trial, point);
        }
    }
    std::printf("%.*s: %ld allocations", static_cast<int>(scenario.name.size()), scenario.name.data(),
                reference.allocations);
    bool isSound = true;
    for (std::size_t i = 0; i < counts.size(); ++i) {
        if (counts[i] > 0) {
            std::printf(", %s %ld", kOutcomeNames[i], counts[i]);
            isSound = isSound && i < static_cast<std::size_t>(kFirstFault);
        }
    }
    std::printf("\n");
    findings.print();
    std::fflush(stdout);
    return isSound;
}

int runSweep(const std::vector<std::string>& arguments) {
    bool isSound = true;
    bool isKnown = arguments.empty();
    for (const NamedScenario& scenario : allScenarios()) {
        if (arguments.empty()) {
            std::printf("%.*s\n", static_cast<int>(scenario.name.size()), scenario.name.data());
        } else if (arguments[0] == scenario.name && arguments.size() == 3) {
            runHere(scenario, std::stol(arguments[2]));
            isKnown = true;
        } else if ((arguments[0] == scenario.name || arguments[0] == "all") && arguments.size() == 2) {
            isSound = sweep(scenario, arguments[1]) && isSound;
            isKnown = true;
        }
    }
    return isSound && isKnown ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace
}  // namespace vidorra::test

int main(int count, char** arguments) {
    try {
        return vidorra::test::runSweep({arguments + 1, arguments + count});
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return EXIT_FAILURE;
    }
}
