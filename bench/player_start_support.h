// Timing one start of the master player: from playLink to the state Playing
// and to the first frame its output reports, as the start benchmarks
// measure it on their stations; and the playbin they time beside it.
#pragma once

#include "streaming_bench_support.h"

#include <belvane/BVMasterPlayer.h>
#include <belvane/BVMediaLink.h>
#include <belvane/BVRunLoop.h>
#include <belvane/BVURL.h>

#include <gst/gst.h>

#include <atomic>
#include <string>

namespace belvane::bench {

// Notes when the player first reaches Playing, and whether it stopped or
// failed instead.
struct StartOwner : BVPlayerOwner {
  double playingAt = 0;
  bool failed = false;
  void playerStateChanged(BVBasePlayer&, BVPlayerState, BVPlayerState to, const BVErrorRef&) override {
    if (to == BVPlayerStatePlaying && playingAt == 0) playingAt = wallSeconds();
    if (to == BVPlayerStateError || to == BVPlayerStateStopped) failed = true;
  }
};

// Plays url on master and runs the main loop until it plays and `output`
// (master or its sub-player, polled every millisecond) has written a frame,
// for up to `timeout` s. Gives the ms from playLink to each, or false when
// either did not come. The master player is left playing, without owner.
inline bool timeMasterStart(BVMasterPlayer& master, const BVBasePlayer& output, const std::string& url,
                            double timeout, double& playingMs, double& frameMs) {
  StartOwner owner;
  master.setOwner(&owner);
  double frameAt = 0;
  auto poll = BVTimer::scheduledTimer(0.001, true, [&](BVTimer&) {
    if (frameAt == 0 && output.outputFramesWritten() > 0) frameAt = wallSeconds();
  });
  double t0 = wallSeconds();
  master.playLink(BVMediaLink::linkWithURL(*BVURL::URLWithString(url)));
  BVRunLoop::main().runUntil([&] { return owner.failed || (owner.playingAt > 0 && frameAt > 0); }, timeout);
  poll->invalidate();
  master.setOwner(nullptr);
  if (owner.playingAt == 0 || frameAt == 0) return false;
  playingMs = 1000 * (owner.playingAt - t0);
  frameMs = 1000 * (frameAt - t0);
  return true;
}

// A playbin on uri whose audio goes to a synchronised fakesink that notes
// the wall time of its first buffer in firstBufferAt; video, if any, to a
// fakesink, or not decoded at all when audioOnly. Null when an element is
// missing.
inline GstElement* makeTimedPlaybin(const std::string& uri, std::atomic<double>& firstBufferAt, bool audioOnly) {
  GstElement* playbin = gst_element_factory_make("playbin", nullptr);
  GstElement* sink = gst_element_factory_make("fakesink", nullptr);
  if (!playbin || !sink) return nullptr;
  g_object_set(sink, "sync", TRUE, "signal-handoffs", TRUE, nullptr);
  g_signal_connect(sink, "handoff", G_CALLBACK(+[](GstElement*, GstBuffer*, GstPad*, gpointer d) {
                     auto* at = static_cast<std::atomic<double>*>(d);
                     if (*at == 0) *at = wallSeconds();
                   }),
                   &firstBufferAt);
  g_object_set(playbin, "uri", uri.c_str(), "audio-sink", sink, nullptr);
  if (audioOnly)
    g_object_set(playbin, "flags", 0x2 /* audio */, nullptr);
  else
    g_object_set(playbin, "video-sink", gst_element_factory_make("fakesink", nullptr), nullptr);
  return playbin;
}

}  // namespace belvane::bench
