// Records what a job describes, for tools/check_recordings.py: recording_probe JOB.json. A job has
//   out, format, container       the file, its container and that one's options
//   fragment, segment            in microseconds
//   playlist, verify, inPlace
//   video, frames, count         a configuration, raw pictures for it, over and over, and how many
//   audio, samples, seconds      a configuration, interleaved stereo of 16 bits at 48000 Hz, and how much of
//   it soundFirst                   writes all sound before the first picture mostWaiting bytes throwAt the
//   number of the call at which a sink fails, instead of a file counted                      says on stdout
//   how many pictures were written, after each
// Prints the report, and at the end the memory of the process at the first quarter and at the end.
#include <fcntl.h>
#include <unistd.h>

#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include "objstream/json.h"
#include "vidorra/vidorra.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/imgutils.h>
}

namespace {

using objstream::object;
using namespace vidorra;

template <class T>
T value(const object& job, const char* key, T fallback) {
    return job[key].getValue<T>(fallback);
}

std::vector<std::uint8_t> content(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

long residentKilobytes() {
    std::ifstream file("/proc/self/statm");
    long size = 0;
    long resident = 0;
    file >> size >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

/// Fails at its n-th call, and counts those that there are.
class FailingSink final : public ByteSink {
public:
    explicit FailingSink(long failAt) : mFailAt(failAt) {}
    void write(const std::uint8_t* /*data*/, std::size_t /*size*/) override { call(); }
    bool seek(std::uint64_t /*position*/) override {
        call();
        return true;
    }
    void close() override { call(); }
    [[nodiscard]] long calls() const { return mCalls; }

private:
    void call() {
        if (++mCalls == mFailAt) {
            throw std::runtime_error("the sink fails");
        }
    }
    long mFailAt;
    long mCalls = 0;
};

class Recording {
public:
    explicit Recording(const object& job) : mJob(job) {
        WriterOptions options;
        options.format = value<std::string>(job, "format", "");
        job["container"].for_each_kv([&](const std::string& key, const object& entry) {
            options.container[key] = entry.getValue<std::string>();
            return true;
        });
        if (job.hasKey("fragment")) {
            options.fragmentDuration = std::chrono::microseconds(job["fragment"].getValue<long>());
        }
        options.segmentDuration = std::chrono::microseconds(value<long>(job, "segment", 0));
        options.playlist = value<std::string>(job, "playlist", "");
        options.mostWaiting = static_cast<std::size_t>(value<long>(job, "mostWaiting", 64L << 20));
        options.verify = value<int>(job, "verify", 0) != 0;
        options.whole = value<int>(job, "inPlace", 0) == 0;
        if (job.hasKey("throwAt")) {
            mSink = std::make_shared<FailingSink>(job["throwAt"].getValue<long>());
            mWriter = std::make_unique<MediaFileWriter>(mSink, options);
        } else {
            mWriter = std::make_unique<MediaFileWriter>(value<std::string>(job, "out", ""), options);
        }
        if (job.hasKey("video")) {
            const object& config = job["video"];
            mSize = {config["width"].getValue<int>(), config["height"].getValue<int>()};
            mFrameDuration = {config["timebase_num"].getValue<int>(1),
                              config["timebase_den"].getValue<int>(1)};
            mFormat = config["pix_fmt"].getValue<AVPixelFormat>(AV_PIX_FMT_YUV420P);
            mPictures = content(job["frames"].getValue<std::string>());
            mFrames = value<long>(job, "count", 0);
            mVideo = mWriter->addVideo(config);
        }
        if (job.hasKey("audio")) {
            mBytes = content(job["samples"].getValue<std::string>());
            mSamples = static_cast<long>(value<double>(job, "seconds", 0) * kRate);
            mAudio = mWriter->addAudio(job["audio"]);
        }
    }

    WriterReport run() {
        long frame = 0;
        long sample = 0;
        const bool counted = value<int>(mJob, "counted", 0) != 0;
        const bool isSoundFirst = value<int>(mJob, "soundFirst", 0) != 0;
        while (frame < mFrames || sample < mSamples) {
            const double pictureTime = static_cast<double>(frame) * mFrameDuration.num / mFrameDuration.den;
            const bool isPictureDue = !isSoundFirst && pictureTime <= static_cast<double>(sample) / kRate;
            if (frame < mFrames && (sample >= mSamples || isPictureDue)) {
                mWriter->write(mVideo, picture(frame++));
                if (counted) {
                    // Whole or not at all, and as fast as a process can be killed.
                    if (write(STDOUT_FILENO, ".", 1) != 1) {
                        throw std::runtime_error("nobody counts");
                    }
                }
            } else {
                // Pieces of no particular length.
                const long count = std::min(997 + sample % 613, mSamples - sample);
                mWriter->write(mAudio, sound(sample, count));
                sample += count;
            }
            if (mQuarter == 0 && frame * 4 >= mFrames) {
                mQuarter = residentKilobytes();
            }
        }
        return mWriter->finish();
    }

    [[nodiscard]] long sinkCalls() const { return mSink ? mSink->calls() : 0; }
    [[nodiscard]] long quarter() const { return mQuarter; }

private:
    static constexpr int kRate = 48000;

    VideoFrame picture(long number) {
        const int size = av_image_get_buffer_size(mFormat, mSize.width, mSize.height, 1);
        const long all = static_cast<long>(mPictures.size()) / size;
        std::uint8_t* planes[4] = {};
        int linesizes[4] = {};
        av_image_fill_arrays(planes, linesizes, mPictures.data() + number % all * size, mFormat, mSize.width,
                             mSize.height, 1);
        Picture made(mSize, planes, linesizes, mFormat, AVCOL_RANGE_JPEG, 32);
        return {std::move(made), Timestamp(mFrameDuration, number), Frame::NoFlags};
    }

    AudioFrame sound(long start, long count) {
        AudioBuffer buffer(AV_CH_LAYOUT_STEREO, AV_SAMPLE_FMT_S16);
        buffer.setSampleRate(kRate);
        buffer.resize(static_cast<unsigned long>(count));
        std::uint8_t* target = buffer.getPointersToPlanes()[0];
        for (long i = 0; i < count * 4; ++i) {
            target[i] = mBytes[static_cast<std::size_t>(start * 4 + i) % mBytes.size()];
        }
        return {std::move(buffer), Timestamp({1, kRate}, start)};
    }

    const object& mJob;
    std::unique_ptr<MediaFileWriter> mWriter;
    std::shared_ptr<FailingSink> mSink;
    MediaFileWriter::Track mVideo = 0;
    MediaFileWriter::Track mAudio = 0;
    Size mSize;
    Timebase mFrameDuration{1, 1};
    AVPixelFormat mFormat = AV_PIX_FMT_YUV420P;
    std::vector<std::uint8_t> mPictures;
    std::vector<std::uint8_t> mBytes;
    long mFrames = 0;
    long mSamples = 0;
    long mQuarter = 0;
};

}  // namespace

int main(int argc, char** argv) try {
    if (argc != 2) {
        std::cerr << "usage: recording_probe JOB.json\n";
        return 2;
    }
    const object job = objstream::readJsonFile(argv[1]);
    Recording recording(job);
    const WriterReport report = recording.run();
    for (const auto& track : report.tracks) {
        std::cout << track.codec << ' ' << track.frames << ' ' << track.packets << ' ' << track.bytes << ' '
                  << track.begin << ' ' << track.end << '\n';
    }
    std::cout << "files " << report.files.size() << " waiting " << report.mostWaiting << " calls "
              << recording.sinkCalls() << " resident " << recording.quarter() << ' ' << residentKilobytes()
              << '\n';
} catch (const std::exception& error) {
    std::cerr << error.what() << " (resident " << residentKilobytes() << ")\n";
    return 1;
}
