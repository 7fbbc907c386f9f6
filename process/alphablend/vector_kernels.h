#pragma once

#include "process/alphablend/kernels.h"

// The kernels that work on vectors, for each set of instructions; Kernels says what each does. Templates
// in the compilers' vector extensions serve all widths: bytes are split into even and odd ones in 16-bit
// lanes, which no sum of the equations leaves. Thin functions compile them for each set. AVX2 and AVX-512
// multiply bytes in pairs instead where that takes fewer instructions, which needs intrinsics.

/// 16 bytes at a time, on any processor: SSE2 and NEON.
namespace vidorra::alphablend::vector16 {

void fade(unsigned char* dst, const unsigned char* src, std::ptrdiff_t count, unsigned opacity);
void blendNva12(const RowPair& dst, const SourceRowPair& src, std::ptrdiff_t columns);
void fadeNva12(const RowPair& dst, const SourceRowPair& src, std::ptrdiff_t columns, unsigned opacity);
void blend32(const PackedRows& rows, std::ptrdiff_t pixels, int alphaOffset, unsigned opacity);
void blend24(const PackedRows& rows, std::ptrdiff_t bytes, unsigned opacity);

}  // namespace vidorra::alphablend::vector16

/// 32 bytes at a time.
namespace vidorra::alphablend::avx2 {

void fade(unsigned char* dst, const unsigned char* src, std::ptrdiff_t count, unsigned opacity);
void blendNva12(const RowPair& dst, const SourceRowPair& src, std::ptrdiff_t columns);
void fadeNva12(const RowPair& dst, const SourceRowPair& src, std::ptrdiff_t columns, unsigned opacity);
void blend32(const PackedRows& rows, std::ptrdiff_t pixels, int alphaOffset, unsigned opacity);
void blend24(const PackedRows& rows, std::ptrdiff_t bytes, unsigned opacity);

}  // namespace vidorra::alphablend::avx2

/// 64 bytes at a time.
namespace vidorra::alphablend::avx512 {

void fade(unsigned char* dst, const unsigned char* src, std::ptrdiff_t count, unsigned opacity);
void blendNva12(const RowPair& dst, const SourceRowPair& src, std::ptrdiff_t columns);
void fadeNva12(const RowPair& dst, const SourceRowPair& src, std::ptrdiff_t columns, unsigned opacity);
void blend32(const PackedRows& rows, std::ptrdiff_t pixels, int alphaOffset, unsigned opacity);
void blend24(const PackedRows& rows, std::ptrdiff_t bytes, unsigned opacity);

}  // namespace vidorra::alphablend::avx512
