// The maker's web site, where the host sends the user to install a missing
// playback back-end.
#pragma once

#include <belvane/BVURL.h>

#include <optional>
#include <string>

namespace belvane::detail {

inline constexpr const char* kDownloadSite = "https://www.brambleside.com";

// kDownloadSite followed by path ("/airloom/versions/...").
inline std::optional<BVURL> downloadPageURL(const std::string& path) {
  return BVURL::URLWithString(std::string(kDownloadSite) + path);
}

}  // namespace belvane::detail
