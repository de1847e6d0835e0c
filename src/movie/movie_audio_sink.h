// MovieAudioSink: where a movie's decoded audio goes when its player plays
// it through our own audio output rather than a GStreamer sink. Called on
// the pipeline's streaming thread, in stream order: a stream title is given
// just before the first frames of the audio it belongs to.
#pragma once

#include "streaming/stream_title.h"

#include <cstdint>
#include <memory>
#include <string>

namespace belvane::detail {

class MovieAudioSink {
 public:
  virtual ~MovieAudioSink() = default;
  // Planar 32-bit float frames (channels[1] is null for mono); blocks while
  // the output is full, which paces the pipeline.
  virtual void movieAudio(float sampleRate, float** channels, int32_t frames) = 0;
  // A live stream's new title (an ICY StreamTitle with its StreamUrl, the
  // tags of a new chain of an Ogg stream, timed ID3 in HLS).
  virtual void movieStreamTitle(const StreamTitle& title) = 0;
  // The stream jumps (a seek) or starts over (a reconnection): titles still
  // waiting for audio are forgotten.
  virtual void movieAudioDiscontinuity() = 0;
  // A flush (a seek, or a time-shifted station's skip) has reached the
  // audio: what was held back for the audio before it is forgotten.
  virtual void movieAudioFlushed() { movieAudioDiscontinuity(); }
  // Any thread, for a station played from its ring: the audio given from
  // now on is dropped until the flush reaches the sink; the seconds of
  // audio taken since the last flush.
  virtual void movieDropUntilFlushed() {}
  virtual double movieSecondsTaken() const { return 0.0; }
  // The last audio has been given: returns once it has been heard, or at
  // once when interrupted.
  virtual void movieAudioEnded() = 0;
};

}  // namespace belvane::detail
