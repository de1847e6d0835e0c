// The shoutstreamer delegate's title buffering: titles are announced once
// the frames buffered ahead of them have been written, driven here from
// the test thread as the library's delivery thread would.
#include <gtest/gtest.h>

#include <belvane/BVMP3StreamPlayer.h>

#include "players/mp3_stream/shoutstreamer_delegate.h"
#include "support/recording_owner.h"

using namespace belvane::test;

namespace {
struct Harness {
  std::shared_ptr<BVMP3StreamPlayer> player = BVMP3StreamPlayer::create();
  std::shared_ptr<BVShoutstreamerDelegate> delegate = BVShoutstreamerDelegate::create();
  RecordingOwner owner;
  std::vector<float> silence = std::vector<float>(4096, 0.0f);
  Harness() {
    player->setOwner(&owner);
    delegate->setOwner(player.get());
    delegate->audio()->setOutput("null:fast");
    EXPECT_EQ(delegate->startAudioPlayer(), 0);
  }
  ~Harness() { delegate->setOwner(nullptr); }
  void audio(int frames) {
    float* channels[2] = {silence.data(), silence.data()};
    delegate->shoutstreamerDidProvideAudio(44100.f, channels, frames);
    while (BVRunLoop::main().iterate()) {
    }
  }
  void title(const std::string& t, int frames) {
    delegate->shoutstreamerDidProvideTitle(t, frames);
    while (BVRunLoop::main().iterate()) {
    }
  }
};
}  // namespace

TEST(TitleBuffering, ImmediateAndAfterItsFrames) {
  Harness h;
  h.title("now", 0);
  EXPECT_EQ(h.owner.titles, std::vector<std::string>{"now"});
  h.title("later", 3000);
  h.audio(1000);
  h.audio(1999);
  EXPECT_EQ(h.owner.titles.size(), 1u) << "announced before its frames were written";
  h.audio(1);
  EXPECT_EQ(h.owner.titles, (std::vector<std::string>{"now", "later"}));
  h.title("ignored", -1);
  h.audio(4000);
  EXPECT_EQ(h.owner.titles.size(), 2u);
}

TEST(TitleBuffering, QueuedTitlesWaitTheirOwnFramesAndSkipPassedOnes) {
  Harness h;
  h.title("A", 1000);
  h.title("B", 2500);  // 1500 frames after A
  h.audio(1000);
  EXPECT_EQ(h.owner.titles, std::vector<std::string>{"A"});
  h.audio(1499);
  EXPECT_EQ(h.owner.titles.size(), 1u);
  h.audio(1);
  EXPECT_EQ(h.owner.titles, (std::vector<std::string>{"A", "B"}));

  // Both due within one block: only the later one is announced.
  h.title("C", 500);
  h.title("D", 900);
  h.audio(2000);
  EXPECT_EQ(h.owner.titles.back(), "D");
  EXPECT_EQ(h.owner.titles.size(), 3u);

  // A title no later than what is already pending is dropped.
  h.title("E", 1000);
  h.audio(600);
  h.title("F", 400);  // no later than E, which is 400 frames away
  h.audio(400);
  h.audio(1000);
  EXPECT_EQ(h.owner.titles.back(), "E");
  EXPECT_EQ(h.owner.titles.size(), 4u);
}

TEST(ShoutstreamerDelegateVolume, MuteRemembersVolumeSetWhileMuted) {
  Harness h;
  EXPECT_FLOAT_EQ(h.delegate->volume(), 1.0f);
  h.delegate->setMuted(true);
  EXPECT_TRUE(h.delegate->isMuted());
  h.delegate->setVolume(0.5f);
  EXPECT_FLOAT_EQ(h.delegate->volume(), 0.5f);
  h.delegate->setVolume(-2.0f);  // ignored
  h.delegate->setMuted(false);
  EXPECT_FALSE(h.delegate->isMuted());
  EXPECT_FLOAT_EQ(h.delegate->volume(), 0.5f);
  h.delegate->setVolume(0.0f);
  h.delegate->setMuted(true);  // a gain of 0 is muted without a change
  EXPECT_TRUE(h.delegate->isMuted());
  h.delegate->setMuted(false);
  EXPECT_FLOAT_EQ(h.delegate->volume(), 0.0f);
}
