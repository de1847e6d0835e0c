// MovieStreamSource: a station's bytes from Belvane's own connection into a
// movie's pipeline, so that every engine reads a station the same way.
//
// A StreamReader reads the address (taking over the tuner's open reply when
// there is one, so the station is asked only once) with the library's live
// policy: stalls and drops of a live stream are reconnected by the reader,
// a reply with a declared end ends. The ICY metadata is split off here; the
// audio bytes go to an appsrc in push mode, ahead of type finding and the
// decoder, and each stream title goes in-band as a tag event at the byte
// where the station placed it, so it reaches the audio tap exactly before
// the frame it belongs to. Nothing else changes for the pipeline: it sees a
// source that delivers bytes, an end of stream, or one error once the
// reader has given up.
//
// A file whose server declared its length and takes Range requests is
// seekable: a seek reads on from the byte asked for, on a new connection.
// Other replies cannot be sought, so nothing asks their server for a
// range it may not serve.
//
// Threads: made, started and destroyed on the movie's thread; the bytes are
// pushed from the reading thread (or the tuner's reply's transfer thread),
// which waits after a push that filled the appsrc's queue until it is half
// empty: that is the flow control between the server and the decoder.
#pragma once

#include <belvane/BVRequestSettings.h>
#include <belvane/BVValue.h>

#include "streaming/stream_reader.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

typedef struct _GstElement GstElement;

namespace belvane::detail {

class StationTap;
class MovieAudioSink;
class MovieRingFeed;

// How a movie reads from the network for its player; the movie hands it to
// each pipeline and to Belvane's connection into it.
struct MovieReading {
  // Seconds a live stream that breaks off is tried again (0: 10 s).
  double reconnectPatience = 0;
  // The player's user agent, extra header fields and proxy (null: the defaults).
  BVRequestSettingsRef requestSettings;
  // The character set the station's titles are read in, over detection.
  std::optional<std::string> titleEncoding;
  // Where the station's compressed audio and titles also go (the ring and
  // the recording of the playback); null: nowhere.
  std::shared_ptr<StationTap> stationTap;
};

class MovieStreamSource {
 public:
  // The addresses read this way: network streams in http(s), icy or shttp.
  static bool handles(const std::string& url);

  // Makes the appsrc; nullptr when GStreamer has none. A live stream that
  // breaks off is tried again for the reading's patience; its requests go
  // out with the reading's settings, its titles are read in its encoding.
  // With a station tap and an audio sink, the station can also be played
  // from its ring (ringFeed()).
  static std::unique_ptr<MovieStreamSource> create(const std::string& url, const MovieReading& reading = {},
                                                   std::shared_ptr<MovieAudioSink> audio = nullptr);
  // Cancels the reading; call stop() on the pipeline (to NULL) before
  // destroying, so that a push blocked on a full queue returns.
  ~MovieStreamSource();
  MovieStreamSource(const MovieStreamSource&) = delete;
  MovieStreamSource& operator=(const MovieStreamSource&) = delete;

  // The appsrc (a floating reference the pipeline takes when added).
  GstElement* element() const { return appsrc_; }
  // Starts reading; call once the appsrc has started (the pipeline is in
  // PAUSED or on its way there).
  void start();
  // Thread-safe: ends the reading; a push in progress returns once the
  // appsrc is flushing.
  void cancel();
  // Waits for the reading thread after cancel() and the pipeline's stop.
  void join();

  // What the reply head said (thread-safe; empty until it came), and what
  // it announced of the station (the BVPlayerAttributeStation... keys).
  std::optional<std::string> contentType() const;
  BVDictionary stationFacts() const;
  bool declaredLength() const;
  // Thread-safe: the reconnections since start and whether one is under way.
  StreamReaderProgress connectionProgress() const;
  // Whether the first connection took over the tuner's open reply.
  bool tookHeldReply() const { return tookHeld_; }
  // Time-shift of a live station from its ring (see movie_ring_feed.h);
  // null without a station tap. Its run-loop calls are the movie's.
  MovieRingFeed* ringFeed() const { return feed_.get(); }

 private:
  class Client;
  MovieStreamSource(const std::string& url, GstElement* appsrc, const MovieReading& reading,
                    std::shared_ptr<MovieAudioSink> audio);
  void readMain();
  // On a streaming thread: the appsrc was flushed for a seek to offset.
  void seekData(uint64_t offset);
  // On the reading thread, after a refused push: true when a seek came
  // (the connection gives way to the next one), false when cancelled.
  bool waitForSeek();
  bool seekPending() const;
  // Streaming threads: the appsrc's queue is full (enough-data) or half empty (need-data).
  void roomChanged(bool full);
  // On the reading thread, after a push: until the queue has room again;
  // false when cancelled or a seek came.
  bool waitForRoom();

  GstElement* appsrc_;
  const std::string url_;
  const MovieReading reading_;
  bool tookHeld_ = false;
  std::thread thread_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::unique_ptr<StreamReader> reader_;    // the current reading, guarded by mutex_
  bool cancelled_ = false;                  // guarded by mutex_
  bool full_ = false;                       // the appsrc's queue is full; guarded by mutex_
  std::optional<uint64_t> seekTo_;          // guarded by mutex_
  std::atomic<bool> seekPending_{false};    // seekTo_ is set
  std::optional<std::string> contentType_;  // guarded by mutex_
  BVDictionary stationFacts_;               // guarded by mutex_
  bool declaredLength_ = false;             // guarded by mutex_
  std::atomic<int32_t> reconnectAttempts_{0};
  std::atomic<bool> connectionBroken_{false};
  std::unique_ptr<MovieRingFeed> feed_;  // with a station tap; ended before the appsrc goes
};

}  // namespace belvane::detail
