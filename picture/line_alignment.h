#pragma once

namespace vidorra {

/// The multiple, in bytes, of the line sizes that the library's own allocators make. It is the size of an
/// AVX2 register, the widest from which FFmpeg's scalers and filters read aligned lines.
inline constexpr int kLineAlignment = 32;

}  // namespace vidorra
