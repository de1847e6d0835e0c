// A live HLS station (a window of segments that moves on in real time, as
// the general engine's adaptive demuxer reads it) that answers 404 for its
// playlist and segments for minutes: the movie reopens it for the player's
// patience, the reception says the audio is missing, and the station is
// heard again within 3 s of its return. Labelled "long" (see
// station_outage_test.cpp; BELVANE_OUTAGE_SECONDS sets the length).
#include <belvane/BVMasterPlayer.h>
#include <belvane/BVMediaLink.h>
#include <belvane/BVRunLoop.h>

#include "long_outages/outage_length.h"
#include "support/gst_media_files.h"
#include "support/recording_owner.h"
#include "support/temp_dir.h"
#include "support/test_http_server.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <sstream>

using namespace belvane::test;
using Clock = std::chrono::steady_clock;

namespace {

// A live window over prepared segments: at any moment the playlist lists
// the three segments that end at the present, as a live encoder's does.
class LiveHLSStation {
 public:
  LiveHLSStation(TestHTTPServer& server, const std::string& folder, int seconds) {
    std::istringstream lines(readWholeFile(writeMediaFile(folder, MediaKind::HLS, seconds)));
    for (std::string line; std::getline(lines, line);) {
      if (line.rfind("#EXTINF:", 0) == 0) durations_.push_back(std::atof(line.c_str() + 8));
      if (!line.empty() && line[0] != '#') names_.push_back(line);
    }
    for (size_t i = 0; i < names_.size(); ++i) {
      std::string body = readWholeFile(folder + "/" + names_[i]);
      server.route("/" + names_[i], [this, body](const ReceivedRequest&) {
        return away_ ? Response::status(404) : Response::ok("video/mp2t", body);
      });
    }
    server.route("/live.m3u8", [this](const ReceivedRequest&) {
      return away_ ? Response::status(404) : Response::ok("application/vnd.apple.mpegurl", playlist());
    });
  }
  bool ready() const { return names_.size() > 10 && names_.size() == durations_.size(); }
  void setAway(bool away) { away_ = away; }

 private:
  std::string playlist() const {
    double now = std::chrono::duration<double>(Clock::now() - start_).count() + 3.0;
    size_t last = 0;
    for (double end = 0; last + 1 < names_.size() && (end += durations_[last]) < now;) ++last;
    size_t first = last >= 2 ? last - 2 : 0;
    std::string text = "#EXTM3U\n#EXT-X-VERSION:3\n#EXT-X-TARGETDURATION:2\n#EXT-X-MEDIA-SEQUENCE:" +
                       std::to_string(first) + "\n";
    for (size_t i = first; i <= last; ++i) {
      char extinf[64];
      std::snprintf(extinf, sizeof extinf, "#EXTINF:%.3f,\n", durations_[i]);
      text += extinf + names_[i] + "\n";
    }
    return text;
  }

  std::vector<std::string> names_;
  std::vector<double> durations_;
  std::atomic<bool> away_{false};
  const Clock::time_point start_ = Clock::now();
};

TEST(HLSStationOutage, ALiveHLSStationIsHeardAgainWithin3sOfItsReturn) {
  const double away = outageSeconds();
  TempDir dir;
  TestHTTPServer server;
  LiveHLSStation station(server, dir.path() + "/hls", int(away) + 40);
  ASSERT_TRUE(station.ready());
  RecordingOwner owner;
  auto master = BVMasterPlayer::create();
  ASSERT_EQ(master->setAudioOutput("null"), 0);
  master->setReconnectPatience(away + 60);
  master->setOwner(&owner);
  master->playLink(BVMediaLink::linkWithURL(*BVURL::URLWithString(server.url("/live.m3u8"))));
  ASSERT_TRUE(owner.runUntil(BVPlayerStatePlaying, 30.0));
  BVRunLoop::main().runFor(4.0);

  station.setAway(true);
  BVRunLoop::main().runFor(away - 0.5);
  const BVPlayerReception during = master->reception();
  EXPECT_TRUE(during.state == BVPlayerReceptionBuffering || during.state == BVPlayerReceptionReconnecting)
      << BVPlayerReceptionStateName(during.state);
  EXPECT_GT(during.secondsWithoutAudio, away - 15);
  BVRunLoop::main().runFor(0.5);

  station.setAway(false);
  const uint64_t frames = master->outputFramesWritten();
  const auto back = Clock::now();
  ASSERT_TRUE(BVRunLoop::main().runUntil([&] { return master->outputFramesWritten() > frames + 4410; }, 10.0))
      << "not heard again within 10 s";
  const double waited = std::chrono::duration<double>(Clock::now() - back).count();
  EXPECT_LT(waited, 3.0);
  EXPECT_EQ(owner.sequence().size(), 2u) << "the host heard a state change";  // Connecting, Playing
  master->setOwner(nullptr);
}

}  // namespace
