#pragma once

namespace vidorra::test {

/// The number of the call of FFmpeg that is under way on this thread, counted from 1, or else of the last one
/// on any thread, as its workers are threads of their own. 0 before the first one. Calls that FFmpeg makes
/// itself are parts of the outer one.
long currentFFmpegCall();

/// Whether this thread is in such a call.
bool isInFFmpegCall();

/// Notes that an allocation fails in the call that is under way.
void noteShortageInFFmpeg();

/// What the call for which that was noted said of it when it ended.
enum class Told {
    /// It has not ended, or gave ENOMEM or null.
    Shortage,
    AnotherError,
    /// It succeeded, or gave the error that asks for more input or tells the end.
    Nothing,
};
Told toldOfShortage();

}  // namespace vidorra::test
