// Playing loopback streams: the tuner's reply played with its titles placed
// to the frame, audio and titles delivered from one thread, sample-rate
// changes, clean ends and reconnection after a drop.
#include "streaming/shoutstreamer.h"
#include "streaming/stream_recorder.h"
#include "support/icy_test_server.h"
#include "support/private_system_bus.h"
#include "support/temp_dir.h"
#include "tuner/tuner_test_support.h"

#include <gtest/gtest.h>

#include <gio/gio.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <unistd.h>

using belvane::test::IcyStreamScript;
using belvane::test::IcyTestServer;
using belvane::test::Response;
using belvane::test::StreamRecorder;
using belvane::test::toneScript;

constexpr uint64_t kMpegFrame = 1152;

class StatusLines : public ::testing::TestWithParam<const char*> {};

TEST_P(StatusLines, PlaysWithTitlesInPlace) {
  BELVANE_SKIP_WITHOUT_LAME();
  IcyTestServer server;
  auto script = toneScript(400'000, IcyStreamScript::End::Stall);
  script.statusLine = GetParam();
  server.serve("/live", {script});

  auto tuning = belvane::test::fastTuning();
  tuning.stallTimeout = 10;  // the stream stalls at its end
  StreamRecorder recorder(tuning);
  // The stream the tuner finds is played from the tuner's own reply, started
  // inside the tuner's call as the MP3 player does: one request in all.
  belvane::test::RecordingTunerDelegate delegate;
  delegate.onFound = [&] { ASSERT_EQ(recorder.start(delegate.found.back().url), 0); };
  auto tuner = QLStreamTuner::create(&delegate);
  tuner->setSourceURL(*BVURL::URLWithString(server.url("/live")));
  tuner->start();
  ASSERT_TRUE(belvane::test::runUntil([&] { return !delegate.found.empty(); }));
  // All but what waits in the prebuffer after the last byte.
  const uint64_t audioFrames = 400'000 / 418 * kMpegFrame;
  ASSERT_TRUE(recorder.waitForFrames(audioFrames - 30 * kMpegFrame));
  EXPECT_EQ(server.connections("/live"), 1);
  auto states = recorder.states();
  ASSERT_GE(states.size(), 3u);
  EXPECT_EQ(states[0], std::make_pair(0, 1));
  EXPECT_EQ(states[1], std::make_pair(1, 2));
  EXPECT_EQ(states[2], std::make_pair(2, 3));
  // The stall is reported as buffering; the brief refills while the server
  // sent faster than the audio was taken are not.
  ASSERT_TRUE(recorder.waitFor([&] { return recorder.lastChangeIs(3, 2); }));
  states = recorder.states();
  EXPECT_LE(std::count(states.begin(), states.end(), std::make_pair(3, 2)), 3) << states.size() << " changes";
  EXPECT_EQ(recorder.rateChanges(), (std::vector<std::pair<long, uint64_t>>{{44100, 0}}));
  EXPECT_TRUE(recorder.oneCallbackThread());
  expectTitlesInPlace(recorder, server, 10);
  EXPECT_LT(recorder.destroy(), 2.0);
}

INSTANTIATE_TEST_SUITE_P(Shoutstreamer, StatusLines, ::testing::Values("ICY 200 OK", "HTTP/1.0 200 OK"),
                         [](const auto& info) { return std::string(info.param).starts_with("ICY") ? "ICY" : "HTTP"; });

TEST(Shoutstreamer, FollowsSampleRateChanges) {
  BELVANE_SKIP_WITHOUT_LAME();
  IcyTestServer server;
  IcyStreamScript script;
  script.statusLine = "HTTP/1.0 200 OK";
  script.audio = {belvane::test::stereoTone44k(), belvane::test::monoTone22k()};
  script.metaint = 5000;
  script.titleForBlock = [](int block) { return "Block " + std::to_string(block); };
  script.audioBytes = script.audio[0]->bytes.size() + script.audio[1]->bytes.size();
  script.contentLength = true;
  server.serve("/mixed", {script});

  StreamRecorder recorder;
  ASSERT_EQ(recorder.start(server.url("/mixed")), 0);
  ASSERT_TRUE(recorder.waitForState(SHOUTSTREAMER_STATE_ENDED));
  EXPECT_EQ(recorder.frames(), script.audio[0]->totalSamples() + script.audio[1]->totalSamples());
  auto rates = recorder.rateChanges();
  ASSERT_EQ(rates.size(), 2u);
  EXPECT_EQ(rates[0], std::make_pair(44100L, uint64_t(0)));
  EXPECT_EQ(rates[1], std::make_pair(22050L, script.audio[0]->totalSamples()));
  expectTitlesInPlace(recorder, server, 10);
}

TEST(Shoutstreamer, EndsCleanlyAtADeclaredLengthWithMonoDuplicated) {
  BELVANE_SKIP_WITHOUT_LAME();
  IcyTestServer server;
  IcyStreamScript script;
  script.statusLine = "HTTP/1.1 200 OK";
  script.audio = {belvane::test::monoTone22k()};
  script.metaint = 4000;
  script.titleForBlock = [](int block) { return block == 0 ? "Caf\xE9 del Mar" : ""; };  // Windows-1252
  script.audioBytes = script.audio[0]->bytes.size();
  script.contentLength = true;
  server.serve("/mono.mp3", {script});
  server.http().route("/moved", Response::redirect(server.url("/mono.mp3")));

  StreamRecorder recorder;
  // icy:// is fetched as http://; the redirect is followed.
  std::string url = server.url("/moved");
  ASSERT_EQ(recorder.start("icy" + url.substr(4)), 0);
  ASSERT_TRUE(recorder.waitForState(SHOUTSTREAMER_STATE_ENDED));
  // A consumer as fast as this one may drain the buffer now and then (3 -> 2
  // -> 3); the stream starts and ends the same way whatever happens between.
  auto states = recorder.states();
  ASSERT_GE(states.size(), 4u);
  EXPECT_EQ(std::vector(states.begin(), states.begin() + 3), (std::vector<std::pair<int, int>>{{0, 1}, {1, 2}, {2, 3}}));
  EXPECT_EQ(states.back().second, SHOUTSTREAMER_STATE_ENDED);
  EXPECT_EQ(recorder.frames(), script.audio[0]->totalSamples());
  EXPECT_FALSE(recorder.channelsDiffered());
  EXPECT_EQ(shoutstreamer_status(recorder.streamer(), nullptr), 0);
  EXPECT_EQ(server.connections("/mono.mp3"), 1);
  ASSERT_EQ(recorder.titles().size(), 1u);
  EXPECT_EQ(recorder.titles()[0].text, "Caf\u00e9 del Mar");

  // A file ends the same way.
  belvane::test::TempDir dir;
  std::string path = dir.write("tone.mp3", script.audio[0]->bytes);
  StreamRecorder file;
  ASSERT_EQ(file.start("file://" + path), 0);
  ASSERT_TRUE(file.waitForState(SHOUTSTREAMER_STATE_ENDED));
  EXPECT_EQ(file.frames(), script.audio[0]->totalSamples());
}

TEST(Shoutstreamer, ReconnectsAfterADropWithoutReportingIt) {
  BELVANE_SKIP_WITHOUT_LAME();
  IcyTestServer server;
  server.serve("/flaky", {toneScript(100'000), toneScript(100'000, IcyStreamScript::End::Stall)});

  auto tuning = belvane::test::fastTuning();
  tuning.stallTimeout = 10;  // the second connection stalls at its end
  StreamRecorder recorder(tuning);
  ASSERT_EQ(recorder.start(server.url("/flaky")), 0);
  // Both connections' audio arrives (less what waits in the prebuffer):
  // the second is a fresh start of the tone.
  const uint64_t perConnection = 100'000 / 418 * kMpegFrame;
  ASSERT_TRUE(recorder.waitForFrames(2 * perConnection - 30 * kMpegFrame));
  EXPECT_EQ(server.connections("/flaky"), 2);
  for (auto& [from, to] : recorder.states()) EXPECT_NE(to, SHOUTSTREAMER_STATE_FAILED);
  EXPECT_EQ(shoutstreamer_status(recorder.streamer(), nullptr), 0);
  // Titles keep their places across the reconnection: those of the second
  // connection sit after all of the first connection's audio.
  auto titles = recorder.titles();
  auto sent = server.titles();
  ASSERT_EQ(titles.size(), sent.size());
  uint64_t firstConnectionFrames = 0;
  for (size_t i = 0; i < sent.size(); ++i) {
    if (sent[i].connection == 0) firstConnectionFrames = std::max(firstConnectionFrames, titles[i].position);
    if (sent[i].connection == 1) {
      EXPECT_GT(titles[i].position, firstConnectionFrames);
    }
  }
}

TEST(Shoutstreamer, FailsOnlyWhenReconnectionFails) {
  BELVANE_SKIP_WITHOUT_LAME();
  IcyTestServer server;
  IcyStreamScript gone;
  gone.statusLine = "ICY 404 Not Found";
  gone.audioBytes = 0;
  server.serve("/gone", {toneScript(100'000), gone});

  StreamRecorder recorder;
  ASSERT_EQ(recorder.start(server.url("/gone")), 0);
  ASSERT_TRUE(recorder.waitForState(SHOUTSTREAMER_STATE_FAILED));
  EXPECT_GE(server.connections("/gone"), 3);  // the drop, then several tries
  auto states = recorder.states();
  EXPECT_EQ(states.back().second, SHOUTSTREAMER_STATE_FAILED);
  EXPECT_EQ(shoutstreamer_status(recorder.streamer(), nullptr), SHOUTSTREAMER_ERROR_NOT_FOUND);
  // Everything received before the drop was delivered first.
  EXPECT_GE(recorder.frames(), 100'000 / 418 * kMpegFrame - 2 * kMpegFrame);
}

namespace {
// Reconnection tries 8 s apart: a pause the machine's news must cut short.
belvane::detail::ShoutstreamerTuning pausingTuning() {
  auto tuning = belvane::test::fastTuning();
  tuning.reconnectWindow = 60;
  tuning.reconnectFirstDelay = 8;
  tuning.reconnectMaxDelay = 8;
  return tuning;
}

// Plays a station whose first connection closes after a little audio, until
// the reader has been pausing before its next try for a second.
void playUntilTheReaderPauses(IcyTestServer& server, StreamRecorder& recorder) {
  server.serve("/radio", {toneScript(60'000), toneScript(4'000'000)});
  ASSERT_EQ(recorder.start(server.url("/radio")), 0);
  ASSERT_TRUE(recorder.waitForState(SHOUTSTREAMER_STATE_PLAYING));
  ASSERT_TRUE(recorder.waitForFrames(60'000 / 418 * kMpegFrame - 30 * kMpegFrame));
  std::this_thread::sleep_for(std::chrono::seconds(1));
}
}  // namespace

// News of the machine's network (here its loopback going down and up again
// in a network namespace of the test's own) makes a reconnection try at
// once instead of after its pause. Needs root and unshare(1), as CI has.
TEST(Shoutstreamer, ANetworkThatComesBackIsTriedAtOnce) {
  BELVANE_SKIP_WITHOUT_LAME();
  if (!std::getenv("BELVANE_TEST_IN_NETNS")) {
    if (geteuid() != 0 || std::system("unshare -n true >/dev/null 2>&1") != 0)
      GTEST_SKIP() << "needs root and a network namespace (unshare -n)";
    std::string again = "BELVANE_TEST_IN_NETNS=1 unshare -n /proc/" + std::to_string(getpid()) +
                        "/exe --gtest_filter=Shoutstreamer.ANetworkThatComesBackIsTriedAtOnce";
    EXPECT_EQ(std::system(again.c_str()), 0);
    return;
  }
  ASSERT_EQ(std::system("ip link set lo up"), 0);
  IcyTestServer server;
  StreamRecorder recorder(pausingTuning());
  ASSERT_NO_FATAL_FAILURE(playUntilTheReaderPauses(server, recorder));
  ASSERT_EQ(std::system("ip link set lo down"), 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  const auto up = std::chrono::steady_clock::now();
  ASSERT_EQ(std::system("ip link set lo up"), 0);
  ASSERT_TRUE(recorder.waitFor([&] { return server.connections("/radio") >= 2; }, 20.0));
  const double waited = std::chrono::duration<double>(std::chrono::steady_clock::now() - up).count();
  EXPECT_LT(waited, 3.0) << "the try came " << waited << " s after the network was back";
  const uint64_t before = recorder.frames();
  EXPECT_TRUE(recorder.waitForFrames(before + 44100, 10.0));
  for (auto& [from, to] : recorder.states()) EXPECT_NE(to, SHOUTSTREAMER_STATE_FAILED);
}

// A resume from suspend (logind's PrepareForSleep(false), here sent on a
// private system bus) makes a reconnection try at once instead of after its
// pause. Run in a process of its own, so that the library meets that bus
// first.
TEST(Shoutstreamer, AResumeFromSuspendIsTriedAtOnce) {
  BELVANE_SKIP_WITHOUT_LAME();
  if (!std::getenv("BELVANE_TEST_PRIVATE_SYSTEM_BUS")) {
    if (!belvane::test::PrivateSystemBus::available()) GTEST_SKIP() << "dbus-daemon is not installed";
    belvane::test::TempDir dir;
    belvane::test::PrivateSystemBus bus(dir.path());
    ASSERT_FALSE(bus.address().empty());
    std::string again = "BELVANE_TEST_PRIVATE_SYSTEM_BUS=1 DBUS_SYSTEM_BUS_ADDRESS='" + bus.address() + "' /proc/" +
                        std::to_string(getpid()) + "/exe --gtest_filter=Shoutstreamer.AResumeFromSuspendIsTriedAtOnce";
    EXPECT_EQ(std::system(again.c_str()), 0);
    return;
  }
  IcyTestServer server;
  StreamRecorder recorder(pausingTuning());
  ASSERT_NO_FATAL_FAILURE(playUntilTheReaderPauses(server, recorder));
  GDBusConnection* logind = g_dbus_connection_new_for_address_sync(
      std::getenv("DBUS_SYSTEM_BUS_ADDRESS"),
      GDBusConnectionFlags(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                           G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
      nullptr, nullptr, nullptr);
  ASSERT_TRUE(logind);
  const auto resumed = std::chrono::steady_clock::now();
  EXPECT_TRUE(g_dbus_connection_emit_signal(logind, nullptr, "/org/freedesktop/login1",
                                            "org.freedesktop.login1.Manager", "PrepareForSleep",
                                            g_variant_new("(b)", FALSE), nullptr));
  g_dbus_connection_flush_sync(logind, nullptr, nullptr);
  ASSERT_TRUE(recorder.waitFor([&] { return server.connections("/radio") >= 2; }, 20.0));
  const double waited = std::chrono::duration<double>(std::chrono::steady_clock::now() - resumed).count();
  EXPECT_LT(waited, 3.0) << "the try came " << waited << " s after the resume";
  g_dbus_connection_close_sync(logind, nullptr, nullptr);
  g_object_unref(logind);
}
