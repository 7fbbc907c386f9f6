#pragma once

#include <string>
#include <typeinfo>

#include "vidorra/core/export.h"

namespace vidorra {

/// A configuration value that could not be converted, such as a word that names no pixel format. The message
/// contains the word, but not its key.
///
///     try {
///         const VideoEncoder encoder(config);
///     } catch (const BadCast& error) {
///         std::cerr << error.what() << '\n';
///     }
class VIDORRA_API BadCast : public std::bad_cast {
public:
    explicit BadCast(const std::string& message);

    /// The message, valid as long as the exception.
    [[nodiscard]] const char* what() const noexcept override;

private:
    std::string mMessage;
};

}  // namespace vidorra
