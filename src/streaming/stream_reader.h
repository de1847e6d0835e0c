// StreamReader: reads one station address to its end with the live policy
// that every decoder in the library shares.
//
// The first connection takes over the tuner's open reply for the address
// when there is one (see HeldStream), so the station is asked only once.
// A reply that ends where it said it would (a length, a chunked end, a
// file) is an end. A reply with a length that breaks before its end is
// resumed where it broke when its server takes Range requests, and fails
// otherwise: a file is never played again from its start. A live stream
// that breaks (an error on the way, a stall longer than the stall time-out,
// a close without a declared end) after it has played is opened again on a
// fresh connection, after 0.5 s, 1 s, then every 2 s, within the
// reconnection window (the player's patience); a try counts as back only
// when it has delivered enough to play again. Only then does the reader
// give up with the last error. A stream that fails before it has played
// fails at once. The network's state steers the tries (see NetworkWatch):
// the network coming back or a resume from suspend makes the next try at
// once, and an outage of the machine's own network does not use up the
// window.
//
// The client decodes: it gets each connection's head and bytes on the
// thread that reads them (run()'s caller, or the held reply's own transfer
// thread) and says what counts as played. cancel() ends run() promptly
// from any thread.
#pragma once

#include "foundation/thread_annotations.h"
#include "streaming/icy_metadata.h"
#include "streaming/shoutstreamer_connection.h"

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>
#include <span>
#include <string>

namespace belvane::detail {

class HeldStream;

// The pace of reconnection every reader keeps unless told otherwise: the
// pause before the first try, doubled for each next one up to the longest.
inline constexpr double kStreamReconnectFirstDelay = 0.5;
inline constexpr double kStreamReconnectMaxDelay = 2.0;

struct StreamReaderPolicy {
  double connectTimeout = 10.0;      // seconds from the request to the end of the reply head
  double stallTimeout = 8.0;         // seconds without a byte once the head is in
  double reconnectWindow = 10.0;     // seconds after a drop during which reconnection is tried
  double reconnectFirstDelay = kStreamReconnectFirstDelay;  // pause before the first try; doubled for each next one
  double reconnectMaxDelay = kStreamReconnectMaxDelay;  // up to this, so a server that is back is heard within ~3 s
  // Whether the machine's news count: a network that comes back or changes,
  // or a resume from suspend, cuts a pause short; while the network is known
  // to be down, a station on another machine is not tried and the time does
  // not count against the window.
  bool followNetwork = true;
  // Content types a connection refuses with an error (SHOUTSTREAMER_ERROR_AAC
  // for AAC): the MP3 decoder refuses AAC, the general one nothing.
  bool refuseAAC = true;
  // The byte of the body to start at (a seek in a file whose server takes
  // Range requests); 0 takes the tuner's reply when there is one.
  uint64_t startOffset = 0;
  // The player's user agent, extra header fields and proxy for every
  // connection (null: the defaults).
  BVRequestSettingsRef requestSettings;
  // Other addresses of the same station (the other entries of the playlist
  // it came from), tried in turn with its own when reconnecting: a mirror
  // that is up brings the station back while its first server is away.
  std::vector<std::string> alternates;
};

// How a reading's connection fares, for the listener's view of it.
struct StreamReaderProgress {
  int32_t reconnectAttempts = 0;  // fresh connections tried after breaks, since the reading began
  bool broken = false;            // from a break until the next connection answers
};

// The reconnection window for a player's patience in seconds: 0 is the
// short window of 10 s.
inline double reconnectWindowForPatience(double patience) { return patience > 0 ? patience : 10.0; }

class StreamReader {
 public:
  class Client {
   public:
    virtual ~Client() = default;
    // A connection's reply head (the first, and each reconnection's).
    // Returns 0 to go on, else an error code.
    virtual int32_t head(const StreamReplyHead& head) = 0;
    // Payload bytes. Returns 0 to go on, StreamConnection::kStop, or an error code.
    virtual int32_t body(std::span<const uint8_t> bytes) = 0;
    // The connection whose head() came ended; bytes still held for it are
    // handed on.
    virtual void connectionEnded() {}
    // Enough has been played in all that a break is worth reconnecting.
    virtual bool hasPlayed() const = 0;
    // The connection that just ended (after its head()) delivered enough to
    // count as back.
    virtual bool connectionPlayed() const = 0;
    // The error for a stream whose connection ended cleanly: 0 when audio
    // came, else why none did (no bytes, or bytes that were not audio).
    virtual int32_t silentEndError() const = 0;
    // The stream broke and the reader is about to try again (try 1, 2, ...).
    virtual void reconnecting(int attempt) { (void)attempt; }
  };

  // Takes the tuner's reply for url now, if one is on offer.
  StreamReader(std::string url, StreamReaderPolicy policy);
  ~StreamReader();
  StreamReader(const StreamReader&) = delete;
  StreamReader& operator=(const StreamReader&) = delete;

  struct Outcome {
    int32_t error = 0;       // 0: the stream ended (or was cancelled) without error
    bool cancelled = false;  // cancel() or the client's kStop
  };
  // Reads until the stream ends, fails for good or is cancelled.
  Outcome run(Client& client);
  // Thread-safe: ends run() promptly; a later run() returns at once.
  void cancel();

  const std::string& url() const { return url_; }
  // Whether the first connection reads the tuner's open reply.
  bool tookHeldReply() const { return held_ != nullptr; }

 private:
  struct Attempt {
    StreamConnection::Result result;
    bool played = false;
  };
  // What the first head said of a body with a length, and how far it got.
  struct Finite {
    bool known = false;       // the first head declared a length
    bool resumable = false;   // and its server takes Range requests
    uint64_t delivered = 0;   // body bytes handed on, counted from the start
  };
  Attempt connectOnce(Client& client, double connectTimeout, uint64_t offset);
  bool resume(Client& client, Attempt* attempt);
  bool reconnect(Client& client, Attempt* resumed, int32_t* error);
  bool pause(double seconds);
  bool isCancelled();
  bool networkKnownDown() const;

  std::string url_;  // the address read now (an alternate after a reconnection to it); reading thread
  std::vector<std::string> addresses_;  // url_'s first, then the policy's alternates
  size_t current_ = 0;                  // which of addresses_ url_ is
  const StreamReaderPolicy policy_;
  std::shared_ptr<HeldStream> held_;
  Finite finite_;
  // Guards the current connection and the pause between tries, so cancel()
  // can cut either short.
  Mutex mutex_;
  std::condition_variable changed_;
  bool cancelled_ GUARDED_BY(mutex_) = false;
  bool networkNews_ GUARDED_BY(mutex_) = false;  // the network changed or the machine resumed
  StreamConnection* connection_ GUARDED_BY(mutex_) = nullptr;
};

// Whether an outcome is a break in a live stream (worth reconnecting once
// it has played) rather than an end or a failure of the stream itself.
bool isStreamDrop(const StreamConnection::Result& result);

}  // namespace belvane::detail
