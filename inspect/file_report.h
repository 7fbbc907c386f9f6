#pragma once

#include <string>

#include "objstream/object.h"

namespace vidorra::inspect {

/// What the library does with a file:
///
/// - "tracks": for each audio and video track "kind" ("video" or "audio"), "number", "codec", "language",
/// "frames" (to
///   the real end, as ClipReader gives them) and "error" where it cannot be read; "samples", "sampleRate" and
///   "channels" of sound; "width", "height", "pixelFormat", "alpha", "rotation" (degrees clockwise),
///   "sampleAspect", "displayAspect", "colorRange", "colorSpace", "colorPrimaries", "colorTransfer" and
///   "keyFrameDistance" (the most pictures from one key picture to the next) of pictures. The first of each
///   kind has "framesLost", how many of them MediaFileReader does not give.
/// - "attachedPictures": how many pictures belong to the whole file.
/// - "duration": seconds, where the file says.
/// - "repairedTimes", "droppedFrames", "damagedPackets": as ClipCounters, of all tracks.
/// - "settledReaders": "becomesReady" and "endsProcess" (why, where it does) of MediaFileReaderAsync;
/// "loopGapSamples",
///   the silence between two passes of a loop, an overlap below 0. That of ClipReader is always 0.
///
/// Throws what ClipReader::open() throws.
objstream::object reportOf(const std::string& url);

/// The report for people.
std::string textOf(const objstream::object& report);

}  // namespace vidorra::inspect
