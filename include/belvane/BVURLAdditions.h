// URL services: turning user strings into URLs, asking a server for a URL's
// MIME type or HTTP status with a time-out, and a movie file's duration.
#pragma once

#include <belvane/BVExport.h>

#include <belvane/BVError.h>
#include <belvane/BVURL.h>

#include <optional>
#include <string>
#include <string_view>

// True for a missing or empty string and for strings beginning
// (case-sensitively) with "javascript:", "mailto:" or "aim:".
BV_EXPORT bool _invalidURLString(const std::string* string);

// The string as a URL, used exactly as it stands; nothing when refused.
BV_EXPORT std::optional<BVURL> bvURLFromString(const std::string* string);
BV_EXPORT std::optional<BVURL> bvURLFromString(std::string_view string);
// As above, resolving a relative string against base (which may be absent).
BV_EXPORT std::optional<BVURL> bvURLFromString(const std::string* string, const std::optional<BVURL>& baseURL);
BV_EXPORT std::optional<BVURL> bvURLFromString(std::string_view string, const std::optional<BVURL>& baseURL);

// What a person types (a command-line argument, a text field): a file
// path, absolute or relative to the working directory, becomes a file URL;
// anything else is read as bvURLFromString reads it, and what that leaves
// without a scheme is taken for a file. Nothing when neither works.
BV_EXPORT std::optional<BVURL> bvURLFromArgument(std::string_view argument);

// True when the resource specifier (after the scheme's colon) begins with "//".
BV_EXPORT bool bvIsAbsoluteURL(const BVURL& url);

// The MIME type of a file URL (from its content) or of an http(s) URL (from
// the server's answer to a HEAD request, waiting at most timeout seconds);
// nothing for other schemes, failures and time-outs.
BV_EXPORT std::optional<std::string> bvRequestMIMETypeWithTimeout(const BVURL& url, double timeout);

// The HTTP status of a synchronous HEAD request (10 s time-out); 0 with
// *error set when no response came.
BV_EXPORT int HTTPStatusCodeFromSynchronousHEADReturningError(const BVURL& url, BVErrorRef* error);

// Duration of a movie file in seconds, or -1.0.
BV_EXPORT double bvMovieFileDuration(const BVURL& url);
