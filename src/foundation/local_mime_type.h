// The MIME type of a local file, from GIO's content-type guess (file name and
// content, through the shared MIME database).
#pragma once

#include <optional>
#include <string>

namespace belvane::detail {

// Nothing for a missing path, a directory, or a type GIO does not know.
std::optional<std::string> mimeTypeOfLocalFile(const std::string& path);

}  // namespace belvane::detail
