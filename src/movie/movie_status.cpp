// Turning GStreamer errors into movie status codes.
//
// Table (first rule that applies wins):
//   HTTP status >= 300 in the error's details        -> that status (404, 403, 500, ...)
//   RESOURCE NOT_FOUND          file: -43      network: -19160
//   RESOURCE NOT_AUTHORIZED     file: -54      network: -19160
//   RESOURCE OPEN_READ(_WRITE)  file: -54 when the file is not readable, else -36
//                               network: -19160
//   RESOURCE READ, SEEK, SYNC, BUSY, FAILED, SETTINGS, CLOSE, TOO_LAZY, NO_SPACE_LEFT
//                               file: -36      network: -19160
//   RESOURCE OPEN_WRITE, WRITE (the output device)              -36
//   STREAM FAILED               network source: -19160, else -2048
//   STREAM TYPE_NOT_FOUND, WRONG_TYPE, DEMUX, DECODE, CODEC_NOT_FOUND, FORMAT,
//          NOT_IMPLEMENTED, DECRYPT(_NOKEY), ENCODE, MUX        -2048
//   CORE MISSING_PLUGIN, NEGOTIATION, CAPS, anything else        -2048
//   LIBRARY anything, unknown domains                            -2048
#include "movie/movie_status.h"

#include <gst/gst.h>
#include <unistd.h>

namespace belvane::detail {
namespace {

int32_t resourceStatus(int code, const MovieErrorFacts& facts) {
  switch (code) {
    case GST_RESOURCE_ERROR_OPEN_WRITE:
    case GST_RESOURCE_ERROR_WRITE:
      return kMovieStatusIOError;
    default:
      break;
  }
  if (facts.networkURL) return kMovieStatusCannotReachStream;
  switch (code) {
    case GST_RESOURCE_ERROR_NOT_FOUND:
      return kMovieStatusFileNotFound;
    case GST_RESOURCE_ERROR_NOT_AUTHORIZED:
      return kMovieStatusPermissionDenied;
    case GST_RESOURCE_ERROR_OPEN_READ:
    case GST_RESOURCE_ERROR_OPEN_READ_WRITE:
      if (!facts.localPath.empty() && access(facts.localPath.c_str(), R_OK) != 0)
        return access(facts.localPath.c_str(), F_OK) != 0 ? kMovieStatusFileNotFound
                                                          : kMovieStatusPermissionDenied;
      return kMovieStatusIOError;
    default:
      return kMovieStatusIOError;
  }
}

}  // namespace

int32_t movieStatusForError(const MovieErrorFacts& facts) {
  if (facts.httpStatus >= 300) return int32_t(facts.httpStatus);
  if (!facts.error) return kMovieStatusNotAMovie;
  GQuark domain = facts.error->domain;
  int code = facts.error->code;
  if (domain == GST_RESOURCE_ERROR) return resourceStatus(code, facts);
  if (domain == GST_STREAM_ERROR && code == GST_STREAM_ERROR_FAILED)
    return facts.networkURL && facts.fromSource ? kMovieStatusCannotReachStream : kMovieStatusNotAMovie;
  return kMovieStatusNotAMovie;
}

}  // namespace belvane::detail
