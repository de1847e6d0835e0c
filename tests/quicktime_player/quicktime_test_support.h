// Helpers for the general engine's player tests: media made on the fly, an
// endless AAC station with a title the test sets (on the ICY test server)
// and a live HLS station with timed ID3, served from a loopback server.
#pragma once

#include "support/gst_media_files.h"
#include "support/icy_test_server.h"
#include "support/mp3_test_data.h"
#include "support/recording_owner.h"
#include "support/temp_dir.h"
#include "support/test_http_server.h"

#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace belvane::test {

// `seconds` of an AAC tone in ADTS frames, made in dir, for scripted stations.
inline Mp3Data aacTone(const TempDir& dir, double seconds) {
  return splitAdtsFrames(readWholeFile(writeMediaFile(dir.path() + "/tone.aac", MediaKind::ADTS, seconds)));
}

// An endless AAC station at real time whose every metadata block carries
// the title last given to setTitle (read on the server's thread).
struct LiveAACStation {
  LiveAACStation(IcyTestServer& server, const std::string& path, const Mp3Data& aac) {
    IcyStreamScript script{.contentType = "audio/aacp", .audio = {&aac}, .audioBytes = UINT64_MAX, .pace = 1.0};
    script.titleForBlock = [title = title_](int) {
      std::lock_guard lock(title->mutex);
      return title->text;
    };
    server.serve(path, {script});
  }
  void setTitle(const std::string& text) {
    std::lock_guard lock(title_->mutex);
    title_->text = text;
  }

 private:
  struct Title {
    std::mutex mutex;
    std::string text;
  };
  std::shared_ptr<Title> title_ = std::make_shared<Title>();
};

}  // namespace belvane::test

namespace belvane::test {

// A live HLS station whose titles travel as timed ID3: `segments` one-second
// MPEG-TS segments of AAC, into which a metadata stream (stream_type 0x15,
// 'ID3 ') is injected with one ID3 tag at each segment's first audio PTS and
// one more in the middle of `middleSegment`, half a codec frame past a frame.
// Every PTS and PCR is moved so that the 33-bit clock wraps around inside
// the audio frame that middle title falls in, just before the title. The playlist at <path>/playlist.m3u8 shows a window of
// three segments that moves on by one every second, with no end.
class TimedID3Station {
 public:
  struct Title {
    std::string text;  // as announced: "Artist - Title" or the title
    int64_t pts;       // 90 kHz, unwrapped (counted on past the wrap)
  };
  TimedID3Station(TestHTTPServer& server, const std::string& path, const std::string& folder, int segments,
                  int middleSegment);
  const std::vector<Title>& titles() const { return titles_; }

 private:
  void serve(TestHTTPServer& server, const std::string& path, const std::string& folder, int segments,
             int middleSegment);
  std::vector<Title> titles_;
};

}  // namespace belvane::test
