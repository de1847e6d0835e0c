// Request settings onto libcurl (see curl_request_settings.h).
#include "foundation/curl_request_settings.h"

namespace belvane::detail {

void applyRequestSettings(CURL* easy, const BVRequestSettings* settings, curl_slist** headers) {
  const BVRequestSettings& s = settings ? *settings : *BVRequestSettings::defaultSettings();
  // libcurl copies the strings it is given.
  curl_easy_setopt(easy, CURLOPT_USERAGENT, s.userAgent().c_str());
  for (const auto& [name, value] : s.headerFields()) {
    // "Name;" is libcurl's way of sending a field with an empty value
    // ("Name:" would remove the field instead).
    std::string line = value.empty() ? name + ";" : name + ": " + value;
    *headers = curl_slist_append(*headers, line.c_str());
  }
  switch (s.proxy()) {
    case BVRequestSettings::Proxy::Environment:
      // Left unset, libcurl reads http_proxy, https_proxy, all_proxy and no_proxy.
      break;
    case BVRequestSettings::Proxy::None:
      curl_easy_setopt(easy, CURLOPT_PROXY, "");
      break;
    case BVRequestSettings::Proxy::URL:
      curl_easy_setopt(easy, CURLOPT_PROXY, s.proxyURL().c_str());
      // The host's proxy carries everything; the environment's exceptions
      // are for the environment's proxy.
      curl_easy_setopt(easy, CURLOPT_NOPROXY, "");
      break;
  }
}

}  // namespace belvane::detail
