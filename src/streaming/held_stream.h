// HeldStream: a stream reply the tuner opened, kept for the streamer.
//
// The tuner GETs a station's address to tell a playlist from a stream. When
// it is a stream, closing that reply only for the streamer to ask again
// costs a second answer from the server, and Icecast serves a new listener
// only when its source has filled its next 1400-byte block: at 128 kbit/s
// that is several hundred milliseconds before the first audio. So the tuner
// keeps the reply open while it offers the stream (the request already asked
// for interleaved titles), and a streamer started for the same address
// during the offer takes it over: its reply head, the bytes already read and
// the rest of the body, which now arrive on the connection's own thread.
#pragma once

#include <belvane/BVURLConnection.h>

#include "foundation/url_connection_diversion.h"
#include "streaming/icy_metadata.h"

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace belvane::detail {

class HeldStream final : public URLConnectionDiversion, public std::enable_shared_from_this<HeldStream> {
 public:
  // Bytes held before the transfer is paused.
  static constexpr size_t kMaxHeldBytes = 1024 * 1024;

  // Takes over connection (after its final response, on its run loop) with
  // the reply's head and the body bytes read so far.
  static std::shared_ptr<HeldStream> create(StreamReplyHead head, std::vector<uint8_t> firstBytes,
                                            BVURLConnectionRef connection);
  ~HeldStream() override;

  // Makes the reply available to take() for url until withdraw().
  static void offer(const std::string& url, const std::shared_ptr<HeldStream>& stream);
  static void withdraw(const std::string& url, const std::shared_ptr<HeldStream>& stream);
  // The reply offered for url, if any; it is no longer offered afterwards.
  static std::shared_ptr<HeldStream> take(const std::string& url);

  const StreamReplyHead& head() const { return head_; }

  struct Piece {
    enum class Kind { Bytes, Ended, Failed, Cancelled, Silent };
    Kind kind = Kind::Silent;
    std::vector<uint8_t> bytes;
  };
  // Everything that has arrived, or how the reply ended, waiting up to
  // timeout seconds for either.
  Piece next(double timeout);
  // Thread-safe: ends the reply; next() returns Cancelled.
  void cancel();

  HeldStream(StreamReplyHead head, std::vector<uint8_t> firstBytes, BVURLConnectionRef connection);

 private:
  void divertedData(std::span<const uint8_t> bytes) override;
  void divertedEnd(const BVErrorRef& error) override;
  bool divertedCanAccept() override;

  const StreamReplyHead head_;
  const BVURLConnectionRef connection_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<uint8_t> bytes_;
  bool ended_ = false;
  bool failed_ = false;
  bool cancelled_ = false;
};

}  // namespace belvane::detail
