#pragma once

#include <cstdint>
#include <exception>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

namespace vidorra::test {

/// One path through the library. It is constructed while there is memory and then copied with its process, so
/// the constructor starts no thread and opens nothing.
class Scenario {
public:
    Scenario() = default;
    Scenario(const Scenario&) = delete;
    Scenario& operator=(const Scenario&) = delete;
    virtual ~Scenario() = default;

    /// The path in which an allocation fails. Gives the sum of what came out, see Digest. Throws what the
    /// library throws; where a user could go on after a failure, it goes on first.
    virtual std::uint64_t run() = 0;

    /// Uses the same objects again, now with memory.
    virtual std::uint64_t runAgain() = 0;
};

struct NamedScenario {
    std::string_view name;
    std::unique_ptr<Scenario> (*make)();
};

template <class T>
std::unique_ptr<Scenario> makeScenario() {
    return std::make_unique<T>();
}

/// The scenarios, by subject.
std::vector<NamedScenario> encoderScenarios();
std::vector<NamedScenario> filterScenarios();
std::vector<NamedScenario> pictureScenarios();
std::vector<NamedScenario> platformScenarios();
std::vector<NamedScenario> processScenarios();
std::vector<NamedScenario> sampleScenarios();
std::vector<NamedScenario> sourceScenarios();

/// Goes on after exceptions and throws the first one at the end.
class FirstFailure {
public:
    template <class Function>
    void during(Function function) {
        try {
            function();
        } catch (...) {
            if (mFirst == nullptr) {
                mFirst = std::current_exception();
            }
        }
    }

    void rethrow() {
        if (mFirst != nullptr) {
            std::rethrow_exception(std::exchange(mFirst, nullptr));
        }
    }

private:
    std::exception_ptr mFirst;
};

}  // namespace vidorra::test
