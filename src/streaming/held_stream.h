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
// the rest of the body, which is then decoded on the connection's own thread.
#pragma once

#include <belvane/BVURLConnection.h>

#include "foundation/thread_annotations.h"
#include "foundation/url_connection_diversion.h"
#include "streaming/icy_metadata.h"

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace belvane::detail {

class HeldStream final : public URLConnectionDiversion {
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
  // Keeps the reply on offer for another kParkSeconds: a player that
  // declined it (the MP3 streamer, for an AAC or Ogg station) hands the
  // station to another engine, which takes the reply over in turn. Then it
  // closes, unless taken.
  static constexpr double kParkSeconds = 10.0;
  static void park(const std::string& url, const std::shared_ptr<HeldStream>& stream);
  // The reply offered for url, if any; it is no longer offered afterwards.
  static std::shared_ptr<HeldStream> take(const std::string& url);

  const StreamReplyHead& head() const { return head_; }

  // Hands the body to consumer from now on: the bytes held so far at once
  // on the calling thread, the rest on the connection's own thread as they
  // arrive (one call at a time, in order), so that no thread sits between
  // the socket and the consumer. A false return ends the reply.
  using Consumer = std::function<bool(std::span<const uint8_t>)>;
  void attach(Consumer consumer);
  // No consumer call is in progress or will follow once this returns.
  void detach();

  enum class End { None, Finished, Failed, Stopped };
  // Waits up to timeout seconds for the reply to end (or cancel()).
  End waitForEnd(double timeout);
  // Thread-safe: ends the reply.
  void cancel();

  HeldStream(StreamReplyHead head, std::vector<uint8_t> firstBytes, BVURLConnectionRef connection);

 private:
  void divertedData(std::span<const uint8_t> bytes) override;
  void divertedEnd(const BVErrorRef& error) override;
  bool divertedCanAccept() override;

  // Takes the consumer's verdict; false ends the reply.
  bool consume(std::span<const uint8_t> bytes) REQUIRES(consumerMutex_);
  void ended(End how);

  const StreamReplyHead head_;
  const BVURLConnectionRef connection_;
  // Held by whoever calls the consumer, so calls never overlap or reorder.
  Mutex consumerMutex_;
  Consumer consumer_ GUARDED_BY(consumerMutex_);
  Mutex mutex_;
  std::condition_variable changed_;
  std::vector<uint8_t> bytes_ GUARDED_BY(mutex_);  // held until a consumer attaches
  End end_ GUARDED_BY(mutex_) = End::None;
  bool cancelled_ GUARDED_BY(mutex_) = false;
};

}  // namespace belvane::detail
