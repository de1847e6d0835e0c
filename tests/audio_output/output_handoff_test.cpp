// The hand-off from writer to output thread on an unpaced output: frames
// gather for a short while but are never held back waiting for more.
#include "audio_output/orplayer.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;

bool waitForWritten(orplayer_t player, uint64_t frames) {
  auto deadline = std::chrono::steady_clock::now() + 10s;
  while (orplayer_frames_written(player) < frames) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(2ms);
  }
  return true;
}

TEST(OutputHandoff, FewFramesAreWrittenWithoutMoreComing) {
  orplayer_t player = orplayer_create();
  orplayer_options_t options{};
  options.flags = ORPLAYER_OPTION_LOW_LATENCY;
  orplayer_set_options(player, &options);
  ASSERT_EQ(0, orplayer_set_output(player, "null:fast"));
  ASSERT_EQ(0, orplayer_start(player));

  std::vector<float> left(100, 0.25f), right(100, -0.25f);
  float* channels[2] = {left.data(), right.data()};
  // Far less than the output gathers, with no end announced.
  orplayer_play_wait(player, 44100, channels, 100);
  EXPECT_TRUE(waitForWritten(player, 100));
  // Again once the output thread has gone idle.
  std::this_thread::sleep_for(100ms);
  orplayer_play_wait(player, 44100, channels, 7);
  EXPECT_TRUE(waitForWritten(player, 107));

  orplayer_destroy(player);
}

}  // namespace
