#include "play_file.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <ostream>
#include <stdexcept>
#include <thread>
#include <vector>

#include <vidorra/vidorra.h>

#include "progress_bar.h"
#include "time_plot.h"

namespace demo {
namespace {

using std::chrono::microseconds;
using std::chrono::steady_clock;

constexpr int kTicksPerSecond = 30;
constexpr std::int64_t kTickLength = 1000000 / kTicksPerSecond;

// How long to wait for a frame when nothing paces the clock.
constexpr microseconds kPatience{50000};

// The start of the program's own clock; any time will do.
const vidorra::Timestamp kStart({}, 1000000);

double seconds(const vidorra::Timestamp& time) {
    return static_cast<double>(time.value) / 1e6;
}

/// One run over one file.
class Player {
public:
    Player(const Options& options, const FileFacts& facts, Recorder* recorder, std::ostream& output)
        : mOptions(options),
          mFacts(facts),
          mRecorder(recorder),
          mOutput(output),
          mReader(makeReader(options, facts)) {}

    void run() {
        waitUntilReady();
        const auto start = steady_clock::now();
        const double length = mOptions.loops > 0 ? mOptions.loops * mFacts.length : mOptions.seconds;
        const auto ticks = static_cast<std::int64_t>(std::ceil(length * kTicksPerSecond));
        for (std::int64_t tick = 0; tick < ticks; ++tick) {
            if (mOptions.realtime) {
                std::this_thread::sleep_until(start + microseconds(tick * kTickLength));
            }
            playTick({{1, kTicksPerSecond}, tick});
            showProgress(tick, ticks, steady_clock::now() - start);
        }
        const std::chrono::duration<double> elapsed = steady_clock::now() - start;
        mBar.clear();
        summarise(length, elapsed.count());
        if (!mOptions.plot.empty()) {
            writeTimePlot(mOptions.plot, mPoints, mFacts.length);
            mOutput << "plot: " << mOptions.plot << '\n';
        }
    }

private:
    static std::unique_ptr<vidorra::MediaFileReaderAsync> makeReader(const Options& options,
                                                                     const FileFacts& facts) {
        const auto track = [](bool there) { return there ? std::optional<unsigned>(0) : std::nullopt; };
        return std::make_unique<vidorra::MediaFileReaderAsync>(
            options.file, vidorra::MediaFileReader::PlaybackMode::Loop, track(facts.hasAudio),
            track(facts.hasVideo), nullptr);
    }

    // Until enough is buffered requests return nothing and do not set the start of the clock.
    void waitUntilReady() {
        const auto start = steady_clock::now();
        const auto deadline = start + std::chrono::seconds(30);
        vidorra::VideoFrame first =
            mReader->getVideoFrame(kStart - vidorra::Timestamp({}, 1), microseconds(0));
        while (first.empty()) {
            if (steady_clock::now() > deadline) {
                throw std::runtime_error(mOptions.file + ": the reader does not become ready");
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            first = mReader->getVideoFrame(kStart - vidorra::Timestamp({}, 1), microseconds(0));
        }
        mTimeToReady = steady_clock::now() - start;
    }

    void showProgress(std::int64_t tick, std::int64_t ticks, std::chrono::duration<double> elapsed) {
        if (!mBar.isDue() || tick == 0) {
            return;
        }
        const double perSecond = static_cast<double>(tick) / elapsed.count();
        mBar.draw(static_cast<double>(tick) / static_cast<double>(ticks),
                  fmt::format("{} frames, {:.0f} a second, {:.0f} s left", tick, perSecond,
                              static_cast<double>(ticks - tick) / perSecond));
    }

    // `time` is counted from the start.
    void playTick(const vidorra::Timestamp& time) {
        const vidorra::Timestamp asked = kStart + time;
        const vidorra::VideoFrame frame = mOptions.realtime ? ask(asked) : askPatiently(asked);
        if (frame.empty()) {
            ++mEmpty;
        } else {
            ++mServed;
            if (!mPoints.empty() && seconds(frame.timestamp() - kStart) == mPoints.back().served) {
                ++mRepeated;
            }
            mPoints.push_back({seconds(asked - kStart), seconds(frame.timestamp() - kStart)});
        }
        if (mRecorder != nullptr) {
            mRecorder->takeVideo(frame, time);
        }
        if (mFacts.hasAudio) {
            takeAudio(asked);
        }
    }

    vidorra::VideoFrame ask(const vidorra::Timestamp& asked) {
        return mReader->getVideoFrame(asked, microseconds(kTickLength));
    }

    // Without pacing the clock runs ahead of the decoder, and the answer is the newest frame so far. So this
    // waits for a frame that fits the time, and requests a time one microsecond later with each try, since
    // no time may be requested twice.
    vidorra::VideoFrame askPatiently(const vidorra::Timestamp& asked) {
        const auto deadline = steady_clock::now() + kPatience;
        const double tolerance = mFacts.frameInterval * 0.75;
        vidorra::VideoFrame frame = ask(asked);
        for (std::int64_t retry = 1; retry < kTickLength; ++retry) {
            if ((!frame.empty() && seconds(asked - frame.timestamp()) <= tolerance) ||
                steady_clock::now() > deadline) {
                break;
            }
            std::this_thread::sleep_for(microseconds(200));
            frame = ask(asked + vidorra::Timestamp({}, retry));
        }
        return frame;
    }

    // All audio that begins before the end of a tick.
    void takeAudio(const vidorra::Timestamp& asked) {
        const vidorra::Timestamp end = asked + vidorra::Timestamp({1, kTicksPerSecond}, 1);
        while (mNextAudio < end) {
            const vidorra::AudioFrame frame = mReader->getAudioFrame(mNextAudio, microseconds(kTickLength));
            if (frame.empty()) {
                // A gap in the audio: continue with the next tick.
                ++mEmptyAudio;
                mNextAudio = end;
                return;
            }
            ++mServedAudio;
            mSamples += frame.audioBuffer().numberOfSamples();
            if (mRecorder != nullptr) {
                mRecorder->takeAudio(frame, frame.timestamp() - kStart);
            }
            mNextAudio = std::max(frame.timestamp() + frame.audioBuffer().duration(),
                                  mNextAudio + vidorra::Timestamp({}, 1));
        }
    }

    void summarise(double length, double elapsed) const {
        double sum = 0;
        double greatest = 0;
        for (const TimePoint& point : mPoints) {
            const double drift = std::abs(point.served - point.asked);
            sum += drift;
            greatest = std::max(greatest, drift);
        }
        const double mean = mPoints.empty() ? 0 : sum / static_cast<double>(mPoints.size());
        const auto milliseconds = [](std::chrono::duration<double> time) { return time.count() * 1000; };
        mOutput
            << fmt::format("played {:.2f} s at {} ticks a second in {:.2f} s, {:.1f} loops of {:.3f} s\n",
                           length, kTicksPerSecond, elapsed, length / mFacts.length, mFacts.length)
            << fmt::format("  ready after {:.0f} ms\n", milliseconds(mTimeToReady))
            << fmt::format("  video: {} frames served, {} of them repeated, {} empty answers\n", mServed,
                           mRepeated, mEmpty)
            << fmt::format(
                   "  drift between the time asked and the time served: mean {:.1f} ms, maximum {:.1f} ms\n",
                   mean * 1000, greatest * 1000)
            << fmt::format("  kept back by the decoder at the end of each loop: {} frames\n",
                           mFacts.keptBack);
        if (mFacts.hasAudio) {
            mOutput << fmt::format("  audio: {} frames with {} samples served, {} empty answers\n",
                                   mServedAudio, mSamples, mEmptyAudio);
        }
    }

    const Options& mOptions;
    const FileFacts& mFacts;
    Recorder* mRecorder;
    std::ostream& mOutput;
    std::unique_ptr<vidorra::MediaFileReaderAsync> mReader;
    ProgressBar mBar;
    std::chrono::duration<double> mTimeToReady{};
    vidorra::Timestamp mNextAudio = kStart;
    std::uint64_t mServed = 0;
    std::uint64_t mRepeated = 0;
    std::uint64_t mEmpty = 0;
    std::uint64_t mServedAudio = 0;
    std::uint64_t mSamples = 0;
    std::uint64_t mEmptyAudio = 0;
    std::vector<TimePoint> mPoints;
};

}  // namespace

void playFile(const Options& options, const FileFacts& facts, Recorder* recorder, std::ostream& output) {
    if (!facts.hasVideo) {
        throw std::runtime_error(options.file + ": there is no video to play");
    }
    Player(options, facts, recorder, output).run();
}

}  // namespace demo
