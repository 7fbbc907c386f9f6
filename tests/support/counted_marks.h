#pragma once

namespace vidorra::test {

/// How many buffers were marked as modified.
int& modificationMarks();

}  // namespace vidorra::test
