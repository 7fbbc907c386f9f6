#pragma once

#include <optional>
#include <string>
#include <vector>

#include "vidorra/clip/clip_reader.h"

namespace vidorra {

/// All audio and video streams of an open source, none of them selected; `streams` gets the index of each.
std::vector<ClipTrack> listTracks(const AVFormatContext& context, std::vector<int>& streams);

/// The place of the chosen track in a list; nothing when none is wanted, or when the best is and there is
/// none that could be decoded. `related` is the stream that the best goes with, -1 for none. Throws
/// std::invalid_argument for a number that no track has.
std::optional<std::size_t> chooseTrack(AVFormatContext& context, const std::vector<ClipTrack>& tracks,
                                       const std::vector<int>& streams, ClipTrack::Kind kind,
                                       const ClipTrackChoice& choice, int related, const std::string& name);

}  // namespace vidorra
