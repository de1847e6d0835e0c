// Stopping, restarting and destroying the stream tuner at awkward moments.
#include "tuner/tuner_test_support.h"

#include "support/test_http_server.h"

#include <gtest/gtest.h>

using namespace belvane::test;

namespace {

void serveStation(TestHTTPServer& server) {
  server.route("/a", stream("audio/mpeg"));
  server.route("/b", stream("audio/mpeg"));
  server.route("/station.pls", Response::ok("audio/x-scpls", "[playlist]\nFile1=/a\nFile2=/b\n"));
}

}  // namespace

TEST(StreamTunerLifecycle, StopInsideACallbackEndsEveryCallAndStartBeginsAgain) {
  TestHTTPServer server;
  serveStation(server);
  RecordingTunerDelegate delegate;
  auto tuner = QLStreamTuner::create(&delegate);
  delegate.accept = [](const TunerOffer&) { return false; };
  delegate.onShouldTune = [&] { tuner->stop(); };
  tuner->setSourceURL(*BVURL::URLWithString(server.url("/station.pls")));
  tuner->start();
  ASSERT_TRUE(runUntil([&] { return delegate.calls > 0; }));
  BVRunLoop::current().runFor(0.3);
  EXPECT_EQ(delegate.calls, 1);
  EXPECT_EQ(server.requestCount("/b"), 0);

  // Started again, it tunes from the beginning; stopping inside didFind
  // leaves tuneNextStream with nothing to go on from.
  delegate.accept = [](const TunerOffer&) { return true; };
  delegate.onShouldTune = nullptr;
  delegate.onFound = [&] { tuner->stop(); };
  tuner->start();
  ASSERT_TRUE(runUntil([&] { return !delegate.found.empty(); }));
  EXPECT_EQ(delegate.found[0].url, server.url("/a"));
  tuner->tuneNextStream();
  BVRunLoop::current().runFor(0.3);
  EXPECT_EQ(delegate.calls, 3);
  EXPECT_FALSE(delegate.ended());
}

TEST(StreamTunerLifecycle, TheDelegateMayDropTheTunerInsideACallback) {
  TestHTTPServer server;
  serveStation(server);
  for (bool inShouldTune : {true, false}) {
    SCOPED_TRACE(inShouldTune ? "in shouldTune" : "in didFind");
    RecordingTunerDelegate delegate;
    auto tuner = QLStreamTuner::create(&delegate);
    (inShouldTune ? delegate.onShouldTune : delegate.onFound) = [&] { tuner.reset(); };
    tuner->setSourceURL(*BVURL::URLWithString(server.url("/station.pls")));
    tuner->start();
    ASSERT_TRUE(runUntil([&] { return !tuner; }));
    BVRunLoop::current().runFor(0.3);
    // A tuner nobody holds any more says nothing further.
    EXPECT_EQ(delegate.calls, inShouldTune ? 1 : 2);
  }
}

TEST(StreamTunerLifecycle, StoppingOrDestroyingDuringAFetchCancelsIt) {
  TestHTTPServer server;
  server.route("/hang.pls", Response::hang());
  RecordingTunerDelegate delegate;
  for (bool destroy : {false, true}) {
    int before = server.requestCount("/hang.pls");
    auto tuner = QLStreamTuner::create(&delegate);
    tuner->setSourceURL(*BVURL::URLWithString(server.url("/hang.pls")));
    tuner->start();
    // The look starts from the loop; the request then reaches the server
    // without the loop running.
    BVRunLoop::current().runFor(0.05);
    ASSERT_TRUE(server.waitForRequests("/hang.pls", before + 1, 20.0));
    if (destroy) {
      tuner.reset();
    } else {
      tuner->stop();
      tuner->tuneNextStream();
    }
    BVRunLoop::current().runFor(0.3);
  }
  EXPECT_EQ(delegate.calls, 0) << (delegate.error ? delegate.error->description() : "");
}
