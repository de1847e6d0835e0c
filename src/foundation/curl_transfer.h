// One libcurl transfer driven by a multi handle on the calling thread, with
// a precise idle time-out, prompt cancellation from any thread, and
// back-pressure: the sink may pause the transfer while its consumer catches up.
#pragma once

#include <belvane/BVURLConnection.h>

#include <atomic>
#include <functional>
#include <memory>
#include <span>

namespace belvane::detail {

struct TransferSink {
  // A header block finished; redirect is true for a followed 3xx.
  std::function<void(const BVURLResponse& response, bool redirect, const std::optional<BVURL>& location)> onResponse;
  // Body bytes, always taken.
  std::function<void(std::span<const uint8_t>)> onData;
  // Asked before each piece of body; false pauses the transfer (the piece is
  // kept) until resume() and a later true.
  std::function<bool()> canAccept;
};

class CurlTransfer {
 public:
  explicit CurlTransfer(const BVURLRequest& request);
  ~CurlTransfer();
  CurlTransfer(const CurlTransfer&) = delete;
  CurlTransfer& operator=(const CurlTransfer&) = delete;

  // Runs the transfer to its end; returns nothing on success, else the error.
  BVErrorRef run(TransferSink& sink);
  // Thread-safe: ends run() soon with a cancellation error.
  void cancel();
  // Thread-safe: lets a paused transfer go on.
  void resume();
  bool responseSeen() const { return responseSeen_; }

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
  bool responseSeen_ = false;
};

BVErrorRef errorForCurlCode(int curlCode, const std::string& url, const char* detail);

}  // namespace belvane::detail
