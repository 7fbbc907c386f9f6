#pragma once

#include "vidorra/core/export.h"

/// Sends FFmpeg's own log lines to the logger from now on, at these levels: panic, fatal and error at Error,
/// warning at Warning, info at Info, verbose and debug at Debug. Trace lines are dropped. FFmpeg's own log
/// level is ignored. A line that FFmpeg writes in pieces arrives in pieces, each with the prefix of its
/// context, and is cut at 1023 bytes.
///
///     logger::setLevel(logger::Level::Info);
///     ffmpeg_enable_logging();
///
/// The library itself never calls this; until a program does, FFmpeg writes to stderr. Threads: any; FFmpeg
/// logs from any thread.
VIDORRA_API void ffmpeg_enable_logging();
