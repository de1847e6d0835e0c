// How a recorded title names its file and fills its tag: the file name is
// the title made safe for any Linux file system (no '/', '\' or control
// characters, valid UTF-8, no leading or trailing dots or spaces, at most
// kMaxRecordingStemBytes bytes cut on a character boundary); the tag takes
// "Artist - Title" apart with splitStreamTitle. Plain functions; any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "foundation/title_parts.h"

namespace belvane::detail {

inline constexpr size_t kMaxRecordingStemBytes = 180;

// The file name without extension for a title; nothing when no character of
// it can name a file (an empty title, dots only, control characters only).
std::optional<std::string> recordingFileStem(std::string_view title);

}  // namespace belvane::detail
