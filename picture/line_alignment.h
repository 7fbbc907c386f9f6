#pragma once

namespace vidorra {

/// Line sizes from the library's own allocators are multiples of this many bytes: the size of an AVX2
/// register, the widest for which FFmpeg's scalers and filters read aligned lines.
inline constexpr int kLineAlignment = 32;

}  // namespace vidorra
