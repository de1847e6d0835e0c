// End to end against a real Icecast 2 server: a station changes its title
// three times while the MP3 stream player plays it into a WAV file, and
// each title must be announced when the output has written exactly up to
// (within one MPEG frame of) the audio that follows it in the stream.
// What the listener received is recorded by the loopback proxy the player
// goes through, and read independently of the player.
#include <gtest/gtest.h>

#include <belvane/BVMP3StreamPlayer.h>
#include <belvane/BVRequestSettings.h>

#include <map>

#include "support/icecast_server.h"
#include "support/mp3_test_data.h"
#include "support/recording_owner.h"
#include "support/temp_dir.h"
#include "support/test_http_proxy.h"

using namespace belvane::test;

namespace {

// For each title in a recorded ICY reply: the number of samples of the MPEG
// frames that start before the metadata block (where the title's audio begins).
std::map<std::string, uint64_t> titlePositions(const std::string& reply) {
  std::map<std::string, uint64_t> out;
  size_t headEnd = reply.find("\r\n\r\n");
  size_t at = reply.find("icy-metaint:");
  if (headEnd == std::string::npos || at == std::string::npos) return out;
  size_t metaint = std::stoul(reply.substr(at + 12));
  std::string audio;
  std::vector<std::pair<std::string, size_t>> marks;
  size_t pos = headEnd + 4;
  while (pos < reply.size()) {
    size_t n = std::min(metaint, reply.size() - pos);
    audio.append(reply, pos, n);
    pos += n;
    if (n < metaint || pos >= reply.size()) break;
    size_t len = size_t(uint8_t(reply[pos])) * 16;
    std::string meta = reply.substr(pos + 1, len);
    pos += 1 + len;
    size_t t = meta.find("StreamTitle='");
    if (t != std::string::npos) {
      std::string title = meta.substr(t + 13, meta.find("';", t) - t - 13);
      marks.push_back({title, audio.size()});
    }
  }
  // The first frame the decoder can find: a run of valid frames.
  size_t first = 0;
  Mp3Data frames;
  for (; first + 4 < audio.size(); ++first) {
    frames = splitMp3Frames(audio.substr(first));
    if (frames.frames.size() >= 8) break;
  }
  for (auto& [title, offset] : marks) {
    if (out.count(title)) continue;
    uint64_t samples = 0;
    for (auto& f : frames.frames)
      if (first + f.offset < offset) samples += uint64_t(f.samples);
    out[title] = samples;
  }
  return out;
}

}  // namespace

TEST(IcecastEndToEnd, ThreeTitleChangesAreAnnouncedWithTheirAudio) {
  if (!IcecastServer::available()) GTEST_SKIP() << "icecast2 is not installed";
  BELVANE_SKIP_WITHOUT_LAME();
  // 48 kHz at 128 kbit/s: every frame is 384 bytes, 1152 samples.
  Mp3Data tone = encodeTone(48000, 2, 128, 6.0, 330.0);
  ASSERT_FALSE(tone.frames.empty());
  IcecastServer ice;
  ASSERT_TRUE(ice.start(9600));
  ASSERT_TRUE(ice.startSource("/live.mp3", tone.bytes, 16000));
  ASSERT_TRUE(ice.setTitle("/live.mp3", "Opening"));
  TestHTTPProxy proxy;

  TempDir dir;
  RecordingOwner owner;
  auto player = BVMP3StreamPlayer::create();
  player->setOwner(&owner);
  ASSERT_EQ(player->setAudioOutput("wav:" + dir.path() + "/station.wav"), 0);
  owner.frames = [p = player.get()] { return p->outputFramesWritten(); };
  player->setRequestSettings(BVRequestSettings::defaultSettings()->withProxyURL(proxy.url()));
  player->playLink(linkTo(ice.url("/live.mp3")));
  ASSERT_TRUE(BVRunLoop::main().runUntil([&] { return owner.reached(BVPlayerStatePlaying); }, 10.0));

  const std::vector<std::string> changes{"First change", "Second change", "Third change"};
  for (auto& title : changes) {
    ASSERT_TRUE(ice.setTitle("/live.mp3", title));
    ASSERT_TRUE(BVRunLoop::main().runUntil(
        [&] { return !owner.titles.empty() && owner.titles.back() == title; }, 10.0))
        << title << " never announced";
  }
  EXPECT_FALSE(owner.reached(BVPlayerStateError));
  EXPECT_EQ(ice.listenerConnections(), 1);  // through the proxy: one connection played it all
  player.reset();

  auto positions = titlePositions(proxy.longestReply());
  for (auto& title : changes) {
    ASSERT_TRUE(positions.count(title)) << title << " not in the recorded stream";
    auto it = std::find(owner.titles.begin(), owner.titles.end(), title);
    uint64_t announcedAt = owner.titleFrames[size_t(it - owner.titles.begin())];
    EXPECT_GT(positions[title], 0u);
    EXPECT_NEAR(double(announcedAt), double(positions[title]), 1152.0) << title;
  }
}
