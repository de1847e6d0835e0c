// How what a person types (a command-line argument, a C host's string)
// becomes a URL: a file path (absolute or relative) becomes a file URL;
// anything else goes through the library's own rules for user-typed
// addresses.
#pragma once

#include <belvane/BVURL.h>

#include <optional>
#include <string>

namespace belvane::detail {

// Whether the argument names a local file rather than an address: it starts
// with '/', "./" or "../", or it has no scheme and something exists there.
bool looksLikeFilePath(const std::string& text);

// The file URL of a path, made absolute against the working directory;
// nothing when the path cannot be written as a URL.
std::optional<BVURL> fileURLForPath(const std::string& path);

// The URL for an argument: a file URL for a path (or for what the library
// leaves without a scheme), else the library's URL.
std::optional<BVURL> urlForArgument(const std::string& text);

}  // namespace belvane::detail
