// The general engine's player on real media: local files, errors, ASX
// playlists and the attributes it announces.
#include <belvane/BVConstants.h>
#include <belvane/BVQuickTimePlayer.h>
#include "players/quicktime/quicktime_player_impl.h"

#include "quicktime_test_support.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <cstdlib>

using namespace belvane::test;

namespace {

// No sound card is needed: movies play into a clocked null sink.
const bool kNullAudio = (setenv("BELVANE_AUDIO_OUTPUT", "null", 1), true);

struct Playing {
  std::shared_ptr<BVQuickTimePlayer> player = BVQuickTimePlayer::create();
  RecordingOwner owner;
  Playing() { player->setOwner(&owner); }
  ~Playing() { player->setOwner(nullptr); }
};

}  // namespace

TEST(QuickTimePlayback, LocalFilePlaysToTheEndWithPositionsAndClampedSeeks) {
  TempDir dir;
  auto path = writeMediaFile(dir.path() + "/tone.m4a", MediaKind::M4A, 3.0,
                             {{"title", "Tone"}, {"artist", "Sine"}});
  Playing p;
  p.player->playLink(BVMediaLink::linkWithURL(BVURL::fileURLWithPath(path)));
  ASSERT_TRUE(p.owner.runUntil(BVPlayerStatePlaying));
  EXPECT_EQ(p.owner.sequence().front(), BVPlayerStateConnecting);
  EXPECT_TRUE(p.player->hasPosition());
  EXPECT_EQ(p.player->attributes()[BVPlayerAttributeTrackTitleKey].stringOr(), "Tone");
  EXPECT_NEAR(p.player->attributes()[BVPlayerAttributeDurationKey].doubleValue(), 3.0, 0.2);

  // Paused, the file keeps its place and its state: its movie stopped, yet
  // that is no end.
  ASSERT_TRUE(p.player->pause());
  float at = p.player->position();
  BVRunLoop::main().runFor(0.3);
  EXPECT_TRUE(p.player->isPaused());
  EXPECT_NEAR(p.player->position(), at, 0.01f);
  EXPECT_EQ(p.player->state(), BVPlayerStatePlaying);
  p.player->resume();
  EXPECT_FALSE(p.player->isPaused());

  // Seeks are clamped: a negative fraction to the start, the very end to
  // just before it.
  p.player->setPosition(-0.5f);
  BVRunLoop::main().runFor(0.3);
  EXPECT_LT(p.player->elapsedTime(), 0.5f);
  p.player->setPosition(1.0f);
  BVRunLoop::main().runFor(0.3);
  EXPECT_GT(p.player->position(), 0.98f);
  EXPECT_LE(p.player->position(), 1.0f);
  ASSERT_TRUE(p.owner.runUntil(BVPlayerStateStopped, 10.0));
  EXPECT_EQ(p.owner.sequence(),
            (std::vector<BVPlayerState>{BVPlayerStateConnecting, BVPlayerStatePlaying, BVPlayerStateStopped}));
  EXPECT_FALSE(p.owner.positions.empty());
  EXPECT_EQ(p.owner.states.back().error, nullptr);
}

// Pictures are dropped undecoded: a movie's sound still reaches our output,
// and a movie without sound still plays to its end.
TEST(QuickTimePlayback, MoviesWithPicturesPlayTheirSoundAndSilentOnesEnd) {
  TempDir dir;
  for (auto kind : {MediaKind::MP4Video, MediaKind::VideoOnly}) {
    auto path = writeMediaFile(dir.path() + (kind == MediaKind::VideoOnly ? "/silent.mp4" : "/clip.mp4"), kind, 1.5);
    Playing p;
    p.player->playLink(BVMediaLink::linkWithURL(BVURL::fileURLWithPath(path)));
    ASSERT_TRUE(p.owner.runUntil(BVPlayerStateStopped, 15.0)) << path;
    EXPECT_EQ(p.owner.sequence(),
              (std::vector<BVPlayerState>{BVPlayerStateConnecting, BVPlayerStatePlaying, BVPlayerStateStopped}));
    if (kind == MediaKind::MP4Video)
      EXPECT_NEAR(double(p.player->outputFramesWritten()), 1.5 * 44100, 0.1 * 44100);
    else
      EXPECT_EQ(p.player->outputFramesWritten(), 0u);
  }
}

TEST(QuickTimePlayback, UnreachableAndUnreadableMediaAreWordedForTheUser) {
  TempDir dir;
  TestHTTPServer server;
  server.route("/stream.aac", Response::ok("audio/aac", std::string(20000, 'z')));
  for (std::string url : {"http://127.0.0.1:" + std::to_string(TestHTTPServer::refusedPort()) + "/a.aac",
                          BVURL::fileURLWithPath(dir.write("noise.m4a", std::string(50000, 'q'))).absoluteString(),
                          server.url("/stream.aac")}) {
    Playing p;
    p.player->playLink(linkTo(url));
    ASSERT_TRUE(p.owner.runUntil(BVPlayerStateError)) << url;
    const BVErrorRef& error = p.owner.states.back().error;
    ASSERT_TRUE(error) << url;
    EXPECT_EQ(error->domain(), BVOSStatusErrorDomain) << url;
    EXPECT_TRUE(error->code() == -2048 || error->code() == -19160) << url << " " << error->code();
    EXPECT_EQ(error->localizedDescription(), "The stream is not available at this time.") << url;
    // The link's account is added too.
    EXPECT_NE(BVDictionaryString(error->userInfo(), BVBasePlayerErrorKey), nullptr);
  }
}

TEST(QuickTimePlayback, ASXPlaylistPlaysTrackByTrackThenStops) {
  TempDir dir;
  TestHTTPServer server;
  server.route("/one.m4a", Response::ok("audio/mp4", readWholeFile(writeMediaFile(
                                                         dir.path() + "/one.m4a", MediaKind::M4A, 1.0))));
  server.route("/two.m4a", Response::ok("audio/mp4", readWholeFile(writeMediaFile(
                                                         dir.path() + "/two.m4a", MediaKind::M4A, 1.0))));
  // The extension is compared whatever its case.
  server.route("/list.ASX", Response::ok("video/x-ms-asf",
                                         "<asx version=\"3.0\"><entry><ref href=\"" + server.url("/one.m4a") +
                                             "\"/></entry><entry><title>Second</title><ref href=\"" +
                                             server.url("/two.m4a") + "\"/></entry></asx>"));
  Playing p;
  p.player->playLink(linkTo(server.url("/list.ASX")));
  ASSERT_TRUE(p.owner.runUntil(BVPlayerStateStopped, 30.0));
  EXPECT_EQ(p.owner.sequence(),
            (std::vector<BVPlayerState>{BVPlayerStateConnecting, BVPlayerStatePlaying, BVPlayerStateConnecting,
                                        BVPlayerStatePlaying, BVPlayerStateStopped}));
  EXPECT_EQ(server.requestCount("/two.m4a") > 0, true);
  // The track that played last, by its place and title in the list.
  EXPECT_EQ(p.player->attributes()[BVPlayerAttributePlaylistEntryIndexKey].integerValue(), 2);
  EXPECT_EQ(p.player->attributes()[BVPlayerAttributePlaylistEntryTitleKey].stringOr(), "Second");
  ASSERT_TRUE(BVQuickTimePlayer::Impl::playlist(*p.player));
  EXPECT_EQ(BVQuickTimePlayer::Impl::playlist(*p.player)->countOfTracks(), 2u);

  // Past the end: stopped (already), false.
  EXPECT_FALSE(p.player->playTrackNumber(2));
  EXPECT_EQ(p.player->state(), BVPlayerStateStopped);
}

TEST(QuickTimePlayback, PlaylistDownloadFailureIsAnError) {
  TestHTTPServer server;
  Playing p;
  p.player->playLink(linkTo(server.url("/missing.asx")));
  ASSERT_TRUE(p.owner.runUntil(BVPlayerStateError));
  EXPECT_TRUE(p.player->lastError());
}

TEST(QuickTimePlayback, ReferenceTrackTitleIsHiddenAndChangesAreAnnounced) {
  TempDir dir;
  auto path = writeMediaFile(dir.path() + "/ref.m4a", MediaKind::M4A, 1.0, {{"title", "HREFTrack"}, {"album", "A"}});
  Playing p;
  p.player->playLink(BVMediaLink::linkWithURL(BVURL::fileURLWithPath(path)));
  ASSERT_TRUE(p.owner.runUntil(BVPlayerStatePlaying));
  auto attributes = p.player->attributes();
  EXPECT_FALSE(attributes.contains(BVPlayerAttributeTrackTitleKey));
  EXPECT_EQ(attributes[BVPlayerAttributeAlbumKey].stringOr(), "A");
  ASSERT_FALSE(p.owner.attributeChanges.empty());
  EXPECT_EQ(p.owner.attributeChanges.back(), attributes);
  EXPECT_TRUE(p.owner.announced(BVPlayerAttributeTrackTitleKey).empty());

  // Every announcement carries the whole set; a refresh that changed
  // something announces once, one that changed nothing not at all.
  p.owner.attributeChanges.clear();
  p.player->_notifyForChangedAttributes({{BVPlayerAttributeArtistKey, "B"}, {BVPlayerAttributeAlbumKey, "A"}},
                                        {{BVPlayerAttributeTrackTitleKey, "T"}, {BVPlayerAttributeArtistKey, "C"},
                                         {BVPlayerAttributeAlbumKey, "A"}});
  p.player->_notifyForChangedAttributes({{BVPlayerAttributeAlbumKey, "A"}}, {{BVPlayerAttributeAlbumKey, "A"}});
  ASSERT_EQ(p.owner.attributeChanges.size(), 1u);
  EXPECT_EQ(p.owner.attributeChanges[0], p.player->attributes());
}
