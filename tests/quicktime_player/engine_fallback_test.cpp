// The Windows Media component work-around, and stations that the MP3
// streamer declines reaching the general engine through the master player.
#include <belvane/BVMasterPlayer.h>
#include <belvane/BVQuickTimePlayer.h>
#include "players/quicktime/quicktime_player_impl.h"

#include "support/scoped_env.h"
#include "movie/reference_movie.h"
#include "quicktime_test_support.h"
#include "support/icecast_server.h"
#include "support/icy_test_server.h"
#include "support/mp3_test_data.h"
#include "support/temp_dir.h"
#include "support/wav_file.h"

#include <gtest/gtest.h>
#include <glib.h>
#include <sys/stat.h>

#include <algorithm>
#include <functional>

using namespace belvane::test;

namespace {

void installComponent(const TempDir& home, const std::string& version) {
  home.write("QuickTime/Flip4Mac WMV Advanced.component/Info.plist",
             "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
             "<key>CFBundleVersion</key><string>" + version + "</string></dict></plist>\n");
}

bool fixedWith(const std::string& version) {
  TempDir home;
  ScopedXDGDataHome xdg(home.path());
  if (!version.empty()) installComponent(home, version);
  BVQuickTimePlayer::Impl::resetFlip4MacVersionCheck();
  return BVQuickTimePlayer::flip4MacVersionHasFixedLoopingBug();
}

}  // namespace

TEST(WindowsMediaWorkAround, OnlyFullVersionsFromTwoPointTwoCountAsFixed) {
  EXPECT_TRUE(fixedWith("2.2.0"));
  EXPECT_FALSE(fixedWith("2.1.9"));
  EXPECT_FALSE(fixedWith("2.2"));
  EXPECT_FALSE(fixedWith(""));

  // "Not fixed" is remembered; "fixed" is looked for again each time.
  TempDir home;
  ScopedXDGDataHome xdg(home.path());
  BVQuickTimePlayer::Impl::resetFlip4MacVersionCheck();
  EXPECT_FALSE(BVQuickTimePlayer::flip4MacVersionHasFixedLoopingBug());
  installComponent(home, "2.3.0");
  EXPECT_FALSE(BVQuickTimePlayer::flip4MacVersionHasFixedLoopingBug());
  BVQuickTimePlayer::Impl::resetFlip4MacVersionCheck();
  EXPECT_TRUE(BVQuickTimePlayer::flip4MacVersionHasFixedLoopingBug());
  BVQuickTimePlayer::Impl::resetFlip4MacVersionCheck();
}

TEST(WindowsMediaWorkAround, MMSAndASXLinksBecomePrivateReferenceMoviesThatGo) {
  TempDir home, runtime;
  ScopedXDGDataHome xdg(home.path());
  ScopedEnv runtimeDir("XDG_RUNTIME_DIR", runtime.path());
  const std::string folder = runtime.path() + "/com.brambleside.ettd";
  BVQuickTimePlayer::Impl::resetFlip4MacVersionCheck();
  auto player = BVQuickTimePlayer::create();
  const std::string url = "mms://media.example.net/live/station-with-a-rather-long-name";
  auto safe = player->makeLinkSafeFromASXBug(linkTo(url));
  ASSERT_TRUE(safe->url().isFileURL());
  EXPECT_TRUE(BVQuickTimePlayer::Impl::employedFlip4MacWorkAround(*player));
  std::string path = safe->url().fileSystemPath();
  EXPECT_EQ(path.rfind(folder + "/", 0), 0u) << path;
  struct stat st {};
  ASSERT_EQ(stat(path.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
  std::string bytes = readWholeFile(path);
  auto named = belvane::detail::referenceMovieURL(
      std::span(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()));
  EXPECT_EQ(named.value_or(""), url);

  // wsx is rewritten too; other links pass unchanged.
  auto wsx = player->makeLinkSafeFromASXBug(linkTo("http://h/a.WSX"));
  EXPECT_TRUE(wsx->url().isFileURL());
  BVRunLoop::main().runFor(0.05);
  EXPECT_FALSE(g_file_test(path.c_str(), G_FILE_TEST_EXISTS)) << "gone once the turn that made it is over";
  EXPECT_FALSE(g_file_test(wsx->url().fileSystemPath().c_str(), G_FILE_TEST_EXISTS));

  // Played, the link's errors name the link, and nothing is left behind
  // once the player is gone.
  RecordingOwner owner;
  auto playing = BVQuickTimePlayer::create();
  playing->setOwner(&owner);
  const std::string refused = "mms://127.0.0.1:" + std::to_string(TestHTTPServer::refusedPort()) + "/live";
  playing->playLink(linkTo(refused));
  auto folderIsEmpty = [&] {
    GDir* dir = g_dir_open(folder.c_str(), 0, nullptr);
    bool empty = dir && !g_dir_read_name(dir);
    if (dir) g_dir_close(dir);
    return empty;
  };
  EXPECT_TRUE(folderIsEmpty()) << "the movie has been opened: its reference movie is gone";
  runUntilEnded(owner, 10);
  playing->setOwner(nullptr);
  playing.reset();
  ASSERT_TRUE(owner.reached(BVPlayerStateError));
  std::string details = owner.states.back().error ? owner.states.back().error->description() : "";
  EXPECT_NE(details.find("MediaLink URL:\n" + refused), std::string::npos) << details;
  EXPECT_EQ(details.find(".mov"), std::string::npos) << details;

  auto plain = linkTo("http://h/a.m4a");
  EXPECT_EQ(player->makeLinkSafeFromASXBug(plain), plain);

  installComponent(home, "2.2.0");
  BVQuickTimePlayer::Impl::resetFlip4MacVersionCheck();
  auto mms = linkTo(url);
  EXPECT_EQ(player->makeLinkSafeFromASXBug(mms), mms);
  BVQuickTimePlayer::Impl::resetFlip4MacVersionCheck();
}

namespace {

bool announcedTitle(const RecordingOwner& owner, const std::string& title) {
  return BVRunLoop::main().runUntil(
      [&] { return std::find(owner.titles.begin(), owner.titles.end(), title) != owner.titles.end(); }, 15.0);
}

// Plays url on a master player and checks that the general engine took it
// over with its titles; returns the master, still playing.
std::shared_ptr<BVMasterPlayer> expectGeneralEngineTakesOver(const std::string& url,
                                                             const std::function<void(const std::string&)>& setTitle) {
  setTitle("First Song");
  auto master = BVMasterPlayer::create();
  RecordingOwner owner;
  master->setOwner(&owner);
  master->playLink(linkTo(url));
  EXPECT_TRUE(owner.runUntil(BVPlayerStatePlaying, 30.0)) << url;
  if (!owner.reached(BVPlayerStatePlaying)) return nullptr;
  // One Connecting for the playback: the switch of engines is not news.
  EXPECT_EQ(owner.sequence(), (std::vector<BVPlayerState>{BVPlayerStateConnecting, BVPlayerStatePlaying})) << url;
  for (auto& event : owner.states) {
    EXPECT_EQ(event.error, nullptr);  // the streamer's failure stays inside
    EXPECT_EQ(event.player, master.get());
  }
  EXPECT_NE(dynamic_cast<BVQuickTimePlayer*>(master->subPlayer().get()), nullptr);
  EXPECT_TRUE(announcedTitle(owner, "First Song")) << url;
  setTitle("Second Song");
  EXPECT_TRUE(announcedTitle(owner, "Second Song")) << url;
  EXPECT_EQ(master->attributes()[BVPlayerAttributeStreamTitleKey].stringOr(), "Second Song");
  master->setOwner(nullptr);
  return master;
}

}  // namespace

// A live station played by the general engine has no position or length.
TEST(GeneralEngineFallback, AACStationListPlaysThroughTheGeneralEngine) {
  TempDir dir;
  Mp3Data aac = aacTone(dir, 3.0);
  IcyTestServer server;
  LiveAACStation station(server, "/aac", aac);
  server.http().route("/station.pls", Response::ok("audio/x-scpls", "[playlist]\nNumberOfEntries=1\nFile1=" +
                                                                        server.url("/aac") + "\nTitle1=AAC\n"));
  auto master =
      expectGeneralEngineTakesOver(server.url("/station.pls"), [&](const std::string& t) { station.setTitle(t); });
  ASSERT_TRUE(master);
  EXPECT_FALSE(master->hasPosition());
  EXPECT_EQ(master->position(), -1.0f);
  EXPECT_FALSE(master->attributes().contains(BVPlayerAttributeDurationKey));
}

TEST(GeneralEngineFallback, AACOnIcecastPlaysThroughTheGeneralEngine) {
  IcecastServer ice;
  if (!IcecastServer::available()) GTEST_SKIP() << "icecast2 is not installed";
  ASSERT_TRUE(ice.start());
  TempDir dir;
  auto adts = readWholeFile(writeMediaFile(dir.path() + "/live.aac", MediaKind::ADTS, 3.0));
  ASSERT_TRUE(ice.startSource("/live.aac", adts, int(adts.size() / 3), "audio/aac"));
  auto master = expectGeneralEngineTakesOver(ice.url("/live.aac"),
                                             [&](const std::string& t) { ASSERT_TRUE(ice.setTitle("/live.aac", t)); });
  ASSERT_TRUE(master);
  // The tuner's look at the reply, the engine choice and the general engine
  // share one listener connection. (A source that goes away and comes back,
  // its listeners dropped meanwhile: the live-station tests of each engine.)
  EXPECT_EQ(ice.listenerConnections(), 1);
}

TEST(GeneralEngineFallback, AnMP3FileTheStreamerCannotReadPlaysThroughTheGeneralEngineWithItsTags) {
  BELVANE_SKIP_WITHOUT_LAME();
  TempDir dir;
  // A tag larger than the streamer searches for the first frame (a cover
  // picture, here private data), and a year the media framework reads not.
  std::string path = dir.write("covered.mp3", id3v2Tag(3, {{"TIT2", "Song"}, {"TYER", "1999"},
                                                           {"PRIV", std::string(200'000, 'x')}}) +
                                                  stereoTone44k()->bytes);
  MasterRun run;
  auto& master = run.master;
  auto& owner = run.owner;
  master->playLink(BVMediaLink::linkWithURL(BVURL::fileURLWithPath(path)));
  ASSERT_TRUE(owner.runUntil(BVPlayerStatePlaying));
  EXPECT_NE(dynamic_cast<BVQuickTimePlayer*>(master->subPlayer().get()), nullptr);
  auto attributes = master->attributes();
  EXPECT_EQ(attributes[BVPlayerAttributeTrackTitleKey].stringOr(), "Song");
  EXPECT_EQ(attributes[BVPlayerAttributeYearKey].stringOr(), "1999");
  EXPECT_FALSE(attributes.contains(BVPlayerAttributeStreamTitleKey));
  ASSERT_TRUE(master->hasPosition());
  master->setPosition(0.9f);
  ASSERT_TRUE(owner.runUntil(BVPlayerStateStopped, 5.0));
  EXPECT_EQ(owner.sequence(),
            (std::vector<BVPlayerState>{BVPlayerStateConnecting, BVPlayerStatePlaying, BVPlayerStateStopped}));
}

// A station that restarts as AAC while it plays: the general engine takes
// the playback over, and a WAV recording of it goes on (in the same file at
// the same rate, else in the next one beside it) instead of starting again:
// the MP3 audio from before the restart is kept.
TEST(GeneralEngineFallback, AWavRecordingGoesOnAcrossTheSwitchOfEngine) {
  if (!stereoTone44k()) GTEST_SKIP() << "lame is not installed";
  TempDir dir;
  Mp3Data aac = aacTone(dir, 2.0);
  IcyTestServer server;
  IcyStreamScript mp3;
  mp3.audio = {stereoTone44k()};
  mp3.audioBytes = 80'000;  // 5 s at 128 kbit/s, then the station restarts
  IcyStreamScript restarted = mp3;
  restarted.contentType = "audio/aacp";
  restarted.audio = {&aac};
  restarted.audioBytes = 4'000'000;
  server.serve("/live", {mp3, restarted});
  const std::string wav = dir.path() + "/rec.wav";
  RecordingOwner owner;
  auto master = BVMasterPlayer::create();
  master->setOwner(&owner);
  ASSERT_EQ(master->setAudioOutput("wav:" + wav), 0);
  master->setReconnectPatience(0);
  master->playLink(linkTo(server.url("/live")));
  ASSERT_TRUE(BVRunLoop::main().runUntil(
      [&] { return dynamic_cast<BVQuickTimePlayer*>(master->subPlayer().get()) && master->outputFramesWritten() > 44100; },
      30.0));
  const uint64_t generalFrames = master->outputFramesWritten();
  master->setOwner(nullptr);
  master.reset();  // completes the file
  BVRunLoop::main().runFor(0.2);
  uint64_t frames = 0;
  for (const std::string& path : {wav, dir.path() + "/rec.2.wav"}) {
    if (!g_file_test(path.c_str(), G_FILE_TEST_EXISTS)) continue;
    const WavFile file = readWav(path);
    EXPECT_EQ(file.channels, 2) << path;
    frames += file.samples.size() / 2;
  }
  EXPECT_GE(frames, generalFrames + 4 * 44100) << "the audio from before the restart is kept";
}
