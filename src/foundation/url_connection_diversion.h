// URLConnectionDiversion: takes a running BVURLConnection's remaining body
// away from its delegate and the run loop.
//
// Once diverted, body bytes and the end of the transfer go to the diversion
// directly on the connection's worker thread, in order: bytes the run loop
// still had queued are forwarded first, then the worker delivers directly.
// The diversion may pause the transfer by refusing more (divertedCanAccept)
// and lets it go on with resume(). Used to hand an open stream reply from
// one component to another thread without asking the server again.
#pragma once

#include <belvane/BVError.h>
#include <belvane/BVURLConnection.h>

#include <cstdint>
#include <memory>
#include <span>

namespace belvane::detail {

class URLConnectionDiversion {
 public:
  virtual ~URLConnectionDiversion() = default;
  // Called one at a time, in order, on the worker thread or the run loop.
  virtual void divertedData(std::span<const uint8_t> bytes) = 0;
  // The transfer ended: error is null when it finished loading.
  virtual void divertedEnd(const BVErrorRef& error) = 0;
  // False pauses the transfer until resume().
  virtual bool divertedCanAccept() = 0;
};

struct URLConnectionAccess {
  // Call on the connection's run loop, after its final response. The
  // connection keeps only a weak reference to the diversion.
  static void divert(BVURLConnection& connection, const std::shared_ptr<URLConnectionDiversion>& diversion);
  // Thread-safe: a transfer paused by divertedCanAccept() asks again.
  static void resume(BVURLConnection& connection);
};

}  // namespace belvane::detail
