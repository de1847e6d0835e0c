// The bounded synchronous download under BVWebPlaylist::load(): the
// connection runs on a private run loop that the calling thread turns until
// the body is in, the transfer fails, or the overall deadline passes (a
// server that trickles a line now and then cannot hold the caller longer).
#pragma once

#include <belvane/BVError.h>
#include <belvane/BVURLConnection.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace belvane::detail {

// The body, or nothing with *error set: the connection's failure, a
// BVURLErrorDataLengthExceedsMaximum error past maxBytes, or
// playlistTimeoutError() once `deadline` seconds have gone.
std::optional<std::vector<uint8_t>> downloadPlaylist(const BVURLRequest& request, double deadline, size_t maxBytes,
                                                     BVErrorRef* error);

// BVURLErrorTimedOut: the playlist did not arrive within `deadline` seconds.
BVErrorRef playlistTimeoutError(double deadline);

}  // namespace belvane::detail
