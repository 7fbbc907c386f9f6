// The cost of a log line whose level is disabled, compared with an empty loop.
#include <cstdio>

#include "logger/logger.h"
#include "support/measure.h"

namespace {

// Keeps the compiler from removing the computation of the value, and from unrolling the loop.
void keep(long value) {
    asm volatile("" : : "r"(value) : "memory");
}

template <class Line>
auto loop(long count, Line line) {
    return [count, line](vidorra::bench::Stopwatch& stopwatch) {
        stopwatch.start();
        for (long i = 0; i < count; ++i) {
            line(i);
            keep(i);
        }
        stopwatch.stop();
    };
}

}  // namespace

int main(int argc, char** argv) {
    const vidorra::bench::Options options = vidorra::bench::parseOptions(argc, argv);
    const long count = options.shortRun ? 1000 : 10'000'000;
    const std::string prefix = "benchmark: ";

    const std::string title = "log line at a disabled level";
    vidorra::bench::Comparison comparison(title);
    comparison.add("empty loop", loop(count, [](long) {}));
    comparison.add("log(level) << text << number",
                   loop(count, [](long i) { logger::log(logger::Level::Trace) << "line " << i; }));
    comparison.add("log(level, prefix) << text << number", loop(count, [prefix](long i) {
                       logger::log(logger::Level::Trace, prefix) << "line " << i;
                   }));
    comparison.add("print(level, format, number)",
                   loop(count, [](long i) { logger::print(logger::Level::Trace, "line %ld", i); }));
    comparison.run(options.repetitions);
    comparison.printTable();
    for (const char* name : {"log(level) << text << number", "log(level, prefix) << text << number",
                             "print(level, format, number)"}) {
        const double above = comparison.seconds(name) - comparison.seconds("empty loop");
        vidorra::bench::report({title, name, above / static_cast<double>(count) * 1e9, "ns"});
    }
}
