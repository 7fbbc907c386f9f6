#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "blend_pictures.h"
#include "limit_kernels.h"
#include "process/alphablend/kernels.h"
#include "support/report.h"

namespace vidorra::bench {

/// What the kernels of one set of instructions are wanted to reach of their limit.
struct SetAim {
    std::string_view set;
    std::optional<Aim> hot;
    std::optional<Aim> cold;
};

/// The first plane of a result, or its only one.
using Plane = std::vector<unsigned char>;

/// Another library at the same work.
struct BlendPeer {
    std::string name;
    std::function<void(BlendPair&)> run;
    std::optional<Aim> hot;
    std::optional<Aim> cold;
    /// By how much its samples may differ from ours; nothing where it computes something else, such as with
    /// colours multiplied by their alpha.
    std::optional<int> tolerance = std::nullopt;
    /// What run() leaves in the destination, where the peer's result lies elsewhere.
    std::function<Plane(BlendPair&)> result = {};
};

/// A kernel, what all sets of instructions make of it, and the other libraries.
struct BlendCase {
    std::string name;
    BlendLayout layout;
    /// That one picture pair reads and writes.
    std::size_t bytesPerPair;
    /// Of the result, that a peer's is compared with.
    std::size_t firstPlaneBytes;
    std::function<void(const LimitKernels&, BlendPair&)> limit;
    std::function<void(BlendPair&)> library;
    std::function<void(const alphablend::Kernels&, BlendPair&)> set;
    std::vector<SetAim> aims = {};
    std::vector<BlendPeer> peers = {};
};

BlendCase fadeNv12Case(const BlendSize& size);
BlendCase nva12Case(const BlendSize& size, Shape shape, double opacity);
BlendCase packed32Case(const BlendSize& size, bool argb, Shape shape, double opacity);
BlendCase rgb24Case(const BlendSize& size);

}  // namespace vidorra::bench
