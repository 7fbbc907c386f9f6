// Blending beside what memory and vectors allow, and beside other libraries. All competitors of a comparison
// take their turns in one process and in random order, one picture pair after the other, on one CPU; only
// ratios within a comparison mean anything. "Hot" is one pair of pictures again and again, "cold" a ring of
// pairs that is larger than the caches. Pictures lie in aligned memory of the heap, written before anything
// is timed; only what FFmpeg's filters make for themselves comes from their own pools.
#include <fmt/format.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "blend_cases.h"
#include "support/measure.h"

namespace vidorra::bench {
namespace {

using alphablend::Kernels;

// Throws unless a peer gives about our picture, as one does not that only copies.
void expectSameResult(const BlendCase& row, const BlendPeer& peer, const BlendSize& size) {
    if (!peer.tolerance) {
        return;
    }
    BlendPair pairs[] = {makeBlendPair(size, row.layout), makeBlendPair(size, row.layout)};
    for (BlendPair& pair : pairs) {
        // Where both pictures have an alpha, a mix of two is not what we compute.
        for (std::size_t i = 0; row.layout.alphaOffset >= 0 && i < size.pixels(); ++i) {
            pair.dst[4 * i + static_cast<std::size_t>(row.layout.alphaOffset)] = 255;
        }
    }
    row.library(pairs[0]);
    Plane result;
    if (peer.result) {
        result = peer.result(pairs[1]);
    } else {
        peer.run(pairs[1]);
        result.assign(pairs[1].dst.get(), pairs[1].dst.get() + row.firstPlaneBytes);
    }
    if (result.size() != row.firstPlaneBytes) {
        throw std::runtime_error(fmt::format("{}: {} gives {} bytes", row.name, peer.name, result.size()));
    }
    for (std::size_t i = 0; i < result.size(); ++i) {
        if (std::abs(result[i] - pairs[0].dst[i]) > *peer.tolerance) {
            throw std::runtime_error(
                fmt::format("{}: {} gives {}, not {}", row.name, peer.name, result[i], pairs[0].dst[i]));
        }
    }
}

std::string limitOf(const Kernels& set) {
    return fmt::format("limit {}", set.name);
}

void runCase(const BlendCase& row, const BlendSize& size, const Options& options, bool hot,
             std::vector<BlendPair>& ring) {
    const std::string title = row.name + (hot ? ", hot" : ", cold");
    const int pictures = options.shortRun ? 1 : 5;
    std::size_t turn = 0;
    Comparison comparison(title);
    const auto add = [&](const std::string& name, const std::function<void(BlendPair&)>& run) {
        comparison.add(name, [&, run](Stopwatch& stopwatch) {
            if (hot) {
                run(ring[0]);
            }
            stopwatch.start();
            for (int i = 0; i < pictures; ++i) {
                turn = hot ? 0 : (turn + 1) % ring.size();
                run(ring[turn]);
            }
            stopwatch.stop();
        });
    };
    add("library", row.library);
    for (const Kernels* set : alphablend::supportedKernels()) {
        add(set->name, [&row, set](BlendPair& pair) { row.set(*set, pair); });
        if (set != &alphablend::kPlainKernels) {
            const LimitKernels& limit = limitKernels(set->name);
            add(limitOf(*set), [&row, &limit](BlendPair& pair) { row.limit(limit, pair); });
        }
    }
    for (const BlendPeer& peer : row.peers) {
        expectSameResult(row, peer, size);
        add(peer.name, peer.run);
    }
    comparison.run(options.repetitions);

    report({title, fmt::format("a picture through the library, {}", alphablend::kernels().name),
            comparison.seconds("library") / pictures * 1e6, "us"});
    for (const Kernels* set : alphablend::supportedKernels()) {
        if (set == &alphablend::kPlainKernels) {
            continue;
        }
        std::optional<Aim> aim;
        for (const SetAim& each : row.aims) {
            if (each.set == set->name) {
                aim = hot ? each.hot : each.cold;
            }
        }
        const std::string own = set == &alphablend::kernels() ? "library" : set->name;
        report({title, fmt::format("{} of its limit", set->name), comparison.ratio(limitOf(*set), own), "",
                aim});
        report({title, fmt::format("{}, times plain", set->name), comparison.ratio("plain", own), "",
                std::nullopt});
    }
    for (const BlendPeer& peer : row.peers) {
        comparison.reportTimes("library", peer.name, hot ? peer.hot : peer.cold);
    }
}

void runCase(const BlendCase& row, const BlendSize& size, const Options& options) {
    std::vector<BlendPair> ring;
    for (const bool hot : {true, false}) {
        if (!options.wants(row.name + (hot ? ", hot" : ", cold"))) {
            continue;
        }
        if (ring.empty()) {
            ring = makeBlendRing(size, row.layout, row.bytesPerPair);
        }
        runCase(row, size, options, hot, ring);
    }
}

void run(const Options& options) {
    const BlendSize size(options.shortRun);
    runCase(fadeNv12Case(size), size, options);
    runCase(nva12Case(size, Shape::Dense, 1.0), size, options);
    runCase(nva12Case(size, Shape::Logo, 1.0), size, options);
    runCase(nva12Case(size, Shape::Dense, 0.5), size, options);
    runCase(packed32Case(size, false, Shape::Dense, 1.0), size, options);
    runCase(packed32Case(size, true, Shape::Dense, 1.0), size, options);
    runCase(packed32Case(size, true, Shape::Logo, 1.0), size, options);
    runCase(packed32Case(size, true, Shape::Dense, 0.5), size, options);
    runCase(rgb24Case(size), size, options);
}

}  // namespace
}  // namespace vidorra::bench

int main(int argc, char** argv) try {
    vidorra::bench::run(vidorra::bench::parseOptions(argc, argv, 41));
} catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
}
