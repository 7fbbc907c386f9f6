#pragma once

#include <string>

#include "vidorra/core/export.h"

namespace vidorra {

/// An error code of FFmpeg: the negative value that one of its calls returned.
///
///     const auto packet = encoder.receivePacket();
///     if (!packet && packet.error() != AvError::Again) {
///         std::cerr << packet.error().toString() << '\n';
///     }
///
/// Threads: a plain value.
class VIDORRA_API AvError {
public:
    static const AvError Unknown;
    static const AvError InvalidData;
    static const AvError Eof;
    static const AvError Again;
    static const AvError OutOfRange;
    static const AvError OptionNotFound;
    static const AvError DecoderNotFound;
    static const AvError OutOfMemory;
    static const AvError InvalidArgument;
    /// These three come from hardware codecs of FFmpeg builds for devices; other builds never give them.
    static const AvError OmxDecoderWrongPixelFmt;
    static const AvError OmxBFramesNotSupported;
    static const AvError MfxDevInitFailed;

    explicit constexpr AvError(int code) noexcept : mCode(code) {}

    /// FFmpeg's number for the error.
    [[nodiscard]] constexpr int code() const noexcept { return mCode; }

    /// "#", the code, ": " and FFmpeg's text for it; without a text, "#" and the code alone.
    [[nodiscard]] std::string toString() const;

    friend constexpr bool operator==(AvError a, AvError b) noexcept { return a.mCode == b.mCode; }
    friend constexpr bool operator!=(AvError a, AvError b) noexcept { return a.mCode != b.mCode; }
    friend constexpr bool operator<(AvError a, AvError b) noexcept { return a.mCode < b.mCode; }

private:
    int mCode;
};

inline constexpr AvError AvError::Unknown{-1313558101};
inline constexpr AvError AvError::InvalidData{-1094995529};
inline constexpr AvError AvError::Eof{-541478725};
inline constexpr AvError AvError::Again{-11};
inline constexpr AvError AvError::OutOfRange{-34};
inline constexpr AvError AvError::OptionNotFound{-1414549496};
inline constexpr AvError AvError::DecoderNotFound{-1128613112};
inline constexpr AvError AvError::OutOfMemory{-12};
inline constexpr AvError AvError::InvalidArgument{-22};
inline constexpr AvError AvError::OmxDecoderWrongPixelFmt{-592989519};
inline constexpr AvError AvError::OmxBFramesNotSupported{-1331187023};
inline constexpr AvError AvError::MfxDevInitFailed{-55922759};

}  // namespace vidorra
