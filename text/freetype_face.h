#pragma once

#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_SYSTEM_H

#include <array>
#include <string>

#include "vidorra/text/freetype_text_renderer.h"

namespace vidorra {

/// FreeType with memory functions of its own, a font that it opened, and that font's file.
///
/// The whole file is in memory: FreeType would map it, and a file that is cut short while it is mapped ends
/// the process.
struct FreeTypeTextRenderer::Face {
    FT_Library library = nullptr;
    FT_Face face = nullptr;
    std::string file;
    FT_MemoryRec_ memory{};
    /// An allocation has failed since this was last cleared. FreeType does not always report that: it carries
    /// on without a module, a character map or a hint.
    bool outOfMemory = false;
    /// What the next failed allocations of small blocks get. FreeType 2.12 does not check the first two of
    /// its interpreter for TrueType fonts, and would crash.
    std::array<void*, 2> reserve{};
};

}  // namespace vidorra
