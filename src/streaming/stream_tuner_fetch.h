// TunerFetch: one look at a URL for the stream tuner. It GETs the URL on the
// calling thread's run loop and reads only as much as it needs: the response
// (or a Shoutcast "ICY" header block), the first bytes when the content type
// leaves doubt, and the whole body only for a playlist (capped). A stream's
// connection is cut as soon as it is known to be one.
#pragma once

#include <belvane/BVError.h>
#include <belvane/BVRunLoop.h>
#include <belvane/BVURL.h>
#include <belvane/BVURLConnection.h>

#include "streaming/icy_metadata.h"
#include "streaming/stream_tuner_sniff.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace belvane::detail {

class HeldStream;

// Silence allowed while connecting and between bytes.
inline constexpr double kTunerFetchTimeout = 15.0;
// The longest a whole look may take (a server that trickles).
inline constexpr double kTunerFetchDeadline = 30.0;
// A playlist is never this large; a body that grows past it is refused.
inline constexpr size_t kTunerMaximumPlaylistLength = 1024 * 1024;
// A Shoutcast header block ends well before this.
inline constexpr size_t kTunerMaximumRawHeaderLength = 16 * 1024;

struct TunerFetchResult {
  enum class Kind { Stream, Playlist, Failed };
  Kind kind = Kind::Failed;
  // Stream: the content type as the server sent it; nothing when it sent none.
  std::optional<std::string> mimeType;
  // Playlist: its format and decoded text.
  PlaylistFormat format = PlaylistFormat::None;
  std::string text;
  // The URL that answered, after redirects (the base of relative entries).
  std::optional<BVURL> finalURL;
  // Failed: an HTTP status, an ICY refusal, the network error, a time-out.
  BVErrorRef error;
  // Stream: the open reply, for a streamer that plays it at once.
  std::shared_ptr<HeldStream> held;
};

class TunerFetch final : public BVURLConnectionDelegate, public std::enable_shared_from_this<TunerFetch> {
 public:
  using Completion = std::function<void(TunerFetchResult result)>;

  // Starts at once; completion is called once, on the calling thread's run
  // loop, unless the fetch is cancelled or destroyed first. settings: the
  // player's user agent, extra header fields and proxy (null: the defaults).
  static std::shared_ptr<TunerFetch> start(const BVURL& url, const BVRequestSettingsRef& settings,
                                           Completion completion);
  ~TunerFetch() override;
  // No completion call after this returns.
  void cancel();

  TunerFetch(BVURL url, Completion completion);

 private:
  enum class Phase { AwaitingResponse, RawReply, Sniffing, ReadingPlaylist, Done };

  void connectionDidReceiveResponse(BVURLConnection& connection, const BVURLResponse& response) override;
  void connectionDidReceiveData(BVURLConnection& connection, std::span<const uint8_t> data) override;
  void connectionDidFinishLoading(BVURLConnection& connection) override;
  void connectionDidFailWithError(BVURLConnection& connection, const BVErrorRef& error) override;

  // Moves on with what has arrived; complete: the body has ended.
  void advance(bool complete);
  void readRawHeader(bool complete);
  void decideFromHeaders();
  void sniff(bool complete);
  void finishPlaylist();
  void finishStream(std::optional<std::string> mimeType, bool holdReply = true);
  void finishHLS();
  void fail(BVErrorRef error);
  void finish(TunerFetchResult result);

  BVURL url_;
  Completion completion_;
  BVURLConnectionRef connection_;
  BVDelayedPerform deadline_;  // the whole fetch's time limit
  Phase phase_ = Phase::AwaitingResponse;
  std::optional<BVURL> finalURL_;
  std::optional<std::string> contentType_;
  StreamReplyHead head_;
  TunerContentHint hint_;
  PlaylistFormat format_ = PlaylistFormat::None;
  std::vector<uint8_t> body_;
};

}  // namespace belvane::detail
