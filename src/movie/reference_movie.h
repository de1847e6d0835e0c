// Reference movies: small QuickTime files that name the URL of the media to
// play instead of holding it. Two kinds are followed: QuickTime's own (a moov
// holding rmra > rmda > rdrf with a 'url ' data reference) and the template
// that the general media player writes for ASX and MMS links (the URL's
// length, big-endian, at byte 615 and the URL's bytes from byte 770).
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace belvane::detail {

inline constexpr size_t kReferenceTemplateLengthOffset = 615;
inline constexpr size_t kReferenceTemplateURLOffset = 770;
inline constexpr size_t kReferenceTemplateURLFieldSize = 40;

// The URL a reference movie names, or nothing when the bytes are not one.
std::optional<std::string> referenceMovieURL(std::span<const uint8_t> bytes);

}  // namespace belvane::detail
