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
// or the server's error status (asked for in a HEAD request); empty when
// nothing is known to be wrong.
std::string reachProblem(const BVURL& url);

}  // namespace belvane::tool
