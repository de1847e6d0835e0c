// Station titles in UTF-8, whatever character set the station sent them in.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace belvane::detail {

// The title as UTF-8. With an override (a character set name g_convert
// knows: "WINDOWS-1251", "KOI8-R", "SHIFT_JIS", ...) the bytes are read in
// it, unless they are not valid there. Otherwise valid UTF-8 is kept as it
// is, and anything else is read in the character set uchardet detects among
// those stations use: Windows-1251, KOI8-R, Windows-1252 (Latin-1),
// ISO-8859-2, Shift-JIS and GB18030; Windows-1252 when the detection finds
// none of them. Empty bytes give an empty title.
std::string stationTitleToUTF8(std::span<const uint8_t> bytes, std::string_view encodingOverride = {});

}  // namespace belvane::detail
