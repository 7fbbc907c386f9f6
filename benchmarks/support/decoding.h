#pragma once

#include <chrono>
#include <filesystem>
#include <string>

#include "support/measure.h"

struct AVFormatContext;

/// What the library's reading is compared with: FFmpeg alone.
namespace vidorra::bench {

inline constexpr std::chrono::seconds kAnalyzeDuration(2);

/// 1080p at a common bit rate, with B-frames; a short run uses a few small frames.
std::filesystem::path h264File(bool shortRun);

/// The same pictures with a tone.
std::filesystem::path h264FileWithAudio(bool shortRun);

/// A file opened with FFmpeg alone, as FormatContext opens it.
class PlainSource {
public:
    explicit PlainSource(const std::string& path);
    PlainSource(const PlainSource&) = delete;
    PlainSource& operator=(const PlainSource&) = delete;
    ~PlainSource();

    [[nodiscard]] AVFormatContext* context() const { return mContext; }

private:
    AVFormatContext* mContext = nullptr;
};

/// Reads and decodes with FFmpeg alone, on one thread; returns the number of frames.
int decodeByPlainLoop(const std::string& path, Stopwatch& stopwatch);

#ifdef VIDORRA_BENCHMARK_OPENCV
void decodeByOpenCv(const std::string& path, Stopwatch& stopwatch);
#endif

}  // namespace vidorra::bench
