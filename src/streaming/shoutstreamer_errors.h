// The shoutstreamer's error codes for what goes wrong on the network: libcurl
// results, reply statuses and content types.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace belvane::detail {

// The code for a failed libcurl transfer (curl's CURLcode).
int32_t shoutstreamerErrorForCurlCode(int curlCode);
// The code for a reply status that is not a success (HTTP or ICY).
int32_t shoutstreamerErrorForStatus(int status);
// A listener's words for a station's reply status that is not a success.
std::string shoutstreamerStatusDescription(int status);
// Whether a content type (parameters allowed) names AAC audio.
bool isAACContentType(std::string_view contentType);

}  // namespace belvane::detail
