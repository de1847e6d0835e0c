// The hand-written rules of the stream and general engines, and what each
// engine shows the host.
#include <belvane/BVBasePlayer.h>
#include <belvane/BVIconCenter.h>
#include <belvane/BVMediaFormat.h>
#include <belvane/BVMediaLink.h>
#include <belvane/BVPlayerEngines.h>

#include "support/gst_media_files.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

using belvane::test::MediaKind;
using belvane::test::TempDir;
using belvane::test::writeMediaFile;

namespace {

std::shared_ptr<BVMediaMutableFormat> format(std::optional<std::string> scheme, std::optional<std::string> extension,
                                             std::optional<std::string> mimeType = std::nullopt) {
  auto f = BVMediaMutableFormat::emptyFormat();
  f->setURLScheme(scheme);
  f->setFileExtension(extension);
  f->setMimeType(mimeType);
  return f;
}

}  // namespace

TEST(StreamEngineRules, TakesBareHTTPButNeverLocalFiles) {
  auto engine = BVMP3StreamPlayerEngine::sharedEngine();
  EXPECT_TRUE(engine->canPlayFormat(*format("http", std::nullopt)));
  EXPECT_TRUE(engine->canPlayFormat(*format("HTTP", std::nullopt)));
  EXPECT_TRUE(engine->canPlayFormat(*format("http", "mp3")));
  // A local file, even an MP3 one.
  EXPECT_FALSE(engine->canPlayFormat(*format("file", "mp3")));
  EXPECT_FALSE(engine->canPlayFormat(*format("FILE", std::nullopt, "audio/mpeg")));
  // HTTP with a clue the formats file does not list.
  EXPECT_FALSE(engine->canPlayFormat(*format("http", "pls")));
  EXPECT_FALSE(engine->canPlayFormat(*format("http", std::nullopt, "audio/x-scpls")));
}

TEST(GeneralEngineRules, RefusesPDFWhateverElseMatches) {
  auto engine = BVQuicktimePlayerEngine::sharedEngine();
  EXPECT_TRUE(engine->canPlayFormat(*format("http", "ogg")));
  EXPECT_TRUE(engine->canPlayFormat(*format("http", "m3u8")));
  EXPECT_FALSE(engine->canPlayFormat(*format("http", "PdF")));
  EXPECT_FALSE(engine->canPlayFormat(*format("http", "ogg", "Application/PDF")));
  auto chosen = format("http", "pdf");
  chosen->setEngineID("com.apple.quicktime");
  EXPECT_FALSE(engine->canPlayFormat(*chosen));
}

TEST(GeneralEngineRules, TakesWhatGStreamerCanOpenAndOpensAMovieOtherwise) {
  setenv("BELVANE_AUDIO_OUTPUT", "null", 1);
  auto engine = BVQuicktimePlayerEngine::sharedEngine();
  auto canPlay = [&](const BVURL& url) { return engine->canPlayLink(*BVMediaLink::linkWithURL(url)); };
  TempDir dir;
  // Neither file has an extension any formats file lists.
  auto wave = BVURL::fileURLWithPath(writeMediaFile(dir.path() + "/tone.data", MediaKind::WAV, 0.1));
  auto text = BVURL::fileURLWithPath(dir.write("notes.data", "Nothing to hear here.\n"));
  auto noScheme = *BVURL::URLWithString("nosuchscheme://host/a");
  EXPECT_TRUE(BVQuicktimePlayerEngine::canInitWithURL(wave));
  EXPECT_TRUE(canPlay(wave));
  // Type finding does not know the text, but a movie opens on it (whether
  // it then plays is found out while loading).
  EXPECT_FALSE(BVQuicktimePlayerEngine::canInitWithURL(text));
  EXPECT_TRUE(canPlay(text));
  // Nothing opens on a missing file, whatever its extension, or on a scheme
  // no source reads.
  EXPECT_FALSE(BVQuicktimePlayerEngine::canInitWithURL(noScheme));
  EXPECT_FALSE(canPlay(noScheme));
  EXPECT_FALSE(BVQuicktimePlayerEngine::canInitWithURL(BVURL::fileURLWithPath(dir.path() + "/missing.wav")));
  EXPECT_FALSE(canPlay(BVURL::fileURLWithPath(dir.path() + "/gone.data")));

  const auto& types = BVQuicktimePlayerEngine::movieFileTypes();
  EXPECT_TRUE(std::is_sorted(types.begin(), types.end()));
  EXPECT_TRUE(std::binary_search(types.begin(), types.end(), "wav"));
  EXPECT_EQ(BVWindowsMediaPlayerEngine::sharedEngine()->isAvailable(),
            std::binary_search(types.begin(), types.end(), "wmv"));
  // Both engines that play through the movie make the general player.
  EXPECT_EQ(engine->createPlayer()->className(), "BVQuickTimePlayer");
  if (BVWindowsMediaPlayerEngine::sharedEngine()->isAvailable()) {
    EXPECT_EQ(BVWindowsMediaPlayerEngine::sharedEngine()->createPlayer()->className(), "BVQuickTimePlayer");
  }
}

TEST(EngineTable, EveryEngineHasAPNGIcon) {
  for (BVPlayerEngineRef engine : std::vector<BVPlayerEngineRef>{
           BVMP3StreamPlayerEngine::sharedEngine(), BVHelixPlayerEngine::sharedEngine(),
           BVWindowsMediaPlayerEngine::sharedEngine(), BVQuicktimePlayerEngine::sharedEngine()}) {
    auto icon = engine->icon();
    ASSERT_TRUE(icon && icon->data()) << engine->className();
    EXPECT_EQ(std::memcmp(icon->data()->data(), "\x89PNG", 4), 0);
  }
  EXPECT_TRUE(BVBasePlayerEngine::genericIcon());
}
