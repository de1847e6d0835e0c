// The stream tuner's errors.
#include "streaming/stream_tuner_errors.h"

#include "streaming/QLStreamTuner.h"

#include <belvane/BVErrorMapping.h>
#include <belvane/BVURLConnection.h>

#include <cctype>

const char* const QLStreamTunerErrorDomain = "QLStreamTunerErrorDomain";

namespace belvane::detail {

namespace {
constexpr const char* kNetHTTPErrorDomain = "NetHTTPErrorDomain";
constexpr const char* kFailingURLKey = "NSErrorFailingURLStringKey";
}  // namespace

BVErrorRef tunerHTTPStatusError(int statusCode, const BVURL& url) {
  // The HTTP error table words the status as "404/message"; the bare phrase
  // ("not found") serves for codes it lacks.
  std::string message;
  if (BVErrorRef tableError = BVErrorForHTTPErrorCode(statusCode)) {
    message = tableError->localizedDescription();
    if (size_t slash = message.find('/'); slash != std::string::npos) message.erase(0, slash + 1);
  }
  if (message.empty()) {
    message = BVLocalizedStringForHTTPStatusCode(statusCode);
    if (!message.empty()) message[0] = char(std::toupper(static_cast<unsigned char>(message[0])));
    if (!message.empty()) message += ".";
  }
  std::string description = "The station's server answered with error " + std::to_string(statusCode) +
                            (message.empty() ? std::string(".") : ": " + message);
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
