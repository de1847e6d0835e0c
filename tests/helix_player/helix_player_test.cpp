// The Helix player against the scripted kit: what it asks the kit to do,
// how kit reports become player states, errors, positions and attributes,
// and that a player destroyed with reports queued changes nothing.
#include <belvane/BVConstants.h>
#include <belvane/BVHelixPlayer.h>
#include <belvane/BVMediaFormat.h>
#include <belvane/BVMediaLink.h>

#include "helix_player/scripted_kit_driver.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace belvane::test;

namespace {

constexpr const char* kURL = "rtsp://127.0.0.1:1/live/station.rm";

std::shared_ptr<BVMediaLink> realLink(const char* mimeType = "audio/x-pn-realaudio") {
  BVURL url = *BVURL::URLWithString(kURL);
  auto format = mimeType ? BVMediaFormat::formatByInferringFromURL(url, mimeType) : BVMediaFormat::emptyFormat();
  return BVMediaLink::create(url, "Station", format, nullptr);
}

class HelixPlayer : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(kit_.reset) << "scripted kit not loaded";
    kit_.reset();
    player_ = kit_.makePlayer();
    ASSERT_TRUE(player_);
    player_->setOwner(&events_);
  }
  void TearDown() override {
    player_.reset();
    deliverReports();
    EXPECT_EQ(kit_.liveObjects(), 0);
  }
  void idleAt(uint32_t ms) {
    kit_.setPosition(ms);
    player_->onIdle(timer_);
  }

  ScriptedKit& kit_ = ScriptedKit::shared();
  RecordingOwner events_;
  std::shared_ptr<BVHelixPlayer> player_;
  BVTimer timer_{1.0, true, [](BVTimer&) {}};
};

}  // namespace

TEST_F(HelixPlayer, SetsUpTheKitAndReplacesItOnTheNextLink) {
  player_->setVolume(0.505f);
  player_->setMuted(true);
  EXPECT_FLOAT_EQ(player_->volume(), 0.505f);
  EXPECT_TRUE(player_->isMuted());
  EXPECT_TRUE(kit_.calls().empty());  // nothing to tell without a kit player

  player_->playLink(realLink());
  EXPECT_EQ(kit_.calls(), (std::vector<std::string>{
                              "initWithFrame 0 0 0 0", "initInView", "addObserver title", "addObserver author",
                              "addObserver copyright", "addObserver codec",
                              std::string("openWithURL ") + kURL + " audio/x-pn-realaudio", "setVolume 50",
                              "play"}));  // the mute setting is not reapplied
  EXPECT_EQ(events_.sequence(), std::vector<BVPlayerState>{BVPlayerStateConnecting});

  kit_.reset();
  player_->setMuted(false);
  player_->setVolume(0.999f);
  player_->playLink(realLink(nullptr));
  EXPECT_EQ(kit_.calls(), (std::vector<std::string>{
                              "mute 0", "setVolume 99", "removeObserver title", "removeObserver author",
                              "removeObserver copyright", "removeObserver codec", "release player", "release view",
                              "initWithFrame 0 0 0 0", "initInView", "addObserver title", "addObserver author",
                              "addObserver copyright", "addObserver codec",
                              std::string("openWithURL ") + kURL + " (null)", "setVolume 99", "play"}));
  EXPECT_EQ(kit_.liveObjects(), 2);
}

TEST_F(HelixPlayer, MapsContentStatesAndTheEndOfContent) {
  player_->playLink(realLink());
  // Opening passes through "stopped" from "nothing loaded".
  kit_.emitContentState(HXContentStateNotLoaded, HXContentStateStopped);
  kit_.emitContentState(HXContentStateStopped, 2);
  deliverReports();
  EXPECT_EQ(player_->state(), BVPlayerStateConnecting);

  kit_.emitContentState(HXContentStateStopped, HXContentStatePlaying);
  kit_.emitContentState(HXContentStatePlaying, HXContentStateStopped);
  kit_.emitConcluded();
  deliverReports();
  EXPECT_EQ(events_.sequence(),
            (std::vector<BVPlayerState>{BVPlayerStateConnecting, BVPlayerStatePlaying, BVPlayerStateStopped}));
  EXPECT_FALSE(events_.states.back().error);

  // The end of the content stops a playing player.
  player_->playLink(realLink());
  kit_.emitContentState(HXContentStateStopped, HXContentStatePlaying);
  kit_.emitConcluded();
  deliverReports();
  EXPECT_EQ(player_->state(), BVPlayerStateStopped);

  // After an error neither a stopped report nor the end changes the state.
  player_->playLink(realLink());
  const char* keys[] = {"ID"};
  const char* values[] = {"42"};
  kit_.emitError("f", "m", keys, values, 1);
  kit_.emitContentState(HXContentStatePlaying, HXContentStateStopped);
  kit_.emitConcluded();
  deliverReports();
  EXPECT_EQ(player_->state(), BVPlayerStateError);
  EXPECT_EQ(events_.states.back().to, BVPlayerStateError);
}

TEST_F(HelixPlayer, KitErrorsCarryTheirParametersUnderRenamedKeys) {
  player_->playLink(realLink());
  const char* keys[] = {"HX_RESULT_KEY", "ID", "UC", "MI", "MU", "XX"};
  const char* values[] = {"HXR_NET_CONNECT", "-2147221499", "12", "Server busy", "http://example.org/more", "x"};
  kit_.emitError("connect failed", "The server could not be reached", keys, values, 6);
  deliverReports();
  ASSERT_EQ(player_->state(), BVPlayerStateError);
  BVErrorRef error = events_.states.back().error;
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain(), BVHelixErrorDomain);
  EXPECT_EQ(error->code(), -2147221499);
  const BVDictionary& info = error->userInfo();
  EXPECT_EQ(error->localizedDescription(), "The server could not be reached");
  EXPECT_EQ(*BVDictionaryString(info, BVLocalizedFailureReasonErrorKey), "connect failed");
  EXPECT_EQ(*BVDictionaryString(info, "HXKey"), "HXR_NET_CONNECT");
  EXPECT_EQ(*BVDictionaryString(info, "HXCode"), "-2147221499");
  EXPECT_EQ(*BVDictionaryString(info, "HXUserCode"), "12");
  EXPECT_EQ(*BVDictionaryString(info, "HXUserString"), "Server busy");
  EXPECT_EQ(*BVDictionaryString(info, "HXMoreInfoURL"), "http://example.org/more");
  EXPECT_FALSE(info.count("XX") || info.count("ID"));
  EXPECT_TRUE(BVDictionaryString(info, BVBasePlayerErrorKey));  // the link's account was added

  // Without an "ID", or with "0", the code is 10300; absent texts are empty.
  const char* zero[] = {"0"};
  for (size_t count : {size_t(0), size_t(1)}) {
    player_->playLink(realLink());
    kit_.emitError(nullptr, nullptr, keys + 1, zero, count);
    deliverReports();
    error = events_.states.back().error;
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), 10300);
    EXPECT_EQ(*BVDictionaryString(error->userInfo(), BVLocalizedDescriptionKey), "");
    EXPECT_EQ(*BVDictionaryString(error->userInfo(), BVLocalizedFailureReasonErrorKey), "");
  }
}

TEST_F(HelixPlayer, SetUpFailuresEndInErrorAndKeepWhatWasMade) {
  struct Case {
    const char* operation;
    int64_t code;
    std::string text;
    int objectsLeft;
  };
  const Case cases[] = {
      {"initWithFrame", 10101, "HXClientView could not be created", 0},
      {"initInView", 10102, "HXClientPlayer could not be created", 1},
      {"openWithURL", 10201, std::string("Failed to not start playback of URL: '") + kURL + "'", 2},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.operation);
    kit_.reset();
    kit_.fail(c.operation);
    events_.states.clear();
    player_->playLink(realLink());
    ASSERT_EQ(events_.sequence(), (std::vector<BVPlayerState>{BVPlayerStateConnecting, BVPlayerStateError}));
    const BVErrorRef& error = events_.states.back().error;
    EXPECT_EQ(error->domain(), BVHelixErrorDomain);
    EXPECT_EQ(error->code(), c.code);
    EXPECT_EQ(error->localizedDescription(), c.text);
    EXPECT_EQ(kit_.liveObjects(), c.objectsLeft);
    auto calls = kit_.calls();
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "play"), 0);
  }
}

TEST_F(HelixPlayer, SeeksWithinTheLengthAndReportsPositions) {
  EXPECT_EQ(player_->position(), -1.0f);
  EXPECT_EQ(player_->elapsedTime(), -1.0f);
  player_->playLink(realLink());
  kit_.setPosition(30'000);
  kit_.setLength(120'000);
  EXPECT_TRUE(player_->hasPosition());
  EXPECT_FLOAT_EQ(player_->position(), 0.25f);
  EXPECT_FLOAT_EQ(player_->elapsedTime(), 30.0f);

  kit_.reset();
  kit_.setLength(120'000);
  player_->setPosition(0.5f);
  player_->setPosition(-0.2f);
  kit_.setStartSeekingResult(false);
  player_->setPosition(0.75f);
  EXPECT_EQ(kit_.calls(), (std::vector<std::string>{"startSeeking", "setPosition 60000", "stopSeeking",
                                                    "startSeeking", "setPosition 0", "stopSeeking", "startSeeking"}));

  kit_.emitLength(240'000);
  deliverReports();
  ASSERT_EQ(events_.positions.size(), 1u);
  EXPECT_FLOAT_EQ(events_.positions[0], 0.0f);

  // A live stream has no position but still counts its time.
  kit_.reset();
  kit_.setLive(true);
  kit_.setLength(120'000);
  kit_.setPosition(9'500);
  player_->setPosition(0.5f);
  EXPECT_TRUE(kit_.calls().empty());
  EXPECT_FALSE(player_->hasPosition());
  EXPECT_EQ(player_->position(), -1.0f);
  EXPECT_FLOAT_EQ(player_->elapsedTime(), 9.5f);
}

TEST_F(HelixPlayer, IdleTicksReportAboutEveryTwoSecondsOfPlayback) {
  player_->playLink(realLink());
  kit_.setLength(100'000);
  for (uint32_t ms = 0; ms <= 5'900; ms += 500) idleAt(ms);
  EXPECT_EQ(events_.positions, (std::vector<float>{0.02f, 0.04f}));

  // Back to the start: nothing until playback passes 4 s by more than 1 s.
  events_.positions.clear();
  for (uint32_t ms : {1'000u, 3'000u, 5'000u, 5'999u}) idleAt(ms);
  EXPECT_TRUE(events_.positions.empty());
  idleAt(6'000);
  EXPECT_EQ(events_.positions, std::vector<float>{0.06f});

  kit_.setLive(true);
  idleAt(60'000);
  EXPECT_EQ(events_.positions.size(), 1u);

  // The scheduled timer does the same on the run loop.
  kit_.setLive(false);
  kit_.setPosition(50'000);
  EXPECT_TRUE(BVRunLoop::main().runUntil([&] { return events_.positions.size() == 2; }, 10.0));
  EXPECT_FLOAT_EQ(events_.positions.back(), 0.5f);
}

TEST_F(HelixPlayer, StatisticsBecomeAttributes) {
  EXPECT_TRUE(player_->attributes().empty());
  EXPECT_EQ(*BVHelixPlayer::_helixStatisticKeyToNativeKey("Author"), BVPlayerAttributeArtistKey);
  EXPECT_FALSE(BVHelixPlayer::_helixStatisticKeyToNativeKey("Bitrate"));

  player_->playLink(realLink());
  kit_.setStatistic("title", "Morning Show");
  EXPECT_EQ(player_->attributes(), (BVDictionary{{BVPlayerAttributeTrackTitleKey, BVValue("Morning Show")}}));

  kit_.emitStatistic('a', "author", "Anna");
  kit_.emitStatistic('m', "title", "Noon Show");
  kit_.emitStatistic('d', "author", nullptr);
  deliverReports();
  ASSERT_EQ(events_.attributeChanges.size(), 3u);
  EXPECT_EQ(events_.attributeChanges[0], (BVDictionary{{BVPlayerAttributeArtistKey, BVValue("Anna")},
                                                 {BVPlayerAttributeTrackTitleKey, BVValue("Morning Show")}}));
  EXPECT_EQ(events_.attributeChanges[2], (BVDictionary{{BVPlayerAttributeTrackTitleKey, BVValue("Noon Show")}}));
}

TEST_F(HelixPlayer, DestructionWithReportsQueuedChangesNothing) {
  player_->playLink(realLink());
  kit_.reportOnRelease(true);
  kit_.emitContentState(HXContentStateStopped, HXContentStatePlaying);
  kit_.emitStatistic('a', "title", "T");
  kit_.emitLength(1'000);
  kit_.emitConcluded();
  player_.reset();  // the kit reports while releasing, then drops the queue
  EXPECT_EQ(kit_.pendingReports(), 0u);
  BVRunLoop::main().runFor(1.2);  // the idle timer is gone too
  EXPECT_EQ(events_.sequence(), std::vector<BVPlayerState>{BVPlayerStateConnecting});
  EXPECT_EQ(events_.count(), 1u);

  // An owner may drop the player inside a callback the kit delivers.
  player_ = kit_.makePlayer();
  player_->setOwner(&events_);
  events_.onState = [&](BVBasePlayer&, BVPlayerState to) {
    if (to == BVPlayerStatePlaying) player_.reset();
  };
  player_->playLink(realLink());
  kit_.emitContentState(HXContentStateStopped, HXContentStatePlaying);
  kit_.emitContentState(HXContentStatePlaying, HXContentStateStopped);
  deliverReports();
  EXPECT_FALSE(player_);
  EXPECT_EQ(events_.states.back().to, BVPlayerStatePlaying);
}
