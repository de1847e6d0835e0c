// The errors the stream tuner reports, worded for a listener.
#pragma once

#include <belvane/BVError.h>
#include <belvane/BVURL.h>

#include <string>

namespace belvane::detail {

// A server answered with an HTTP status other than 2xx: "NetHTTPErrorDomain",
// code the status, the message of the HTTP error table (or the status
// phrase) in a sentence.
BVErrorRef tunerHTTPStatusError(int statusCode, const BVURL& url);

// An error in QLStreamTunerErrorDomain with the failing URL, when given.
BVErrorRef tunerError(int code, const std::string& description, const BVURL* url = nullptr);

}  // namespace belvane::detail
