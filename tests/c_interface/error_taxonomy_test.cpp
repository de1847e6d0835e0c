// The errors of BVErrorCodes.h as a host receives them: each row plays a
// real fault (a loopback server's reply, a file, an output) through the C
// interface and checks the domain and code the playback ends with, that the
// description reads as a sentence for a listener, and that
// bv_error_is_retryable() sorts it as the header does.
#include <gtest/gtest.h>

#include <belvane/BVErrorCodes.h>
#include <belvane/BVRunLoop.h>
#include <belvane/belvane.h>

#include "support/gst_media_files.h"
#include "support/icy_test_server.h"
#include "support/mp3_test_data.h"
#include "support/temp_dir.h"

#include <functional>
#include <optional>
#include <string>

using namespace belvane::test;

namespace {

struct Ended {
  std::string domain, description;
  int64_t code = 0;
};

// What the faults are played against: the servers and a folder of files.
struct Faults {
  TestHTTPServer http;
  IcyTestServer icy;
  TempDir dir;
};

struct Fault {
  const char* name;
  std::function<std::string(Faults&)> link;  // sets the fault up, returns what to play
  const char* domain;
  int64_t code;
  bool retry;  // as the header marks the code
  std::string output = "null:fast";
};

IcyStreamScript icyScript(IcyStreamScript::Payload payload, uint64_t audioBytes, IcyStreamScript::End end) {
  IcyStreamScript s;
  s.audio = {stereoTone44k()};
  s.audioBytes = audioBytes;
  s.end = end;
  return withPayload(s, payload, "audio/mpeg");
}

// Plays link until the playback fails (nothing when it does not within 20 s).
std::optional<Ended> playUntilError(const std::string& link, const std::string& output) {
  std::optional<Ended> ended;
  bv_player* player = bv_player_create();
  bv_player_set_state_callback(
      player,
      [](bv_player*, bv_state, bv_state to, const bv_player_error* error, void* userdata) {
        auto& ended = *static_cast<std::optional<Ended>*>(userdata);
        if (to == BV_STATE_ERROR && error && !ended)
          ended = Ended{error->domain ? error->domain : "", error->description ? error->description : "", error->code};
      },
      &ended);
  EXPECT_EQ(bv_player_set_audio_output(player, output.c_str()), BV_OK);
  EXPECT_EQ(bv_player_set_reconnect_patience(player, 0), BV_OK);
  if (bv_player_play(player, link.c_str(), nullptr) == BV_OK)
    BVRunLoop::main().runUntil([&] { return ended.has_value() || bv_player_get_state(player) == BV_STATE_STOPPED; },
                               20.0);
  bv_player_destroy(player);
  return ended;
}

std::string fourcc(int64_t code) {
  std::string text;
  for (int shift = 24; shift >= 0; shift -= 8) {
    char c = char((uint32_t(code) >> shift) & 0xFF);
    text += (c >= 0x20 && c < 0x7F) ? c : '?';
  }
  return text;
}

}  // namespace

TEST(ErrorTaxonomy, EachFaultEndsInItsListedError) {
  BELVANE_SKIP_WITHOUT_LAME();
  using Script = IcyStreamScript;
  const std::string refused = "127.0.0.1:" + std::to_string(TestHTTPServer::refusedPort());
  const std::string mp3 = stereoTone44k()->bytes;
  TempDir media;
  const std::string ogg = readWholeFile(writeMediaFile(media.path() + "/tone.ogg", MediaKind::OggVorbis, 1.0));
  auto served = [](const std::string& path, Response reply) {
    return [=](Faults& f) {
      f.http.route(path, reply);
      return f.http.url(path);
    };
  };
  auto status = [&](const char* line) { return served("/s", Response(line)); };
  auto file = [](const std::string& name, const std::string& bytes) {
    return [=](Faults& f) { return f.dir.write(name, bytes); };
  };
  // The search for the stream passes; the engine's own connection fails
  // (and keeps failing for the short reconnection window, 10 s).
  auto streamThen = [](Script first, Script later) {
    return [=](Faults& f) {
      f.icy.serve("/s", {first, later});
      return f.icy.url("/s");
    };
  };
  Script tone = icyScript(Script::Payload::Mp3, 200'000, Script::End::Stall);
  Script http503 = tone;
  http503.statusLine = "HTTP/1.0 503 Service Unavailable";
  const Fault faults[] = {
      // Finding the stream (the MP3 engine's tuner).
      {"refused port", [&](Faults&) { return "http://" + refused + "/live"; }, BV_ERROR_DOMAIN_URL,
       BV_URL_ERROR_CANNOT_CONNECT_TO_HOST, true},
      {"ICY 404", status("ICY 404 Resource Not Found"), BV_ERROR_DOMAIN_HTTP, 404, false},
      {"ICY 401", status("ICY 401 Service Unavailable"), BV_ERROR_DOMAIN_HTTP, 401, false},
      {"ICY 503", status("ICY 503 Server Full"), BV_ERROR_DOMAIN_HTTP, 503, true},
      {"HTTP 404", [](Faults& f) { return f.http.url("/nowhere"); }, BV_ERROR_DOMAIN_HTTP, 404, false},
      {"HTTP 401", status("HTTP/1.1 401 Unauthorized"), BV_ERROR_DOMAIN_HTTP, 401, false},
      {"HTTP 503", status("HTTP/1.1 503 Service Unavailable"), BV_ERROR_DOMAIN_HTTP, 503, true},
      {"malformed status line", status("HTTP/1.1 2x0 Fine"), BV_ERROR_DOMAIN_URL, BV_URL_ERROR_BAD_SERVER_RESPONSE,
       false},
      {"redirect loop",
       [](Faults& f) {
         f.http.route("/s", Response::redirect(f.http.url("/s")));
         return f.http.url("/s");
       },
       BV_ERROR_DOMAIN_URL, BV_URL_ERROR_TOO_MANY_REDIRECTS, false},
      {"playlist over the cap",
       served("/s.m3u", Response::ok("audio/x-mpegurl").generate(repeatBytes("http://127.0.0.1/x\n", 3'000'000))),
       BV_ERROR_DOMAIN_STREAM_TUNER, BV_STREAM_TUNER_PLAYLIST_TOO_LARGE, false},
      {"playlist listing nothing", served("/s.pls", Response::ok("audio/x-scpls", "[playlist]\nNumberOfEntries=0\n")),
       BV_ERROR_DOMAIN_STREAM_TUNER, BV_STREAM_TUNER_NO_STREAMS, false},
      {"unsupported scheme", [](Faults&) { return std::string("gopher://127.0.0.1/radio"); },
       BV_ERROR_DOMAIN_STREAM_TUNER, BV_STREAM_TUNER_NO_PLAYABLE_STREAM, false},
      {"missing file", [](Faults& f) { return f.dir.path() + "/missing.mp3"; }, BV_ERROR_DOMAIN_URL,
       BV_URL_ERROR_FILE_DOES_NOT_EXIST, false},
      // The MP3 engine's stream.
      {"HTTP 503 on the stream", streamThen(tone, http503), BV_ERROR_DOMAIN_SHOUTSTREAMER,
       BV_SHOUTSTREAMER_HTTP_STATUS(503), true},
      {"web page", served("/s", Response::ok("text/html", "<html><body>Listen!</body></html>")),
       BV_ERROR_DOMAIN_SHOUTSTREAMER, BV_SHOUTSTREAMER_WEB_PAGE, false},
      {"garbage bytes",
       [](Faults& f) {
         f.icy.serve("/s", {icyScript(Script::Payload::Noise, 200'000, Script::End::Stall)});
         return f.icy.url("/s");
       },
       BV_ERROR_DOMAIN_SHOUTSTREAMER, BV_SHOUTSTREAMER_NOT_MPEG, false},
      {"MP3 file that is not audio", file("notes.mp3", noiseBytes(40000)), BV_ERROR_DOMAIN_SHOUTSTREAMER,
       BV_SHOUTSTREAMER_NOT_MPEG, false},
      {"closed before audio",
       [](Faults& f) {
         f.icy.serve("/s", {icyScript(Script::Payload::Mp3, 0, Script::End::Close)});
         return f.icy.url("/s");
       },
       BV_ERROR_DOMAIN_SHOUTSTREAMER, BV_SHOUTSTREAMER_NO_AUDIO, true},
      {"WAV output in a missing folder", file("tone.mp3", mp3), BV_ERROR_DOMAIN_BELVANE, BV_BELVANE_OUTPUT_WAV_FILE,
       false, "wav:/nonexistent-folder/out.wav"},
      // The general engine.
      {"file that is not media", file("notes.ogg", std::string(4000, 'x')), BV_ERROR_DOMAIN_OS_STATUS,
       BV_OS_STATUS_NOT_A_MOVIE, false},
      {"garbage served as Ogg", served("/s.ogg", Response::ok("application/ogg", noiseBytes(40000))),
       BV_ERROR_DOMAIN_OS_STATUS, BV_OS_STATUS_NOT_A_MOVIE, false},
      {"WAV output in a missing folder, general engine", file("tone.ogg", ogg), BV_ERROR_DOMAIN_BELVANE,
       BV_BELVANE_OUTPUT_WAV_FILE, false, "wav:/nonexistent-folder/out.wav"},
      // The RealMedia engine.
      {"RealMedia server refused", [&](Faults&) { return "rtsp://" + refused + "/a.rm"; }, BV_ERROR_DOMAIN_HELIX,
       BV_HELIX_SERVER_UNREACHABLE, true},
  };
  for (const Fault& fault : faults) {
    SCOPED_TRACE(fault.name);
    Faults f;
    std::optional<Ended> ended = playUntilError(fault.link(f), fault.output);
    if (!ended) {
      ADD_FAILURE() << "no error";
      continue;
    }
    EXPECT_EQ(ended->domain, fault.domain);
    EXPECT_EQ(ended->code, fault.code) << fourcc(ended->code);
    EXPECT_FALSE(ended->description.empty());
    // Not "error code 1333223798": a status (404) may be named, a code not.
    if (ended->code >= 1000 || ended->code <= -1000)
      EXPECT_EQ(ended->description.find(std::to_string(ended->code)), std::string::npos) << ended->description;
    EXPECT_EQ(bv_error_is_retryable(ended->domain.c_str(), ended->code), fault.retry ? 1 : 0);
  }
  EXPECT_EQ(bv_error_is_retryable(nullptr, 0), 0);
  EXPECT_EQ(bv_error_is_retryable("NoSuchDomain", 503), 0);
}
