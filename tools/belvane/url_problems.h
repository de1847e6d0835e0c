// Why a URL gives nothing to work with, worded for the person at the
// terminal: what stands at a file URL's path, or how a server answered.
#pragma once

#include <belvane/BVError.h>
#include <belvane/BVURL.h>

#include <string>

namespace belvane::tool {

// For a file URL: "no such file", a folder, an empty or unreadable file, in a
// sentence naming the path; empty when the file can be read (or the URL is
// not a file URL).
std::string fileProblem(const BVURL& url);

// One line for an error object: its description, with domain and code.
std::string describeError(const BVErrorRef& error);

// Why nothing usable came from url: the file problem, the connection error
// or the server's error status (asked for in a HEAD request that waits at
// most `seconds`, so that a command's time-out bounds the whole command);
// empty when nothing is known to be wrong or no time is left to ask.
std::string reachProblem(const BVURL& url, double seconds);

}  // namespace belvane::tool
