// Opening and releasing movies: no threads, descriptors or callbacks left
// behind, and observers may release the movie from inside a notification.
#include <gtest/gtest.h>

#include "movie_test_support.h"
#include "support/gst_media_files.h"
#include "support/process_counts.h"
#include "support/temp_dir.h"

using namespace belvane::detail;
using namespace belvane::test;

TEST(MovieLifecycle, OpenReleaseCyclesLeaveNoThreadsOrDescriptors) {
  TempDir dir;
  std::string path = writeMediaFile(dir.path() + "/a.ogg", MediaKind::OggVorbis, 1.0);
  BVURL url = BVURL::fileURLWithPath(path);
  auto cycle = [&](bool waitForLoad) {
    auto movie = QTMovie::movieWithURL(url, nullptr);
    ASSERT_TRUE(movie);
    if (waitForLoad) {
      ASSERT_TRUE(runUntil([&] { return loadState(*movie) == QTMovieLoadStateComplete; }));
    }
    BVRunLoop::current().iterate();
  };
  for (int i = 0; i < 5; ++i) cycle(true);
  BVRunLoop::current().runFor(0.2);
  const int threads = threadCount(), fds = openDescriptorCount();
  for (int i = 0; i < 500; ++i) cycle(i % 25 == 0);
  BVRunLoop::current().runFor(0.5);
  // GStreamer keeps a few idle pool threads around; they do not pile up.
  EXPECT_LE(threadCount(), threads + 4);
  EXPECT_LE(openDescriptorCount(), fds + 2);
}

TEST(MovieLifecycle, ObserversMayReleaseTheMovieInsideANotification) {
  TempDir dir;
  std::string good = writeMediaFile(dir.path() + "/a.m4a", MediaKind::M4A, 1.0);
  std::string bad = dir.write("bad.mp3", std::string(5000, 'x'));
  for (const std::string& path : {good, bad}) {
    SCOPED_TRACE(path);
    auto movie = QTMovie::movieWithURL(BVURL::fileURLWithPath(path), nullptr);
    ASSERT_TRUE(movie);
    int calls = 0;
    movie->addObserver(&calls, QTMovieLoadStateDidChangeNotification, [&](const QTNotification&) {
      ++calls;
      movie.reset();
    });
    // A second observer of the same notification is not called on a released movie.
    movie->addObserver(&dir, QTMovieLoadStateDidChangeNotification, [&](const QTNotification&) { ++calls; });
    ASSERT_TRUE(runUntil([&] { return !movie; }));
    BVRunLoop::current().runFor(0.3);
    EXPECT_EQ(calls, 1);
  }
}

TEST(MovieLifecycle, IdleActionRunsThroughTheFilterUntilRemoved) {
  TempDir dir;
  auto movie = QTMovie::movieWithURL(
      BVURL::fileURLWithPath(writeMediaFile(dir.path() + "/a.flac", MediaKind::FLAC, 1.0)), nullptr);
  ASSERT_TRUE(movie);
  static int idles = 0;
  idles = 0;
  auto filter = [](QTMovieController*, int16_t action, void*, intptr_t refCon) {
    if (action == mcActionIdle && refCon == 42) ++idles;
    return false;
  };
  MCSetActionFilterWithRefCon(movie->quickTimeMovieController(), filter, 42);
  ASSERT_TRUE(runUntil([&] { return idles >= 3; }, 10));
  MCSetActionFilterWithRefCon(movie->quickTimeMovieController(), nullptr, 0);
  int seen = idles;
  BVRunLoop::current().runFor(0.6);
  EXPECT_EQ(idles, seen);
}
