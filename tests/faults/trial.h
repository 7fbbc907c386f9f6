#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "faults/scenario.h"

namespace vidorra::test {

enum class Outcome {
    /// The scenario took fewer allocations.
    NotReached,
    /// What it gives without a fault.
    Same,
    /// An exception that the library documents for a shortage.
    Exception,
    /// Another result, and a line in the log at level 1 or 2 that says so.
    Loss,
    /// An exception in a thread of the library, which ends the process, as is documented.
    ThreadEnds,
    /// A crash in the very call of FFmpeg in which the allocation failed.
    FFmpegCrash,
    /// A crash or another result after a call of FFmpeg that said nothing of the shortage in it, or an object
    /// that goes on failing as if by an error of another kind, which is what that call gave.
    FFmpegSilence,
    // The others are faults of the library.
    Crash,
    Hang,
    /// Another result without a word.
    Different,
    /// An exception of a kind that is not documented.
    WrongException,
    /// Afterwards, with memory, the same objects fail or give another result.
    DifferentAfterwards,
};

inline constexpr Outcome kFirstFault = Outcome::Crash;
inline constexpr std::array kOutcomeNames = {"not reached",
                                             "same",
                                             "exception",
                                             "loss that is logged",
                                             "thread ends",
                                             "crash inside FFmpeg",
                                             "silence of FFmpeg",
                                             "crash",
                                             "hang",
                                             "different result",
                                             "undocumented exception",
                                             "different afterwards"};

/// What is the same in every run without a fault.
struct Reference {
    long allocations = 0;
    std::uint64_t first = 0;
    std::uint64_t again = 0;
};

struct Trial {
    Outcome outcome = Outcome::NotReached;
    /// The text of the exception, if any.
    std::string text;
    /// The functions that were active when the allocation failed and, where it did, when the process crashed.
    std::vector<std::string> failureStack;
    std::vector<std::string> crashStack;
};

/// Runs a scenario without a fault, in a process of its own. Throws std::runtime_error when that fails or two
/// runs differ.
Reference referenceOf(const NamedScenario& scenario);

/// Runs it in a process of its own with memory for as many allocations as `succeeding`, and none for the
/// next.
Trial tryPoint(const NamedScenario& scenario, const Reference& reference, long succeeding);

/// The same in this process and without any handler, for a debugger.
void runHere(const NamedScenario& scenario, long succeeding);

}  // namespace vidorra::test
