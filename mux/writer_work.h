#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "mux/hls_playlist.h"
#include "mux/interleaver.h"
#include "mux/output_file.h"
#include "mux/tracks.h"
#include "mux/writer_track.h"
#include "vidorra/mux/media_file_writer.h"

namespace vidorra {

/// What a MediaFileWriter does: frames go into tracks, the packets that these make go into the interleaver,
/// and in its order into the file of their time.
class MediaFileWriter::Work {
public:
    Work(const std::string& path, WriterOptions options);
    Work(std::shared_ptr<ByteSink> sink, WriterOptions options);
    Work(const Work&) = delete;
    Work& operator=(const Work&) = delete;
    /// Ends what finish() has not.
    ~Work();

    /// Adds a track that `make` makes from its number and the function that takes its packets.
    template <class Make>
    std::size_t addTrack(const Make& make) {
        requireOpen();
        if (mHasInput) {
            throw std::logic_error("a track cannot be added after the first write()");
        }
        const std::size_t number = mTracks.size();
        mTracks.push_back(make(number, [this, number](Packet packet) { take(number, std::move(packet)); }));
        mInterleaver.addTrack(mTracks.back()->timebase(), mTracks.back()->isWaitedFor());
        mHasEnded.push_back(false);
        return number;
    }

    [[nodiscard]] EncoderNeeds encoderNeeds() const;

    template <class Input>
    void write(std::size_t track, const Input& input) {
        requireInput(track);
        requireRoom(track);
        mHasInput = true;
        guard([&] { mTracks[track]->write(input); });
        ++mTaken;
        reportProgress();
    }

    void end(std::size_t track);
    WriterReport finish();

private:
    enum class State { Open, Finished, Failed };

    void openFirst();
    void requireOpen() const;
    void requireInput(std::size_t track) const;
    void requireRoom(std::size_t track) const;
    void reportProgress() const;
    void endTrack(std::size_t track);

    /// Runs a step. Passes a refusal on; after any other exception the writer has failed.
    template <class Step>
    void guard(const Step& step) {
        try {
            step();
        } catch (const Refusal& refusal) {
            std::rethrow_exception(refusal.reason);
        } catch (...) {
            rethrowFailure();
        }
    }
    [[noreturn]] void rethrowFailure();

    void take(std::size_t track, Packet packet);
    void pump();
    void begin();
    [[nodiscard]] FileStart startAt(const Timestamp& zero) const;
    [[nodiscard]] Timestamp earliest() const;
    [[nodiscard]] Timestamp latest() const;

    [[nodiscard]] bool hasSegments() const noexcept { return mOptions.segmentDuration.count() > 0; }
    [[nodiscard]] std::size_t cuttingTrack() const;
    [[nodiscard]] bool isCutBefore(std::size_t track, const Packet& packet) const;
    [[nodiscard]] std::string segmentPath(std::uint64_t number, const Timestamp& start) const;
    void startSegment(const Timestamp& start);
    void completeFile(const Timestamp& end);

    std::string mPath;
    WriterOptions mOptions;
    std::vector<std::unique_ptr<WriterTrack>> mTracks;
    std::vector<bool> mHasEnded;
    // Those that the files have streams for, after begin().
    std::vector<const WriterTrack*> mWritten;
    Interleaver mInterleaver;
    std::optional<OutputFile> mFile;
    std::string mFilePath;

    // The start of the recording, and of the present file, on the caller's scale.
    FileStart mStart;
    Timestamp mSegmentStart;
    std::optional<Interleaver::Cut> mCut;
    std::optional<HlsPlaylist> mPlaylist;

    State mState = State::Open;
    bool mHasInput = false;
    std::uint64_t mTaken = 0;
    Timestamp mWrittenUpTo;
    std::vector<std::string> mFiles;
};

}  // namespace vidorra
