// URL construction from user strings, the absolute-URL test, and the
// blocking MIME-type and HTTP status requests.
#include <belvane/BVURLAdditions.h>
#include <belvane/BVURLConnection.h>
#include <belvane/BVURLMIMETypeThread.h>

#include "foundation/local_mime_type.h"
#include "foundation/text_encoding.h"

#include <array>

namespace {

using belvane::detail::hasPrefix;

// Schemes that can never name something to play; compared case-sensitively.
constexpr std::array<std::string_view, 3> kRefusedPrefixes = {"javascript:", "mailto:", "aim:"};

bool isInvalid(std::string_view string) {
  if (string.empty()) return true;
  for (auto prefix : kRefusedPrefixes)
    if (hasPrefix(string, prefix)) return true;
  return false;
}

}  // namespace

bool _invalidURLString(const std::string* string) { return !string || isInvalid(*string); }

std::optional<BVURL> bvURLFromString(std::string_view string) {
  if (isInvalid(string)) return std::nullopt;
  // The string is used exactly as it stands: no trimming, escaping or scheme.
  return BVURL::URLWithString(string);
}

std::optional<BVURL> bvURLFromString(const std::string* string) {
  if (!string) return std::nullopt;
  return bvURLFromString(std::string_view(*string));
}

std::optional<BVURL> bvURLFromString(std::string_view string, const std::optional<BVURL>& baseURL) {
  if (isInvalid(string)) return std::nullopt;
  std::optional<BVURL> url = bvURLFromString(string);
  // A string with a scheme and an authority stands on its own.
  if (url && bvIsAbsoluteURL(*url)) return url;
  if (!baseURL) return url;
  if (auto resolved = BVURL::URLWithStringRelativeTo(string, *baseURL)) return resolved;
  return url;
}

std::optional<BVURL> bvURLFromString(const std::string* string, const std::optional<BVURL>& baseURL) {
  if (!string) return std::nullopt;
  return bvURLFromString(std::string_view(*string), baseURL);
}

bool bvIsAbsoluteURL(const BVURL& url) { return hasPrefix(url.resourceSpecifier(), "//"); }

std::optional<std::string> bvRequestMIMETypeWithTimeout(const BVURL& url, double timeout) {
  const std::string scheme = url.scheme();
  if (scheme == "file") return belvane::detail::mimeTypeOfLocalFile(url.fileSystemPath());
  if (scheme == "http" || scheme == "https") {
    auto request = BVURLMIMETypeThread::create();
    return request->getMIMETypeForURL(url, timeout);
  }
  return std::nullopt;
}

int HTTPStatusCodeFromSynchronousHEADReturningError(const BVURL& url, BVErrorRef* error) {
  BVURLRequest request(url, 10.0);
  request.httpMethod = "HEAD";
  request.ignoreCache = true;
  std::shared_ptr<BVURLResponse> response;
  BVURLConnection::sendSynchronousRequest(request, &response, error);
  return response ? response->statusCode() : 0;
}
