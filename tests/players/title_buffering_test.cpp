// The shoutstreamer delegate's title buffering: titles are announced once
// the frames buffered ahead of them have been written, driven here from
// the test thread as the library's delivery thread would.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

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
    delegate->setOwner(player);
    delegate->audio()->setOutput({BVAudioOutputSetting::Kind::NullFast, {}});
    EXPECT_EQ(delegate->startAudioPlayer(), 0);
  }
  ~Harness() { delegate->setOwner({}); }
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

// The decoding thread never waits long for the run loop: a run loop blocked
// for half a second every two seconds makes titles late, never the audio,
// and titles that fall due while it is free still land on their frame.
TEST(TitleBuffering, ABusyRunLoopDelaysTitlesNotAudio) {
  Harness h;
  h.delegate->stopAudioPlayerNow();
  h.delegate->audio()->setOutput({BVAudioOutputSetting::Kind::Null, {}});
  ASSERT_EQ(h.delegate->startAudioPlayer(), 0);
  h.owner.frames = [d = h.delegate.get()] { return d->audio()->framesWritten(); };
  constexpr int kBlock = 1024, kRate = 44100, kTitleEvery = kRate * 7 / 10;
  constexpr int kBlocks = kRate * 6 / kBlock;
  std::vector<uint64_t> dueAt;  // the frame each title's audio starts at
  std::atomic<bool> done{false};
  std::thread decoder([&] {
    std::vector<float> tone(kBlock, 0.25f);
    float* channels[2] = {tone.data(), tone.data()};
    uint64_t queued = 0;
    for (int i = 0; i < kBlocks; ++i) {
      if (queued % kTitleEvery < kBlock && queued > 0) {
        int ahead = kBlock / 2;
        dueAt.push_back(queued + uint64_t(ahead));
        h.delegate->shoutstreamerDidProvideTitle("Song " + std::to_string(dueAt.size()), ahead);
      }
      h.delegate->shoutstreamerDidProvideAudio(float(kRate), channels, kBlock);
      queued += kBlock;
    }
    done = true;
  });
  while (!done) {
    BVRunLoop::main().runUntil([&] { return done.load(); }, 1.5);
    if (!done) std::this_thread::sleep_for(std::chrono::milliseconds(500));  // the host is busy
  }
  decoder.join();
  BVRunLoop::main().runUntil([] { return false; }, 0.2);
  EXPECT_EQ(h.delegate->audio()->underruns(), 0u) << "the audio waited for the run loop";
  ASSERT_EQ(h.owner.titles.size(), dueAt.size());
  size_t exact = 0;
  for (size_t i = 0; i < dueAt.size(); ++i) {
    EXPECT_GE(h.owner.titleFrames[i], dueAt[i]) << h.owner.titles[i] << " before its audio";
    if (h.owner.titleFrames[i] == dueAt[i]) ++exact;
  }
  EXPECT_GE(exact, dueAt.size() / 2) << "titles that fell due while the run loop was free";
}
