// The stream tuner's errors.
#include "streaming/stream_tuner_errors.h"

#include "streaming/QLStreamTuner.h"
#include "streaming/shoutstreamer_errors.h"

#include <belvane/BVErrorMapping.h>
#include <belvane/BVURLConnection.h>


const char* const QLStreamTunerErrorDomain = "QLStreamTunerErrorDomain";

namespace belvane::detail {

namespace {
constexpr const char* kNetHTTPErrorDomain = "NetHTTPErrorDomain";
constexpr const char* kFailingURLKey = "NSErrorFailingURLStringKey";
}  // namespace

BVErrorRef tunerHTTPStatusError(int statusCode, const BVURL& url) {
  // Worded as the streamer words a station's status, whichever engine would
  // have played it.
  std::string description = shoutstreamerStatusDescription(statusCode);
  return BVError::create(kNetHTTPErrorDomain, statusCode,
                         BVDictionary{{BVLocalizedDescriptionKey, BVValue(description)},
                                      {kFailingURLKey, BVValue(url.absoluteString())}});
}

BVErrorRef tunerError(int code, const std::string& description, const BVURL* url) {
  BVDictionary info{{BVLocalizedDescriptionKey, BVValue(description)}};
  if (url) info.emplace(kFailingURLKey, BVValue(url->absoluteString()));
  return BVError::create(QLStreamTunerErrorDomain, code, std::move(info));
}

}  // namespace belvane::detail
