#pragma once

#include <string>

#include "vidorra/core/av_error.h"
#include "vidorra/core/av_ptr.h"
#include "vidorra/demux/decoder_base.h"
#include "vidorra/demux/packet.h"

#include <tl/expected.hpp>

namespace vidorra {

/// Decodes one packet of `url` into at most one frame. Failures are logged and returned; AvError::Again,
/// without a log line, means that the decoder needs more input.
tl::expected<AvPtr<AVFrame>, AvError> decodePacket(const std::string& url, const DecoderBase& decoder,
                                                   const Packet& packet);

}  // namespace vidorra
