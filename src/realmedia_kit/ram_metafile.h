// RAM metafiles: the small text files (.ram, .rpm) that RealMedia web pages
// link to instead of a stream. Each line names a stream URL; "#" comments
// and blank lines are skipped and a "--stop--" line ends the list.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace belvane::detail {

// Whether a URL (by its path's extension) or a content type names a metafile.
bool isRamMetafileURL(const std::string& url);
bool isRamMetafileType(const std::string& mimeType);
// Whether data begins like a RealMedia or RealAudio file: servers often
// label those with the metafile content type too.
bool looksLikeRealMedia(const char* data, size_t size);

// The stream URLs of a metafile's text, in order; relative ones are resolved
// against baseURL (the metafile's own URL), when given.
std::vector<std::string> parseRamMetafile(const std::string& text, const std::string& baseURL = {});

}  // namespace belvane::detail
