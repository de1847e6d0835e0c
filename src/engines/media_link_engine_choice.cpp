// BVMediaLink's engine choice: the first available candidate, or, when no
// engine claims the link's format, the general media engine if the server
// answers a HEAD request for the link.
#include <belvane/BVMediaLink.h>
#include <belvane/BVPlayerEngineCenter.h>
#include <belvane/BVPlayerEngines.h>
#include <belvane/BVURLAdditions.h>
#include <belvane/BVURLConnection.h>

namespace {
const char* const kEngineChoiceErrorDomain = "BVHTTPErrorDomain";
}

std::shared_ptr<BVBasePlayerEngine> BVMediaLink::defaultEngine() {
  auto format = format_ ? format_ : BVMediaFormat::emptyFormat();
  return defaultEngineFromEngines(BVPlayerEngineCenter::sharedCenter()->preferedEnginesForFormat(*format));
}

std::shared_ptr<BVBasePlayerEngine> BVMediaLink::defaultEngineFromEngines(
    const std::vector<std::shared_ptr<BVBasePlayerEngine>>& engines) {
  for (const auto& engine : engines) {
    if (engine->isAvailable()) return engine;
  }
  if (!engines.empty()) return nullptr;

  // No engine claims the format: the general engine gets a try when the
  // server is reachable. 501 only says the server does not do HEAD.
  auto quickTime = BVQuicktimePlayerEngine::sharedEngine();
  BVErrorRef error;
  int status = url_ ? HTTPStatusCodeFromSynchronousHEADReturningError(*url_, &error) : 0;
  if (!url_) {
    // Without a URL there is nothing to ask; report it as the request would.
    error = BVError::withDescription(BVURLErrorDomain, BVURLErrorBadURL, "The address is not valid.");
  }
  if (!error && (status == 501 || status <= 399)) {
    return quickTime->canPlayLink(*this) ? std::static_pointer_cast<BVBasePlayerEngine>(quickTime) : nullptr;
  }
  if (error) {
    _setLastError(error);
  } else {
    std::string text = BVLocalizedStringForHTTPStatusCode(status);
    _setLastError(text.empty() ? BVError::create(kEngineChoiceErrorDomain, status)
                               : BVError::withDescription(kEngineChoiceErrorDomain, status, text));
  }
  return nullptr;
}
