#include "faults/trial.h"

#include <cxxabi.h>
#include <dlfcn.h>
#include <execinfo.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <new>
#include <stdexcept>
#include <typeinfo>

#include "faults/ffmpeg_calls.h"
#include "logger/logger.h"
#include "support/failing_heap.h"

namespace vidorra::test {
namespace {

constexpr unsigned kSecondsToHang = 30;

struct Stack {
    int depth;
    std::array<void*, 60> addresses;
};

// What the child tells, in memory that both processes share, so that it is there after a crash too.
struct Report {
    enum class Stage { First, Again, Done };

    Stage stage;
    bool hasFailed;
    bool hasLogged;
    bool hasThrown;
    bool isDocumented;
    bool hasThreadEnded;
    bool hasTerminated;
    // Of FFmpeg's call in which the allocation failed: whether the crash is in it too, and what it told.
    bool hasCrashed;
    Told told;
    long allocations;
    std::uint64_t first;
    std::uint64_t again;
    long failedCall;
    Stack failure;
    Stack crash;
    std::array<char, 300> text;
};

Report* report = nullptr;
pthread_t mainThread;

void noteFailure() {
    // Its workers are threads of their own.
    if (isInFFmpegCall() || pthread_equal(pthread_self(), mainThread) == 0) {
        noteShortageInFFmpeg();
        report->failedCall = currentFFmpegCall();
    }
    report->failure.depth =
        backtrace(report->failure.addresses.data(), static_cast<int>(report->failure.addresses.size()));
}

void noteCrash(int signal) {
    report->hasCrashed =
        report->failedCall != 0 && report->failedCall == currentFFmpegCall() && !report->hasTerminated;
    report->told = toldOfShortage();
    report->crash.depth =
        backtrace(report->crash.addresses.data(), static_cast<int>(report->crash.addresses.size()));
    std::signal(signal, SIG_DFL);
    raise(signal);
}

void noteText(const char* text) {
    std::strncpy(report->text.data(), text, report->text.size() - 1);
}

// Threads of the library end the process with what they cannot give to a caller.
[[noreturn]] void terminateThread() {
    if (pthread_equal(pthread_self(), mainThread) == 0 && std::current_exception() != nullptr) {
        report->hasThreadEnded = true;
        _exit(0);
    }
    report->hasTerminated = true;
    std::abort();
}

void catchCrashes() {
    static std::array<char, 1 << 16> stack;
    stack_t alternative{};
    alternative.ss_sp = stack.data();
    alternative.ss_size = stack.size();
    sigaltstack(&alternative, nullptr);
    struct sigaction action {};
    action.sa_handler = noteCrash;
    action.sa_flags = SA_ONSTACK;
    for (const int signal : {SIGSEGV, SIGBUS, SIGABRT, SIGFPE, SIGILL}) {
        sigaction(signal, &action, nullptr);
    }
    mainThread = pthread_self();
    std::set_terminate(terminateThread);
    alarm(kSecondsToHang);
}

void silence() {
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nowhere, STDOUT_FILENO);
    dup2(nowhere, STDERR_FILENO);
    logger::setLevel(logger::Level::Debug);
    logger::setSink([](logger::Level level, std::string_view) {
        if (level <= logger::Level::Warning) {
            report->hasLogged = true;
        }
    });
}

// Runs a function and notes the exception that it ends with.
template <class Function>
void noteException(Function function) {
    try {
        function();
        return;
    } catch (const std::bad_alloc& error) {
        report->isDocumented = true;
        noteText(error.what());
    } catch (const std::runtime_error& error) {
        report->isDocumented = true;
        noteText(error.what());
    } catch (const std::exception& error) {
        report->isDocumented = false;
        noteText((std::string(typeid(error).name()) + ": " + error.what()).c_str());
    }
    report->hasThrown = true;
}

void runBoth(Scenario& scenario, long succeeding) {
    noteException([&] {
        const FailingHeap heap(succeeding, noteFailure);
        // Also when the scenario throws.
        struct Note {
            const FailingHeap& heap;
            ~Note() {
                report->allocations = heap.allocations();
                report->hasFailed = heap.hasFailed();
                report->told = toldOfShortage();
            }
        } const note{heap};
        report->first = scenario.run();
    });
    report->stage = Report::Stage::Again;
    report->again = scenario.runAgain();
}

[[noreturn]] void runChild(std::unique_ptr<Scenario> scenario, long succeeding) {
    catchCrashes();
    silence();
    try {
        runBoth(*scenario, succeeding);
        scenario.reset();
        report->stage = Report::Stage::Done;
    } catch (const std::exception& error) {
        noteText(error.what());
    }
    _exit(0);
}

// How the child ended, as waitpid tells.
int runInChild(const NamedScenario& scenario, long succeeding) {
    if (report == nullptr) {
        void* const shared =
            mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (shared == MAP_FAILED) {
            throw std::runtime_error("no memory to share");
        }
        report = static_cast<Report*>(shared);
        // It loads a library at its first call.
        std::array<void*, 1> address{};
        backtrace(address.data(), 1);
    }
    *report = Report();
    std::unique_ptr<Scenario> made = scenario.make();
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child < 0) {
        throw std::runtime_error("cannot start a process");
    }
    if (child == 0) {
        runChild(std::move(made), succeeding);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return status;
}

// The addresses hold for this process too, which the child is a copy of.
std::vector<std::string> namesOf(const Stack& stack) {
    std::vector<std::string> names;
    for (int i = 0; i < stack.depth; ++i) {
        Dl_info info{};
        if (dladdr(stack.addresses[i], &info) == 0 || info.dli_fname == nullptr) {
            names.emplace_back("?");
            continue;
        }
        const auto offset =
            static_cast<const char*>(stack.addresses[i]) - static_cast<const char*>(info.dli_fbase);
        std::array<char, 300> text{};
        int status = -1;
        const std::unique_ptr<char, void (*)(void*)> plain(
            info.dli_sname != nullptr ? abi::__cxa_demangle(info.dli_sname, nullptr, nullptr, &status)
                                      : nullptr,
            std::free);
        const char* const symbol = status == 0 ? plain.get() : info.dli_sname;
        std::snprintf(text.data(), text.size(), "%s+0x%tx %s",
                      std::filesystem::path(info.dli_fname).filename().c_str(), offset,
                      symbol != nullptr ? symbol : "");
        names.emplace_back(text.data());
    }
    return names;
}

Outcome outcomeOf(int status, const Reference& reference) {
    if (WIFSIGNALED(status)) {
        if (WTERMSIG(status) == SIGALRM) {
            return Outcome::Hang;
        }
        return report->told == Told::Nothing ? Outcome::FFmpegSilence
               : report->hasCrashed          ? Outcome::FFmpegCrash
                                             : Outcome::Crash;
    }
    if (report->hasThreadEnded) {
        return Outcome::ThreadEnds;
    }
    if (report->stage != Report::Stage::Done || report->again != reference.again) {
        return report->told != Told::Shortage ? Outcome::FFmpegSilence : Outcome::DifferentAfterwards;
    }
    if (report->hasThrown) {
        return report->isDocumented ? Outcome::Exception : Outcome::WrongException;
    }
    if (!report->hasFailed) {
        return Outcome::NotReached;
    }
    if (report->first == reference.first) {
        return Outcome::Same;
    }
    return report->hasLogged               ? Outcome::Loss
           : report->told == Told::Nothing ? Outcome::FFmpegSilence
                                           : Outcome::Different;
}

}  // namespace

Reference referenceOf(const NamedScenario& scenario) {
    std::array<Reference, 2> runs;
    for (Reference& run : runs) {
        const int status = runInChild(scenario, LONG_MAX);
        if (status != 0 || report->stage != Report::Stage::Done || report->hasThrown) {
            throw std::runtime_error(std::string(scenario.name) +
                                     " fails without a fault: " + report->text.data());
        }
        run = {report->allocations, report->first, report->again};
    }
    if (runs[0].first != runs[1].first || runs[0].again != runs[1].again) {
        throw std::runtime_error(std::string(scenario.name) + " gives another result each time");
    }
    return runs[0];
}

Trial tryPoint(const NamedScenario& scenario, const Reference& reference, long succeeding) {
    const int status = runInChild(scenario, succeeding);
    Trial trial;
    trial.outcome = outcomeOf(status, reference);
    trial.text = report->text.data();
    trial.failureStack = namesOf(report->failure);
    trial.crashStack = namesOf(report->crash);
    return trial;
}

void runHere(const NamedScenario& scenario, long succeeding) {
    static Report own;
    report = &own;
    const std::unique_ptr<Scenario> made = scenario.make();
    runBoth(*made, succeeding);
    std::printf("failed: %d, exception: %s\n", own.hasFailed ? 1 : 0, own.text.data());
}

}  // namespace vidorra::test
