// The movie's status code for a GStreamer error: the HTTP status a source
// reported, else a classic movie error code chosen from the error's domain
// and code (see the table in movie_status.cpp).
#pragma once

#include <cstdint>
#include <string>

typedef struct _GError GError;

namespace belvane::detail {

// Classic status codes a movie reports.
enum : int32_t {
  kMovieStatusFileNotFound = -43,          // fnfErr
  kMovieStatusIOError = -36,               // ioErr
  kMovieStatusPermissionDenied = -54,      // permErr
  kMovieStatusNotAMovie = -2048,           // noMovieFound / invalid data
  kMovieStatusCannotReachStream = -19160,  // the stream cannot be reached
};

struct MovieErrorFacts {
  const GError* error = nullptr;  // domain and code of the error message
  unsigned httpStatus = 0;        // "http-status-code" of the message's details, 0 when none
  bool networkURL = false;        // the movie plays a URL that is not a local file
  bool fromSource = false;        // the source element (or one inside it) posted it
  std::string localPath;          // the file being read, for local files
};

int32_t movieStatusForError(const MovieErrorFacts& facts);

}  // namespace belvane::detail
