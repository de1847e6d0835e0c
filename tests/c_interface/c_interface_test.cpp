// The C interface playing a loopback station: the callbacks it relays, the
// attributes and counters it reads, stop, the audio output check, and a
// destroy from inside a callback.
#include <gtest/gtest.h>

#include <belvane/BVRunLoop.h>
#include <belvane/belvane.h>

#include "support/icy_test_server.h"

#include <string>
#include <vector>

using namespace belvane::test;

namespace {

struct Recorder {
  std::vector<std::pair<bv_state, bv_state>> states;
  std::vector<std::string> streamTitles;
  bool destroyOnPlaying = false;
  int callsAfterDestroy = 0;
  bool destroyed = false;
};

void onState(bv_player* player, bv_state from, bv_state to, const bv_player_error*, void* userdata) {
  auto* r = static_cast<Recorder*>(userdata);
  if (r->destroyed) ++r->callsAfterDestroy;
  r->states.emplace_back(from, to);
  if (to == BV_STATE_PLAYING && r->destroyOnPlaying) {
    bv_player_destroy(player);
    r->destroyed = true;
  }
}

void onAttributes(bv_player*, const char* const* keys, const char* const* values, size_t count, void* userdata) {
  auto* r = static_cast<Recorder*>(userdata);
  if (r->destroyed) ++r->callsAfterDestroy;
  for (size_t i = 0; i < count; ++i)
    if (std::string(keys[i]) == BV_ATTRIBUTE_STREAM_TITLE) r->streamTitles.emplace_back(values[i]);
}

// A station that sends its audio at once, then keeps the connection open.
IcyStreamScript station() {
  IcyStreamScript s;
  s.audio = {stereoTone44k()};
  s.audioBytes = 200'000;
  s.titleForBlock = [](int) { return std::string("Loopback Song"); };
  s.end = IcyStreamScript::End::Stall;
  return s;
}

bool runUntil(const std::function<bool()>& done) { return BVRunLoop::main().runUntil(done, 20.0); }

}  // namespace

TEST(CInterface, PlaysAStationReportsItAndStops) {
  BELVANE_SKIP_WITHOUT_LAME();
  EXPECT_EQ(bv_version(), BELVANE_VERSION);
  IcyTestServer server;
  server.serve("/live", {station()});
  Recorder r;
  bv_player* player = bv_player_create();
  ASSERT_TRUE(player);
  bv_player_set_state_callback(player, onState, &r);
  bv_player_set_attribute_callback(player, onAttributes, &r);

  // A bad setting is refused and leaves the good one in place.
  ASSERT_EQ(bv_player_set_audio_output(player, "null:fast"), BV_OK);
  EXPECT_EQ(bv_player_set_audio_output(player, "loudspeaker"), BV_ERROR_INVALID_AUDIO_OUTPUT);
  EXPECT_EQ(bv_player_play(player, "", nullptr), BV_ERROR_INVALID_URL);
  EXPECT_EQ(bv_player_get_state(player), BV_STATE_IDLE);

  ASSERT_EQ(bv_player_play(player, server.url("/live").c_str(), "Loopback FM"), BV_OK);
  ASSERT_TRUE(runUntil([&] { return !r.streamTitles.empty() && bv_player_get_frames_written(player) > 0; }));
  ASSERT_GE(r.states.size(), 2u);
  EXPECT_EQ(r.states[0], std::make_pair(BV_STATE_IDLE, BV_STATE_CONNECTING));
  EXPECT_EQ(r.states[1], std::make_pair(BV_STATE_CONNECTING, BV_STATE_PLAYING));
  EXPECT_EQ(r.streamTitles.front(), "Loopback Song");
  char* title = bv_player_get_attribute(player, BV_ATTRIBUTE_STREAM_TITLE);
  ASSERT_TRUE(title);
  EXPECT_STREQ(title, "Loopback Song");
  bv_free(title);
  EXPECT_EQ(bv_player_get_attribute(player, "NoSuchKey"), nullptr);
  char* output = bv_player_get_audio_output_name(player);
  EXPECT_STREQ(output, "null:fast");
  bv_free(output);
  EXPECT_EQ(bv_player_get_position(player), -1.0);  // live

  uint64_t frames = bv_player_get_frames_written(player);
  EXPECT_TRUE(runUntil([&] { return bv_player_get_frames_written(player) > frames; }));

  // Stop reports Stopped at once, and nothing follows.
  ASSERT_EQ(bv_player_stop(player), BV_OK);
  EXPECT_EQ(r.states.back(), std::make_pair(BV_STATE_PLAYING, BV_STATE_STOPPED));
  EXPECT_EQ(bv_player_get_state(player), BV_STATE_STOPPED);
  EXPECT_EQ(bv_player_get_frames_written(player), 0u);
  size_t events = r.states.size() + r.streamTitles.size();
  BVRunLoop::main().runFor(0.3);
  EXPECT_EQ(r.states.size() + r.streamTitles.size(), events);

  // A later play starts afresh.
  r.states.clear();
  ASSERT_EQ(bv_player_play(player, server.url("/live").c_str(), nullptr), BV_OK);
  ASSERT_TRUE(runUntil([&] { return bv_player_get_state(player) == BV_STATE_PLAYING; }));
  EXPECT_EQ(r.states.front(), std::make_pair(BV_STATE_STOPPED, BV_STATE_CONNECTING));
  bv_player_destroy(player);
}

TEST(CInterface, DestroyInsideACallbackEndsTheCallbacks) {
  BELVANE_SKIP_WITHOUT_LAME();
  IcyTestServer server;
  server.serve("/live", {station()});
  Recorder r;
  r.destroyOnPlaying = true;
  bv_player* player = bv_player_create();
  bv_player_set_state_callback(player, onState, &r);
  bv_player_set_attribute_callback(player, onAttributes, &r);
  ASSERT_EQ(bv_player_set_audio_output(player, "null:fast"), BV_OK);
  ASSERT_EQ(bv_player_play(player, server.url("/live").c_str(), nullptr), BV_OK);
  ASSERT_TRUE(runUntil([&] { return r.destroyed; }));
  BVRunLoop::main().runFor(0.5);
  EXPECT_EQ(r.callsAfterDestroy, 0);
}
