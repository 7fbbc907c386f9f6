#pragma once

#include <cstddef>

#include "support/filter_peer.h"
#include "vidorra/picture/picture.h"

namespace vidorra::bench {

/// The planes of a picture, for a filter graph that may write to them.
inline FilterPeer::Planes planesOf(Picture& picture) {
    FilterPeer::Planes planes{};
    for (std::size_t plane = 0; plane < planes.data.size(); ++plane) {
        planes.data[plane] = picture.data()[plane];
        planes.linesize[plane] = picture.linesize()[plane];
    }
    return planes;
}

}  // namespace vidorra::bench
