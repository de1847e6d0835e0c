// IcyTestServer: a loopback Shoutcast-style server for stream tests.
//
// Serves MPEG audio frames with ICY metadata blocks every `metaint` audio
// bytes, under an "ICY 200 OK" or an HTTP status line, and records where each
// title went: its audio byte offset and the number of samples in the frames
// that start before it, which is where a decoder places the title's audio.
// A script can end the stream cleanly (with Content-Length over HTTP), drop
// the connection, stall, send noise or AAC instead of MP3, and chain MP3
// data of different sample rates. Each connection to a path takes the next
// script of that path's list (the last one repeats), so "drop, then serve
// normally" and "drop, then answer 404" are one list.
//
//   IcyTestServer server;
//   IcyStreamScript script;
//   script.audio = {stereoTone44k()};
//   server.serve("/live", {script});
//   start(server.url("/live"));
#pragma once

#include "support/mp3_test_data.h"
#include "support/test_http_server.h"

#include <chrono>
#include <functional>
#include <optional>
#include <memory>
#include <string>
#include <vector>

namespace belvane::test {

inline const std::string kEmptyStreamTitle = "\x01";

struct IcyStreamScript {
  enum class Payload { Mp3, Noise, Adts };
  enum class End { Close, Stall };

  std::string statusLine = "ICY 200 OK";  // or "HTTP/1.0 200 OK", "ICY 404 Not Found"
  std::string contentType = "audio/mpeg";
  std::vector<std::pair<std::string, std::string>> headers;  // added after the standard ones
  uint32_t metaint = 8192;                                    // 0: no metadata blocks
  // The title for metadata block n (0-based); "" sends an empty block, and
  // kEmptyStreamTitle the title '' (a station clearing its title).
  // Default: "Title n" for every fourth block, empty ones between.
  std::function<std::string(int block)> titleForBlock;
  // The StreamUrl sent with block n's title; default none (StreamUrl='').
  std::function<std::string(int block)> streamURLForBlock;

  Payload payload = Payload::Mp3;
  std::vector<const Mp3Data*> audio;  // played in turn, round and round
  uint64_t audioBytes = 4'000'000;    // audio bytes sent before the end
  End end = End::Close;
  double stallSeconds = 0;  // End::Stall: how long before closing (0: until the client goes)
  // Nothing after the head until this moment, then the audio: a server
  // whose source froze and that comes back on every open connection at once.
  std::optional<std::chrono::steady_clock::time_point> silentUntil;
  // HTTP status lines only: send Content-Length (a declared end).
  bool contentLength = false;
  // Sent at the audio's own pace (1.0: real time), as a station's source
  // plays; 0: as fast as the client reads.
  double pace = 0;
};

// `script` carrying another payload, served as contentType.
inline IcyStreamScript withPayload(IcyStreamScript script, IcyStreamScript::Payload payload, std::string contentType) {
  script.payload = payload;
  script.contentType = std::move(contentType);
  return script;
}

// Where a title went in the audio of its connection.
struct IcyTitleMark {
  int connection = 0;
  std::string title;
  uint64_t audioOffset = 0;     // audio bytes before the metadata block
  uint64_t samplesBefore = 0;   // samples of the frames that start before it
};

class IcyTestServer {
 public:
  explicit IcyTestServer(int port = 0);  // see TestHTTPServer
  ~IcyTestServer();

  // The connections from now on take the scripts in turn (the last repeats).
  void serve(const std::string& path, std::vector<IcyStreamScript> scriptsByConnection);
  std::string url(const std::string& path) const { return http_.url(path); }
  TestHTTPServer& http() { return http_; }

  // Connections made to a path so far.
  int connections(const std::string& path) const;
  // Titles sent so far, in order, over all paths.
  std::vector<IcyTitleMark> titles() const;

  struct State;  // shared with the connections' writers

 private:
  std::shared_ptr<State> state_;
  TestHTTPServer http_;
};

}  // namespace belvane::test
