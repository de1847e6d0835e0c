// MovieAudioTap: the end of a movie pipeline's audio branch when the audio
// goes to a MovieAudioSink. It converts whatever the decoder gives to planar
// float (mono or stereo; the rate as it comes, so a change of rate reaches the
// sink), pulls it from an appsink on the streaming thread and hands it on,
// and turns the title tags that travel in-band with the audio into stream
// titles, in order with the frames.
//
// A title that comes with a new stream (a new chain of an Ogg stream) stands
// exactly before its first sample. One that comes in the middle of a stream
// was cut out of the bytes ahead of the parser (an ICY metadata block), which
// passes it on before the frame the block split, though that frame's audio
// still belongs to the title before: it is given after the next decoded
// buffer.
//
// A timed title (timed ID3 read out of an MPEG-TS stream, see
// movie_timed_id3.h) carries the timestamp of the audio it belongs to: it is
// given just before the first frame whose timestamp is at or after it, the
// buffer split there if need be.
//
// The tap must outlive its pipeline's streaming threads: its owner destroys
// it only after the pipeline has reached the NULL state.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include <gst/audio/audio-info.h>

#include "streaming/stream_title.h"

typedef struct _GstElement GstElement;
typedef struct _GstTagList GstTagList;

namespace belvane::detail {

class MovieAudioSink;

class MovieAudioTap {
 public:
  explicit MovieAudioTap(std::shared_ptr<MovieAudioSink> sink);
  ~MovieAudioTap();
  MovieAudioTap(const MovieAudioTap&) = delete;
  MovieAudioTap& operator=(const MovieAudioTap&) = delete;

  // The bin to give playbin as its audio sink (floating reference), or null
  // when GStreamer cannot build it.
  GstElement* makeSinkBin();

  // Called on the streaming thread (public for the C callbacks).
  void handleSample(GstElement* appsink);
  void handleTags(const GstTagList* tags);
  void handleStreamStart();
  void handleFlush();
  void handleEnd();

  // Any thread: a title for the audio from pts on (nanoseconds, the
  // timestamps of the buffers the tap receives). Forgotten at a flush.
  void addTimedTitle(uint64_t pts, std::string title);

 private:
  struct TimedTitle {
    uint64_t pts;
    std::string title;
  };
  void announce(const std::string& title);
  // The next timed title due before frame `frames` of a buffer at pts (the
  // frame it falls on, 0 when it is already late), if any.
  std::optional<std::pair<int64_t, std::string>> takeTimedTitle(uint64_t pts, int rate, int64_t frames);

  std::shared_ptr<MovieAudioSink> sink_;
  // Streaming thread only.
  StreamTitle lastTitle_;
  std::optional<StreamTitle> heldTitle_;  // waits for the next decoded buffer
  bool audioSinceStreamStart_ = false;
  GstCaps* infoCaps_ = nullptr;  // the caps info_ was read from (reference)
  GstAudioInfo info_{};
  bool infoValid_ = false;
  std::mutex timedMutex_;
  std::deque<TimedTitle> timed_;  // by pts; guarded by timedMutex_
};

// The stream title a tag list carries: "Artist - Title" when it names both,
// else the title (empty when it has no title), and its home page (where an
// ICY StreamUrl travels).
StreamTitle streamTitleFromTags(const GstTagList* tags);

}  // namespace belvane::detail
