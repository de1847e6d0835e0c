// BVHelixError: makes the errors of the RealMedia (Helix) engine and player,
// in BVHelixErrorDomain.
#pragma once

#include <belvane/BVExport.h>

#include <belvane/BVError.h>

#include <cstdint>

// An error in BVHelixErrorDomain with the given code. A non-empty format is
// formatted printf-style (strings as %s; "%@" is read as %s too) and stored
// as the localized description; an empty or null format leaves no user info.
BV_EXPORT BVErrorRef BVHelixError(int64_t code, const char* format, ...) __attribute__((format(printf, 2, 3)));
