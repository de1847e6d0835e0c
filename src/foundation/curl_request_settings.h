// A player's request settings on a libcurl easy handle: every connection
// that talks to a station's servers (CurlTransfer, StreamConnection) goes
// through here, so that all of them send the same User-Agent and extra
// header fields and take the same way through a proxy. Called on the
// thread that sets the handle up, before the transfer.
#pragma once

#include <belvane/BVRequestSettings.h>

#include <curl/curl.h>

namespace belvane::detail {

// Sets the user agent and the proxy on easy and appends the extra header
// fields to *headers (the caller hands the list to CURLOPT_HTTPHEADER and
// frees it). settings null: the defaults.
void applyRequestSettings(CURL* easy, const BVRequestSettings* settings, curl_slist** headers);

}  // namespace belvane::detail
