// StreamConnection: one libcurl request for a stream, with Shoutcast's ways.
//
// Sends "Icy-MetaData: 1", follows redirects, and reads the reply head
// whether it is HTTP (parsed by libcurl) or Shoutcast's "ICY 200 OK": libcurl
// is told to accept replies without an HTTP status line (HTTP/0.9 style),
// hands those over as body bytes, and the ICY status line and header block
// are read here. That also covers "ICY 404 Not Found" and other ICY
// statuses, which libcurl's 200-alias option would not. A status that is not
// a success and (unless told otherwise) an AAC content type end the request with their error code;
// otherwise the head and then the payload go to the handler.
//
// A connection may also take over a reply the tuner already opened (see
// HeldStream): its head is judged the same way and its body read from there.
//
// Time-outs: the head must be complete within the connect time-out; after
// it, any silence longer than the stall time-out ends the request. cancel()
// ends run() promptly from any thread.
#pragma once

#include <belvane/BVRequestSettings.h>

#include "streaming/icy_metadata.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace belvane::detail {

class HeldStream;

class StreamConnection {
 public:
  class Handler {
   public:
    virtual ~Handler() = default;
    // The reply head of a successful reply (status 0 for a reply without a
    // head: a file or a bare stream). Returns 0 to go on, else an error code.
    virtual int32_t head(const StreamReplyHead& head) = 0;
    // Payload bytes. Returns 0 to go on, kStop, or an error code.
    virtual int32_t body(std::span<const uint8_t> bytes) = 0;
  };
  static constexpr int32_t kStop = -1;

  struct Result {
    int32_t error = 0;         // 0: the reply ended without error
    bool declaredEnd = false;  // it ended where it said it would (length, chunked end, file)
    bool cancelled = false;    // cancel() or the handler's kStop
    bool headSeen = false;
  };

  // settings: the player's user agent, extra header fields and proxy (null:
  // the defaults).
  StreamConnection(const std::string& url, double connectTimeout, double stallTimeout,
                   const BVRequestSettingsRef& settings = nullptr);
  StreamConnection(const std::string& url, std::shared_ptr<HeldStream> held, double stallTimeout);
  ~StreamConnection();
  StreamConnection(const StreamConnection&) = delete;
  StreamConnection& operator=(const StreamConnection&) = delete;

  Result run(Handler& handler);
  void cancel();
  // Whether an AAC content type ends the request (the default: the MP3
  // decoder cannot play it); call before run().
  void setRefusesAAC(bool refuses);
  // Asks for the body from this byte on (a Range request; the reply says
  // whether it was taken: 206); call before run(). Not for a held reply.
  void setStartOffset(uint64_t offset);

  // The address libcurl is given: icy:// and shttp:// become http://.
  static std::string fetchableURL(const std::string& url);

 private:
  struct Impl;
  Result runHeld(Handler& handler);
  std::unique_ptr<Impl> impl_;
};

}  // namespace belvane::detail
