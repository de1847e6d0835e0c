// Turning bare numeric codes into errors a user can read: HTTP status codes
// through the framework's "HTTPErrors" message table, and the codes of
// movie-loading failures (HTTP statuses passed through, or OS status codes).
#pragma once

#include <belvane/BVExport.h>

#include <belvane/BVError.h>

// An error in "NetHTTPErrorDomain" whose description is "<code>/<message>",
// or nullptr when the table has no message for the code (or cannot be read).
BV_EXPORT BVErrorRef BVErrorForHTTPErrorCode(int code);
// The HTTP error for a listed code, otherwise an NSOSStatusErrorDomain error
// with the code and no user info. Never nullptr.
BV_EXPORT BVErrorRef BVErrorForQuickTimeErrorCode(int code);
