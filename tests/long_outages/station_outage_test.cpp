// Outages of minutes on every engine: a server that keeps its sockets and
// sends nothing, a server that is gone and comes back on the same port, and
// an Icecast mount whose source goes away and comes back. Within the
// player's patience the station is heard again within 3 s of the server's
// return, with no state change and the reception back to receiving.
//
// These take minutes each (BELVANE_OUTAGE_SECONDS, default 180): they carry
// the CTest label "long" and run beside the rest of the suite.
#include <belvane/BVConstants.h>
#include <belvane/BVMasterPlayer.h>
#include <belvane/BVMediaLink.h>
#include <belvane/BVRunLoop.h>

#include "long_outages/outage_length.h"
#include "support/gst_media_files.h"
#include "support/icecast_server.h"
#include "support/icy_test_server.h"
#include "support/mp3_test_data.h"
#include "support/recording_owner.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <tuple>

using namespace belvane::test;
using Clock = std::chrono::steady_clock;

namespace {

enum class Outage { SilentServer, ServerGone, IcecastSourceAway };

class StationOutage : public ::testing::TestWithParam<std::tuple<IcyStreamScript::Payload, Outage>> {
 protected:
  void SetUp() override {
    if (!stereoTone44k()) GTEST_SKIP() << "lame is not installed";
    if (outage() == Outage::IcecastSourceAway && !IcecastServer::available())
      GTEST_SKIP() << "icecast2 is not installed";
    adts_ = readWholeFile(writeMediaFile(dir_.path() + "/tone.aac", MediaKind::ADTS, 3.0));
    aac_ = splitAdtsFrames(adts_);
    EXPECT_EQ(master_->setAudioOutput("null"), 0);
    master_->setReconnectPatience(outageSeconds() + 60);
    master_->setOwner(&owner_);
  }
  void TearDown() override { master_->setOwner(nullptr); }

  bool isAAC() const { return std::get<0>(GetParam()) == IcyStreamScript::Payload::Adts; }
  Outage outage() const { return std::get<1>(GetParam()); }
  IcyStreamScript live() const {
    return {.contentType = isAAC() ? "audio/aacp" : "audio/mpeg", .audio = {isAAC() ? &aac_ : stereoTone44k()}};
  }
  // A few seconds of audio, then the connection stays open and silent.
  IcyStreamScript fallsSilent() const {
    IcyStreamScript script = live();
    script.audioBytes = 80'000;
    script.end = IcyStreamScript::End::Stall;
    return script;
  }
  bool startIcecastSource() {
    return isAAC() ? icecast_.startSource("/live", adts_, int(adts_.size() / 3), "audio/aac")
                   : icecast_.startSource("/live", stereoTone44k()->bytes, 16000);
  }
  void play(const std::string& url) {
    master_->playLink(BVMediaLink::linkWithURL(*BVURL::URLWithString(url)));
    ASSERT_TRUE(owner_.runUntil(BVPlayerStatePlaying, 30.0));
  }
  // Runs until the output has taken a tenth of a second more than `frames`;
  // the seconds that took, or a negative number after `limit`.
  double secondsUntilHeardPast(uint64_t frames, double limit) {
    const auto from = Clock::now();
    if (!BVRunLoop::main().runUntil([&] { return master_->outputFramesWritten() > frames + 4410; }, limit)) return -1;
    return std::chrono::duration<double>(Clock::now() - from).count();
  }

  TempDir dir_;
  std::string adts_;
  Mp3Data aac_;
  IcecastServer icecast_;
  std::shared_ptr<BVMasterPlayer> master_ = BVMasterPlayer::create();
  RecordingOwner owner_;
};

std::string caseName(const std::tuple<IcyStreamScript::Payload, Outage>& param) {
  static const char* const outages[] = {"SilentServer", "ServerGone", "IcecastSourceAway"};
  return std::string(std::get<0>(param) == IcyStreamScript::Payload::Adts ? "AAC" : "MP3") + "_" +
         outages[int(std::get<1>(param))];
}

TEST_P(StationOutage, TheStationIsHeardAgainWithin3sOfTheServersReturn) {
  const double away = outageSeconds();
  std::unique_ptr<IcyTestServer> server;
  int port = 0;
  if (outage() == Outage::IcecastSourceAway) {
    ASSERT_TRUE(icecast_.start());
    ASSERT_TRUE(startIcecastSource());
    play(icecast_.url("/live"));
  } else {
    server = std::make_unique<IcyTestServer>();
    server->serve("/", {fallsSilent()});
    play(server->url("/"));
    port = server->http().port();
  }
  const auto returnAt = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                           std::chrono::duration<double>(3.0 + away));
  switch (outage()) {
    case Outage::SilentServer: {
      // The first connection falls silent and stays open; every connection
      // made meanwhile is answered and then silent too, until the return.
      IcyStreamScript frozen = live();
      frozen.silentUntil = returnAt;
      server->serve("/", {frozen});
      BVRunLoop::main().runFor(3.0);
      break;
    }
    case Outage::ServerGone:
      BVRunLoop::main().runFor(3.0);
      server.reset();  // every connection closed, the port refused
      break;
    case Outage::IcecastSourceAway:
      BVRunLoop::main().runFor(3.0);
      icecast_.stopSource();  // the mount goes: its listeners dropped, then 404
      break;
  }
  BVRunLoop::main().runFor(away - 0.5);
  const BVPlayerReception during = master_->reception();
  EXPECT_TRUE(during.state == BVPlayerReceptionBuffering || during.state == BVPlayerReceptionReconnecting)
      << BVPlayerReceptionStateName(during.state);
  EXPECT_GT(during.secondsWithoutAudio, away - 15);
  BVRunLoop::main().runUntil([] { return false; }, std::chrono::duration<double>(returnAt - Clock::now()).count());
  if (outage() == Outage::ServerGone) {
    server = std::make_unique<IcyTestServer>(port);
    server->serve("/", {live()});
  } else if (outage() == Outage::IcecastSourceAway) {
    ASSERT_TRUE(startIcecastSource());
  }
  // The server is back now: the audio that was missing for minutes returns.
  const double waited = secondsUntilHeardPast(master_->outputFramesWritten(), 10.0);
  EXPECT_GE(waited, 0.0) << "not heard again within 10 s";
  EXPECT_LT(waited, 3.0);
  BVRunLoop::main().runFor(1.0);
  EXPECT_EQ(master_->reception().state, BVPlayerReceptionReceiving);
  ASSERT_FALSE(owner_.states.empty());
  EXPECT_EQ(owner_.states.back().to, BVPlayerStatePlaying) << "the host heard a state change";
  EXPECT_EQ(owner_.sequence().size(), 2u);  // Connecting, Playing
}

INSTANTIATE_TEST_SUITE_P(
    EnginesAndOutages, StationOutage,
    ::testing::Combine(::testing::Values(IcyStreamScript::Payload::Mp3, IcyStreamScript::Payload::Adts),
                       ::testing::Values(Outage::SilentServer, Outage::ServerGone, Outage::IcecastSourceAway)),
    [](const auto& info) { return caseName(info.param); });

}  // namespace
