// The audio output: what reaches a WAV file, draining, pacing, the hand-off
// of a few frames on an unpaced output, the waits for frames written and for
// the play-out's end, prompt teardown with a blocked writer and waiters, and
// choosing the output.
#include <belvane/BVAudioOutputSetting.h>

#include "audio_output/orplayer.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <atomic>
#include <thread>
#include <vector>

#include "support/temp_dir.h"
#include "support/wav_file.h"
#include "support/test_http_server.h"  // waitUntil

namespace {

using belvane::test::readWav;
using belvane::test::WavFile;
using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

orplayer_t makePlayer(const std::string& output) {
  orplayer_t player = orplayer_create();
  orplayer_options_t options{};
  options.flags = ORPLAYER_OPTION_LOW_LATENCY;
  orplayer_set_options(player, &options);
  EXPECT_EQ(0, orplayer_set_output(player, output.c_str()));
  return player;
}

// Writes `frames` frames in blocks; left = index / frames, right = -left.
void playRamp(orplayer_t player, float rate, int frames, int block = 1152) {
  std::vector<float> left(block), right(block);
  for (int done = 0; done < frames; done += block) {
    int n = std::min(block, frames - done);
    for (int i = 0; i < n; ++i) {
      left[i] = static_cast<float>(done + i) / frames;
      right[i] = -left[i];
    }
    float* channels[2] = {left.data(), right.data()};
    orplayer_play_wait(player, rate, channels, n);
  }
}

bool waitUntilSilent(orplayer_t player, double seconds = 10) {
  return belvane::test::waitUntil([player] { return !orplayer_is_playing(player); }, seconds);
}

double secondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

TEST(OrplayerTest, WavOutputHoldsExactlyTheFramesWithGainApplied) {
  belvane::test::TempDir dir;
  std::string path = dir.path() + "/out.wav";
  orplayer_t player = makePlayer("wav:" + path);
  EXPECT_FLOAT_EQ(1.0f, orplayer_get_gain(player));
  ASSERT_EQ(0, orplayer_start(player));
  EXPECT_STREQ("wav", orplayer_output_name(player));
  EXPECT_FALSE(orplayer_is_playing(player));
  orplayer_set_gain(player, 0.3f);
  orplayer_set_gain(player, NAN);  // refused
  EXPECT_FLOAT_EQ(0.3f, orplayer_get_gain(player));

  const int frames = 10000;
  playRamp(player, 44100, frames, 1000);
  EXPECT_TRUE(orplayer_is_playing(player));
  orplayer_play_done(player);
  ASSERT_TRUE(waitUntilSilent(player));
  EXPECT_EQ(uint64_t(frames), orplayer_frames_written(player));
  orplayer_destroy(player);

  WavFile wav = readWav(path);
  EXPECT_EQ(3, wav.format);
  EXPECT_EQ(2, wav.channels);
  EXPECT_EQ(32, wav.bits);
  EXPECT_EQ(44100u, wav.rate);
  ASSERT_EQ(size_t(frames) * 2, wav.samples.size());
  for (int i = 0; i < frames; ++i) {
    float sample = static_cast<float>(i) / frames;
    ASSERT_EQ(sample * 0.3f, wav.samples[2 * i]) << i;
    ASSERT_EQ(-sample * 0.3f, wav.samples[2 * i + 1]) << i;
  }
}

// A fade written to a file: a constant signal shows the gain sample by
// sample, so a ramp that moved in blocks (a zipper) shows as steps.
TEST(OrplayerTest, GainRampMovesSampleBySampleOverItsTime) {
  belvane::test::TempDir dir;
  std::string path = dir.path() + "/fade.wav";
  orplayer_t player = makePlayer("wav:" + path);
  ASSERT_EQ(0, orplayer_start(player));
  std::vector<float> level(1000, 0.5f);
  float* channels[2] = {level.data(), nullptr};
  auto write = [&](int blocks) {
    for (int i = 0; i < blocks; ++i) orplayer_play_wait(player, 44100, channels, 1000);
  };
  write(10);
  orplayer_ramp_gain(player, 0.0f, 0.25);  // 11025 frames
  EXPECT_FLOAT_EQ(0.0f, orplayer_get_gain_target(player));
  write(20);
  EXPECT_FLOAT_EQ(0.0f, orplayer_get_gain(player));
  // Setting the gain ends a ramp where it is.
  orplayer_ramp_gain(player, 1.0f, 10.0);
  orplayer_set_gain(player, 0.25f);
  EXPECT_FLOAT_EQ(0.25f, orplayer_get_gain_target(player));
  orplayer_play_done(player);
  ASSERT_TRUE(waitUntilSilent(player));
  orplayer_destroy(player);

  WavFile wav = readWav(path);
  ASSERT_EQ(30000u * 2, wav.samples.size());
  for (int i = 0; i < 10000; ++i) ASSERT_EQ(0.5f, wav.samples[2 * i]) << i;
  const double step = 0.5 / 11025;
  int silentFrom = -1;
  for (int i = 10000; i < 30000; ++i) {
    float before = wav.samples[2 * (i - 1)], now = wav.samples[2 * i];
    ASSERT_EQ(now, wav.samples[2 * i + 1]) << i;  // a mono source fades on both sides alike
    ASSERT_LE(now, before) << i;
    ASSERT_LE(before - now, step * 1.01) << i;
    if (now == 0.0f && silentFrom < 0) silentFrom = i;
  }
  EXPECT_NEAR(silentFrom, 10000 + 11025, 2);
}

TEST(OrplayerTest, SampleRateChangeIsFollowed) {
  belvane::test::TempDir dir;
  orplayer_t player = makePlayer("wav:" + dir.path() + "/rec.wav");
  ASSERT_EQ(0, orplayer_start(player));
  playRamp(player, 22050, 3000);  // before any frame: the first file takes this rate
  playRamp(player, 48000, 2000);
  orplayer_play_done(player);
  ASSERT_TRUE(waitUntilSilent(player));
  EXPECT_EQ(5000u, orplayer_frames_written(player));
  orplayer_destroy(player);

  WavFile first = readWav(dir.path() + "/rec.wav");
  WavFile second = readWav(dir.path() + "/rec.2.wav");
  EXPECT_EQ(22050u, first.rate);
  EXPECT_EQ(3000u * 2, first.samples.size());
  EXPECT_EQ(48000u, second.rate);
  EXPECT_EQ(2000u * 2, second.samples.size());

  // A paced output plays each part at its own rate: 0.25 s + 0.25 s.
  player = makePlayer("null");
  ASSERT_EQ(0, orplayer_start(player));
  auto start = Clock::now();
  playRamp(player, 8000, 2000, 400);
  playRamp(player, 16000, 4000, 400);
  orplayer_play_done(player);
  ASSERT_TRUE(waitUntilSilent(player));
  EXPECT_GE(secondsSince(start), 0.4);
  EXPECT_EQ(6000u, orplayer_frames_written(player));
  orplayer_destroy(player);
}

TEST(OrplayerTest, NullOutputIsPacedAndDrainsBeforeItStopsPlaying) {
  orplayer_t player = makePlayer("null");
  ASSERT_EQ(0, orplayer_start(player));
  EXPECT_STREQ("null", orplayer_output_name(player));
  auto start = Clock::now();
  playRamp(player, 8000, 8000, 400);  // one second
  EXPECT_TRUE(orplayer_is_playing(player));
  orplayer_play_done(player);
  EXPECT_TRUE(orplayer_is_playing(player));  // the queue and the device still hold audio
  ASSERT_TRUE(waitUntilSilent(player));
  EXPECT_GE(secondsSince(start), 0.8);
  EXPECT_EQ(8000u, orplayer_frames_written(player));

  // More audio after play_done plays again.
  playRamp(player, 8000, 800, 400);
  EXPECT_TRUE(orplayer_is_playing(player));
  orplayer_play_done(player);
  ASSERT_TRUE(waitUntilSilent(player));
  EXPECT_EQ(8800u, orplayer_frames_written(player));
  orplayer_destroy(player);

  // Unpaced: two minutes of audio go through well within the time-out.
  player = makePlayer("null:fast");
  ASSERT_EQ(0, orplayer_start(player));
  playRamp(player, 48000, 48000 * 120, 4800);
  orplayer_play_done(player);
  ASSERT_TRUE(waitUntilSilent(player, 30));
  EXPECT_EQ(48000u * 120, orplayer_frames_written(player));
  orplayer_destroy(player);
}

// The waits and the drained listener, on an output written by the caller
// (null) and on one with an output thread (ALSA's null device).
TEST(OrplayerTest, WaitsEndWhenFramesAreWrittenAndWhenThePlayOutEnds) {
  for (const char* output : {"null", "alsa:null"}) {
    SCOPED_TRACE(output);
    orplayer_t player = makePlayer(output);
    ASSERT_EQ(0, orplayer_start(player));
    struct Told {
      std::atomic<int> calls{0};
      std::atomic<double> seconds{-1};
    } told;
    orplayer_set_drained_listener(
        player,
        [](double seconds, void* context) {
          auto* t = static_cast<Told*>(context);
          t->seconds = seconds;
          ++t->calls;
        },
        &told);
    playRamp(player, 8000, 4000, 400);  // half a second
    EXPECT_EQ(1, orplayer_wait_written(player, 4000, 10000));
    EXPECT_EQ(4000u, orplayer_frames_written(player));
    EXPECT_EQ(0, orplayer_wait_drained(player, 0));  // still playing: the time is up at once
    EXPECT_EQ(0, told.calls);
    orplayer_play_done(player);
    ASSERT_EQ(1, orplayer_wait_drained(player, 10000));
    EXPECT_FALSE(orplayer_is_playing(player));
    // Told once: at once by the thread that drained it, or in advance by
    // play_done when the output has no thread.
    ASSERT_TRUE(belvane::test::waitUntil([&] { return told.calls > 0; }, 10));
    EXPECT_EQ(1, told.calls);
    if (std::string(output) == "null") EXPECT_GT(told.seconds, 0.0);
    else EXPECT_EQ(0.0, told.seconds);
    // Nothing plays: a wait for frames that will not come ends at once.
    EXPECT_EQ(0, orplayer_wait_written(player, 5000, 60000));
    orplayer_destroy(player);
  }
}

// On an unpaced output frames gather for a short while but are never held
// back waiting for more.
TEST(OrplayerTest, FewFramesAreWrittenWithoutMoreComing) {
  orplayer_t player = makePlayer("null:fast");
  ASSERT_EQ(0, orplayer_start(player));
  // Far less than the output gathers, with no end announced.
  playRamp(player, 44100, 100);
  EXPECT_TRUE(belvane::test::waitUntil([&] { return orplayer_frames_written(player) >= 100; }, 10));
  // Again once the output thread has gone idle.
  std::this_thread::sleep_for(100ms);
  playRamp(player, 44100, 7);
  EXPECT_TRUE(belvane::test::waitUntil([&] { return orplayer_frames_written(player) >= 107; }, 10));
  orplayer_destroy(player);
}

TEST(OrplayerTest, StopAndDestroyReleaseABlockedWriter) {
  for (bool destroy : {false, true}) {
    orplayer_t player = makePlayer("null");
    ASSERT_EQ(0, orplayer_start(player));
    // A short block that is taken at once, then one call with a minute of
    // audio: it blocks until the player lets it go.
    std::atomic<bool> longCall{false};
    std::thread writer([player, &longCall] {
      playRamp(player, 8000, 400);
      longCall = true;
      playRamp(player, 8000, 8000 * 60, 8000 * 60);
    });
    // Wait until the writer is about to make the long call, and then a
    // little: it is blocked inside it (destroying between its two calls
    // would leave it calling a freed player, which no caller may do).
    // Waits for the end of the play-out and for frames never written go
    // with the stop too.
    std::atomic<int> waitsEnded{0};
    std::thread drainWaiter, frameWaiter;
    if (!destroy) {
      drainWaiter = std::thread([&] { waitsEnded += orplayer_wait_drained(player, 60000); });
      frameWaiter = std::thread([&] { waitsEnded += 1 - orplayer_wait_written(player, UINT64_MAX, 60000); });
    }
    while (!longCall) std::this_thread::sleep_for(5ms);
    std::this_thread::sleep_for(100ms);
    auto start = Clock::now();
    if (destroy) {
      orplayer_destroy(player);
      writer.join();
    } else {
      orplayer_stop(player);
      writer.join();
      drainWaiter.join();
      frameWaiter.join();
      EXPECT_EQ(2, waitsEnded);
      EXPECT_FALSE(orplayer_is_playing(player));
      // Frames given to a stopped player are dropped at once.
      playRamp(player, 8000, 8000);
      EXPECT_FALSE(orplayer_is_playing(player));
      // It can start again; the count goes on.
      uint64_t before = orplayer_frames_written(player);
      ASSERT_EQ(0, orplayer_start(player));
      playRamp(player, 8000, 400);
      orplayer_play_done(player);
      ASSERT_TRUE(waitUntilSilent(player));
      EXPECT_EQ(before + 400, orplayer_frames_written(player));
      orplayer_destroy(player);
    }
    EXPECT_LT(secondsSince(start), 5.0);
  }
}

TEST(OrplayerTest, OutputChoice) {
  orplayer_t player = orplayer_create();
  EXPECT_EQ(ORPLAYER_ERROR_BAD_SPEC, orplayer_set_output(player, "speakers"));
  EXPECT_EQ(ORPLAYER_ERROR_BAD_SPEC, orplayer_set_output(player, "wav:"));
  // One list of names: every setting's text reads back as the same value.
  for (const char* text : {"auto", "pulse", "pulse:a.b", "alsa", "alsa:hw:0,0", "null", "null:fast", "wav:/x/y.wav"})
    EXPECT_EQ(BVAudioOutputSetting::fromString(text).value_or(BVAudioOutputSetting{}).text(), text);
  EXPECT_STRNE(orplayer_error_string(ORPLAYER_ERROR_BAD_SPEC), orplayer_error_string(12345));

  // The environment decides when no output was set.
  const char* saved = getenv("BELVANE_AUDIO_OUTPUT");
  std::string savedValue = saved ? saved : "";
  setenv("BELVANE_AUDIO_OUTPUT", "null:fast", 1);
  ASSERT_EQ(0, orplayer_start(player));
  EXPECT_STREQ("null:fast", orplayer_output_name(player));
  orplayer_stop(player);
  setenv("BELVANE_AUDIO_OUTPUT", "bogus", 1);
  EXPECT_EQ(ORPLAYER_ERROR_BAD_SPEC, orplayer_start(player));
  if (saved)
    setenv("BELVANE_AUDIO_OUTPUT", savedValue.c_str(), 1);
  else
    unsetenv("BELVANE_AUDIO_OUTPUT");

  // Automatic choice always ends in something that plays, and says when
  // that is silence.
  ASSERT_EQ(0, orplayer_set_output(player, "auto"));
  ASSERT_EQ(0, orplayer_start(player));
  std::string name = orplayer_output_name(player);
  EXPECT_TRUE(name == "pulse" || name == "alsa" || name == "null (no sound output found)") << name;
  orplayer_destroy(player);

  player = makePlayer("wav:/nonexistent-folder/out.wav");
  EXPECT_EQ(ORPLAYER_ERROR_WAV_FILE, orplayer_start(player));
  EXPECT_FALSE(orplayer_is_playing(player));
  orplayer_destroy(player);
}

}  // namespace
