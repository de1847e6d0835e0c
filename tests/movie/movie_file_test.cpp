// Movies on local files: load states, duration, seeking and playing to the end,
// tags, failures, reference movies and the duration helper.
#include <belvane/BVURLAdditions.h>
#include <gst/gst.h>
#include <gtest/gtest.h>

#include "metadata/box_bytes.h"
#include "movie_test_support.h"
#include "support/gst_media_files.h"
#include "support/temp_dir.h"

using namespace belvane::detail;
using namespace belvane::test;

namespace {

std::shared_ptr<QTMovie> openFile(const std::string& path, BVErrorRef* error = nullptr) {
  return QTMovie::movieWithURL(BVURL::fileURLWithPath(path), error);
}

// A QuickTime reference movie: moov > rmra > rmda > rdrf naming url.
std::string referenceMovie(const std::string& url) {
  std::string data = url + '\0';
  return box("moov", box("rmra", box("rmda", fullBox("rdrf", "url " + u32(uint32_t(data.size())) + data))));
}

}  // namespace

TEST(MovieFile, EveryKindLoadsToCompleteWithItsDuration) {
  TempDir dir;
  for (MediaKind kind : {MediaKind::M4A, MediaKind::QuickTime, MediaKind::OggVorbis, MediaKind::OggOpus,
                         MediaKind::FLAC, MediaKind::MP3, MediaKind::WMA}) {
    SCOPED_TRACE(mediaKindExtension(kind));
    std::string path = writeMediaFile(dir.path() + "/a." + mediaKindExtension(kind), kind, 1.5);
    auto movie = openFile(path);
    ASSERT_TRUE(movie);
    MovieEvents events;
    events.watch(*movie);
    EXPECT_EQ(loadState(*movie), QTMovieLoadStateLoading);
    ASSERT_TRUE(runUntil([&] { return loadState(*movie) == QTMovieLoadStateComplete; }));
    EXPECT_EQ(events.lastLoadState(), QTMovieLoadStateComplete);
    EXPECT_NEAR(seconds(movie->duration()), 1.5, 0.25);
    EXPECT_NEAR(movie->attributeForKey(QTMovieDurationAttribute).doubleValue(), 1.5, 0.25);
    EXPECT_EQ(movie->movieStatus(), 0);
    EXPECT_EQ(movie->filePath(), path);
  }
}

TEST(MovieFile, SeeksBeforeAndAfterLoadingAndPlaysToTheEnd) {
  TempDir dir;
  std::string path = writeMediaFile(dir.path() + "/a.m4a", MediaKind::M4A, 4.0);
  auto movie = openFile(path);
  ASSERT_TRUE(movie);
  MovieEvents events;
  events.watch(*movie);
  // Asked for before the movie loaded: applied once it has.
  movie->setCurrentTime(QTTime{1'000'000, kQTMovieTimeScale, 0});
  ASSERT_TRUE(runUntil([&] { return loadState(*movie) == QTMovieLoadStateComplete && events.timeChanges > 0; }));
  EXPECT_NEAR(seconds(movie->currentTime()), 1.0, 0.1);

  movie->setCurrentTime(QTTime{3'000'000, kQTMovieTimeScale, 0});
  ASSERT_TRUE(runUntil([&] { return events.timeChanges > 1; }));
  EXPECT_NEAR(seconds(movie->currentTime()), 3.0, 0.1);
  movie->play();
  EXPECT_EQ(movie->rate(), 1.0f);
  ASSERT_TRUE(runUntil([&] { return events.ends > 0; }));
  EXPECT_EQ(events.ends, 1);
  ASSERT_GE(events.rates.size(), 2u);
  EXPECT_EQ(events.rates.front(), 1.0);
  EXPECT_EQ(events.rates.back(), 0.0);
  EXPECT_EQ(movie->rate(), 0.0f);
  EXPECT_NEAR(seconds(movie->currentTime()), seconds(movie->duration()), 0.1);
  // A seek after the end makes the movie playable again.
  movie->setCurrentTime(QTTime{0, kQTMovieTimeScale, 0});
  ASSERT_TRUE(runUntil([&] { return events.timeChanges > 2; }));
  EXPECT_LT(seconds(movie->currentTime()), 0.2);
}

TEST(MovieFile, ReportsTagsOfTheMovieAndItsTrack) {
  TempDir dir;
  auto movie = openFile(writeMediaFile(dir.path() + "/a.flac", MediaKind::FLAC, 1.0,
                                       {{"title", "Morning Tone"}, {"artist", "Belvane"}}));
  ASSERT_TRUE(movie);
  MovieEvents events;
  events.watch(*movie);
  ASSERT_TRUE(runUntil([&] { return loadState(*movie) == QTMovieLoadStateComplete && events.metadataChanges > 0; }));
  GstTagList* tags = movie->copyTags();
  ASSERT_TRUE(tags);
  gchar* title = nullptr;
  EXPECT_TRUE(gst_tag_list_get_string(tags, GST_TAG_TITLE, &title));
  EXPECT_STREQ(title, "Morning Tone");
  g_free(title);
  gst_tag_list_unref(tags);
  auto tracks = movie->tracks();
  ASSERT_EQ(tracks.size(), 1u);
  GstTagList* trackTags = movie->copyTrackTags(0);
  EXPECT_TRUE(trackTags);
  if (trackTags) gst_tag_list_unref(trackTags);
  EXPECT_EQ(movie->copyTrackTags(1), nullptr);
}

TEST(MovieFile, MissingFilesAndUnknownSchemesFailAtOnce) {
  BVErrorRef error;
  EXPECT_FALSE(QTMovie::movieWithURL(BVURL::fileURLWithPath("/nonexistent/a.m4a"), &error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain(), BVOSStatusErrorDomain);
  EXPECT_EQ(error->code(), -43);
  EXPECT_FALSE(QTMovie::movieWithURL(*BVURL::URLWithString("nosuchscheme://host/a.m4a"), &error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), -2048);
}

TEST(MovieFile, CorruptAndTruncatedFilesEndInError) {
  TempDir dir;
  std::string whole = readWholeFile(writeMediaFile(dir.path() + "/a.m4a", MediaKind::M4A, 2.0));
  std::string noise(20000, '\0');
  for (size_t i = 0; i < noise.size(); ++i) noise[i] = char((i * 2654435761u) >> 13);
  for (const auto& [name, bytes] : {std::pair{"noise.m4a", noise}, std::pair{"half.m4a", whole.substr(0, whole.size() / 2)},
                                    std::pair{"empty.mp3", std::string()}}) {
    SCOPED_TRACE(name);
    auto movie = openFile(dir.write(name, bytes));
    ASSERT_TRUE(movie);
    MovieEvents events;
    events.watch(*movie);
    ASSERT_TRUE(runUntil([&] { return loadState(*movie) == QTMovieLoadStateError; }));
    EXPECT_EQ(events.lastLoadState(), QTMovieLoadStateError);
    EXPECT_EQ(movie->movieStatus(), -2048);
  }
}

TEST(MovieFile, FollowsReferenceMovies) {
  TempDir dir;
  std::string target = writeMediaFile(dir.path() + "/target.m4a", MediaKind::M4A, 1.0);
  // Absolute, then relative to the reference itself, then a chain of two.
  dir.write("abs.mov", referenceMovie(BVURL::fileURLWithPath(target).absoluteString()));
  dir.write("rel.mov", referenceMovie("target.m4a"));
  dir.write("chain.mov", referenceMovie("rel.mov"));
  for (const char* name : {"abs.mov", "rel.mov", "chain.mov"}) {
    SCOPED_TRACE(name);
    auto movie = openFile(dir.path() + "/" + name);
    ASSERT_TRUE(movie);
    ASSERT_TRUE(runUntil([&] { return loadState(*movie) == QTMovieLoadStateComplete; }));
    EXPECT_EQ(movie->filePath(), target);
    EXPECT_EQ(movie->url(), BVURL::fileURLWithPath(target));
  }
  dir.write("loop.mov", referenceMovie("loop.mov"));
  dir.write("missing.mov", referenceMovie("gone.m4a"));
  BVErrorRef error;
  EXPECT_FALSE(openFile(dir.path() + "/loop.mov", &error));
  EXPECT_FALSE(openFile(dir.path() + "/missing.mov", &error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), -43);
}

TEST(MovieFile, FileDurationHelper) {
  TempDir dir;
  EXPECT_NEAR(bvMovieFileDuration(BVURL::fileURLWithPath(writeMediaFile(dir.path() + "/a.opus", MediaKind::OggOpus, 2.0))),
              2.0, 0.25);
  EXPECT_EQ(bvMovieFileDuration(BVURL::fileURLWithPath(dir.path() + "/none.mp3")), -1.0);
  EXPECT_EQ(bvMovieFileDuration(BVURL::fileURLWithPath(dir.write("bad.mp3", "not audio at all"))), -1.0);
}
