// What `belvane play` says beside a playback error. The library's texts are
// the host's and stay as they are ("Audio player failed to start with error
// code ...", "The stream is not available at this time.") with the failure
// reason the library gives (why an output could not start); where it gives
// none, the tool says what it knows of the situation (the file named, the
// address's scheme) next to them.
#pragma once

#include <belvane/BVError.h>
#include <belvane/BVURL.h>

#include <string>

namespace belvane::tool {

// A clause naming what went wrong, or empty when the error's own text is all
// there is to say.
std::string explainPlaybackError(const BVErrorRef& error, const BVURL& url, const std::string& output);

// The one stderr line for a failed playback: the error's text and the
// explanation.
std::string playbackFailureLine(const BVErrorRef& error, const BVURL& url, const std::string& output);

// The player's account of the link it failed on (URL, MIME type; several
// lines), shown with --verbose.
std::string playbackFailureDetails(const BVErrorRef& error);

}  // namespace belvane::tool
