// The shoutstreamer's time-outs, reconnection pace and buffer sizes. The
// defaults suit internet radio; tests shorten the times. Also what the C
// interface does not carry: the station's facts and a title's address.
#pragma once

#include <belvane/BVRequestSettings.h>
#include <belvane/BVValue.h>

#include "streaming/shoutstreamer.h"

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace belvane::detail {

class StationTap;
class TimeShift;

struct ShoutstreamerTuning {
  double connectTimeout = 10.0;      // seconds from the request to the end of the reply head
  double stallTimeout = 8.0;         // seconds without a byte once the head is in
  double reconnectWindow = 10.0;     // seconds after a drop during which reconnection is tried
  double reconnectFirstDelay = 0.5;  // pause before the first try; doubled for each next one
  double reconnectMaxDelay = 2.0;    // ... up to this
  size_t bufferFrames = 72000;       // decoded frames held (1.5 s at 48 kHz; 562 KiB)
  double prebufferSeconds = 0.5;     // audio buffered before playing and after an underrun
  // An underrun refilled within this time is not reported as buffering: the
  // output's own queue and device buffer cover it.
  double underrunReportDelay = 0.1;
  size_t maxCallbackFrames = 2048;   // frames handed to one audio callback at most
  size_t syncSearchBytes = 64 * 1024;  // audio bytes searched for MPEG frames before giving up
  // Other addresses of the station, tried in turn when reconnecting (see
  // StreamReaderPolicy::alternates).
  std::vector<std::string> alternates;
  // The player's user agent, extra header fields and proxy (null: the defaults).
  BVRequestSettingsRef requestSettings;
  // The character set the link's titles are read in, over detection (see
  // stationTitleToUTF8); empty: detected.
  std::string titleEncoding;
  // Where the station's compressed audio and titles also go (the ring and
  // the recording of the playback); null: nowhere.
  std::shared_ptr<StationTap> stationTap;
  // Plays the stream from the tap's ring once a pause asks for it (see
  // TimeShift); null: the stream cannot be paused.
  std::shared_ptr<TimeShift> timeShift;
};

// Replaces the tuning of a streamer that has not been started.
void shoutstreamerSetTuning(shoutstreamer_t streamer, const ShoutstreamerTuning& tuning);
// What the stream's last reply head announced of the station (the
// BVPlayerAttributeStation... keys) and what its decoder found it to be
// (codec, sample rate, channels); any thread.
BVDictionary shoutstreamerStationFacts(shoutstreamer_t streamer);
// The StreamUrl sent with the title of the title callback being made (empty
// when none); only on the delivery thread, inside that callback.
const std::string& shoutstreamerTitleURL(shoutstreamer_t streamer);

// How the stream's connection fares, for the listener's view of it; any
// thread.
struct ShoutstreamerReception {
  int32_t reconnectAttempts = 0;  // fresh connections tried after breaks, since start
  bool connectionBroken = false;  // from a break until the next connection answers
  float prebufferFill = 0.0f;     // how full the buffer is of what it holds before playing, 0..1
};
ShoutstreamerReception shoutstreamerReception(shoutstreamer_t streamer);

}  // namespace belvane::detail
