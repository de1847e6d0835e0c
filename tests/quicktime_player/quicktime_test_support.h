// Helpers for the general engine's player tests: media made on the fly, an
// endless ADTS station with ICY stream titles and a live HLS station with
// timed ID3, served from a loopback server.
#pragma once

#include "support/gst_media_files.h"
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

// An endless AAC station: the ADTS bytes round and round, paced at about
// real time after a short burst, with an ICY metadata block every metaint
// bytes carrying "StreamTitle='<title>';" when the client asked for them.
class AACStation {
 public:
  AACStation(TestHTTPServer& server, const std::string& path, std::string adts, std::string title);
  void setTitle(const std::string& title);

  struct Shared {
    std::mutex mutex;
    std::string title;
  };

 private:
  std::shared_ptr<Shared> shared_ = std::make_shared<Shared>();
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
