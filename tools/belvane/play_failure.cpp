// Explanations for playback errors, from the error and the URL.
#include "play_failure.h"

#include "url_problems.h"

#include <belvane/BVConstants.h>

#include <cctype>

namespace belvane::tool {


std::string explainPlaybackError(const BVErrorRef& error, const BVURL& url, const std::string&) {
  if (!error) return {};
  if (url.isFileURL()) {
    if (auto problem = fileProblem(url); !problem.empty()) return problem;
    if (error->domain() == BVOSStatusErrorDomain || error->domain() == BVShoutstreamerErrorDomain)
      return url.fileSystemPath() + " is damaged or is not a sound file";
    return {};
  }
  // Whatever the engines made of it (no stream found, not available), an
  // address of another kind was never going to play.
  std::string scheme = url.scheme();
  for (auto& c : scheme) c = char(std::tolower(static_cast<unsigned char>(c)));
  if (scheme != "http" && scheme != "https" && scheme != "icy")
    return "addresses beginning '" + scheme + ":' are not supported; use http:, https: or a file path";
  return {};
}

std::string playbackFailureLine(const BVErrorRef& error, const BVURL& url, const std::string& output) {
  std::string line = error ? error->localizedDescription() : std::string("Playback failed.");
  // The library's own account of why (an output that could not start, say)
  // comes first; the tool adds only what it knows of the situation.
  if (error)
    if (const std::string* reason = BVDictionaryString(error->userInfo(), BVLocalizedFailureReasonErrorKey))
      return line + " " + *reason;
  std::string why = explainPlaybackError(error, url, output);
  if (!why.empty()) line += " (" + why + ")";
  return line;
}

std::string playbackFailureDetails(const BVErrorRef& error) {
  if (!error) return {};
  auto it = error->userInfo().find(BVBasePlayerErrorKey);
  return it != error->userInfo().end() && it->second.string() ? *it->second.string() : std::string();
}

}  // namespace belvane::tool
