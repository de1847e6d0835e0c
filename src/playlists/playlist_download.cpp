#include "playlists/playlist_download.h"

#include <belvane/BVRunLoop.h>

#include <cmath>

namespace belvane::detail {

namespace {

class Collector final : public BVURLConnectionDelegate {
 public:
  explicit Collector(size_t maxBytes) : maxBytes_(maxBytes) {}
  std::vector<uint8_t> body;
  BVErrorRef error;
  bool done = false;

  void connectionDidReceiveData(BVURLConnection& connection, std::span<const uint8_t> data) override {
    if (body.size() + data.size() > maxBytes_) {
      connection.cancel();
      settle(BVError::withDescription(BVURLErrorDomain, BVURLErrorDataLengthExceedsMaximum,
                                      "The resource is larger than " + std::to_string(maxBytes_) + " bytes."));
      return;
    }
    body.insert(body.end(), data.begin(), data.end());
  }
  void connectionDidFinishLoading(BVURLConnection&) override { settle(nullptr); }
  void connectionDidFailWithError(BVURLConnection&, const BVErrorRef& failure) override { settle(failure); }

 private:
  void settle(BVErrorRef failure) {
    if (done) return;
    done = true;
    error = std::move(failure);
  }
  size_t maxBytes_;
};

}  // namespace

std::optional<std::vector<uint8_t>> downloadPlaylist(const BVURLRequest& request, double deadline, size_t maxBytes,
                                                     BVErrorRef* error) {
  Collector collector(maxBytes);
  {
    BVRunLoop::ThreadScope scope;
    BVURLConnectionRef connection = BVURLConnection::start(request, &collector);
    if (!connection) {
      if (error) *error = BVError::withDescription(BVURLErrorDomain, BVURLErrorBadURL, "The playlist cannot be loaded.");
      return std::nullopt;
    }
    bool finished = scope.loop().runUntil([&] { return collector.done; }, deadline);
    // No delegate call reaches the collector after this.
    connection->cancel();
    if (!finished) collector.error = playlistTimeoutError(deadline);
  }
  if (error) *error = collector.error;
  if (collector.error) return std::nullopt;
  return std::move(collector.body);
}

BVErrorRef playlistTimeoutError(double deadline) {
  return BVError::withDescription(BVURLErrorDomain, BVURLErrorTimedOut,
                                  "The playlist did not arrive within " + std::to_string(int(std::lround(deadline))) +
                                      " seconds.");
}

}  // namespace belvane::detail
