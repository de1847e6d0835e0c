// QTMovie: a playable movie over a GStreamer playbin, the general media
// engine's view of one piece of media (a file, a stream, a station link).
//
// It lives on the thread that made it: the pipeline's bus is watched through
// that thread's run loop, and every notification, the controller's idle
// action and every query happen there. It reports what a player needs: load
// progress (with an error state and a play-through threshold), the end of the
// media, rate changes with the new rate, a periodic idle call, current time and
// duration with an indefinite marker for live streams, seeking, volume, mute,
// and the movie's status code once loading failed.
//
// A live stream (a network stream without a duration) that stalls is
// buffering, not finished: its load state drops back to playable until the
// data flows again. One that breaks or ends after it has played is opened
// again, a few times within about ten seconds with a growing pause between
// tries; only when that fails does the movie report an error. A finite
// resource ends when its data ends.
//
// Opening also follows reference movies (our own template and the rmra kind)
// and reads M3U and PLS station lists with the web playlist readers, playing
// the first entry that opens and the next one on failure.
#pragma once

#include <belvane/BVError.h>
#include <belvane/BVURL.h>
#include <belvane/BVValue.h>

#include "movie/movie_stream_source.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "streaming/stream_reader.h"

typedef struct _GstTagList GstTagList;

namespace belvane::detail {

class QTMovie;
class MovieAudioSink;
class MovieRingFeed;

// A time as a value in a time scale (units per second). Indefinite for the
// duration of a live stream.
struct QTTime {
  int64_t timeValue = 0;
  int32_t timeScale = 1;
  int32_t flags = 0;  // kQTTimeIsIndefinite
};
inline constexpr int32_t kQTTimeIsIndefinite = 1;
// The time scale the movie reports its times in (microseconds).
inline constexpr int32_t kQTMovieTimeScale = 1000000;

bool QTTimeIsIndefinite(QTTime time);
// Seconds of a time; false for an indefinite time or a zero time scale.
bool QTGetTimeInterval(QTTime time, double* seconds);

// Load states, as QTMovieLoadStateAttribute reports them.
enum : int64_t {
  QTMovieLoadStateError = -1,
  QTMovieLoadStateLoading = 1000,
  QTMovieLoadStateLoaded = 2000,
  QTMovieLoadStatePlayable = 10000,
  QTMovieLoadStatePlaythroughOK = 20000,
  QTMovieLoadStateComplete = 100000,
};

// Attribute keys and notification names.
inline constexpr const char* QTMovieLoadStateAttribute = "QTMovieLoadStateAttribute";
inline constexpr const char* QTMovieDurationAttribute = "QTMovieDurationAttribute";  // real seconds; absent when live
inline constexpr const char* QTMovieDontInteractWithUserAttribute = "QTMovieDontInteractWithUserAttribute";
inline constexpr const char* QTMovieLoadStateDidChangeNotification = "QTMovieLoadStateDidChangeNotification";
inline constexpr const char* QTMovieTimeDidChangeNotification = "QTMovieTimeDidChangeNotification";
inline constexpr const char* QTMovieDidEndNotification = "QTMovieDidEndNotification";
inline constexpr const char* QTMovieRateDidChangeNotification = "QTMovieRateDidChangeNotification";
// New tags arrived (a stream title from an Icecast or Shoutcast station, tags
// of the next chained Ogg stream): the metadata readers have news.
inline constexpr const char* QTMovieMetaDataDidChangeNotification = "QTMovieMetaDataDidChangeNotification";
struct QTNotification {
  std::string name;
  QTMovie* object = nullptr;
  // A rate notification's new rate; nothing in the others.
  std::optional<double> rate;
};

// The movie's controller: it runs the idle action a few times a second and
// offers it to an action filter first.
class QTMovieController;
inline constexpr int16_t mcActionIdle = 1;
// Returns true when the filter handled the action itself.
using MCActionFilterWithRefConProcPtr = bool (*)(QTMovieController* mc, int16_t action, void* params, intptr_t refCon);
// Installs (or, with a null function, removes) the controller's action filter.
void MCSetActionFilterWithRefCon(QTMovieController* mc, MCActionFilterWithRefConProcPtr filter, intptr_t refCon);

// One stream of a movie (audio, video or text), in the order the container
// lists them.
struct QTTrack {
  std::shared_ptr<QTMovie> movie;
  size_t index = 0;
};

class QTMovie : public std::enable_shared_from_this<QTMovie> {
 public:
  // Opens a movie on the URL. Fails at once (nullptr, error in the OS status
  // domain) for a missing local file (-43) or a scheme nothing can read
  // (-2048); everything else loads asynchronously and reports through the
  // load state.
  //
  // Its audio goes to `audio` when one is given (every pipeline the movie
  // builds, reconnections included); else it is rendered silently. A live
  // stream read by Belvane's connection is tried again for the reading's
  // patience after it breaks off (0: a short window of 10 s); every request
  // (station lists, streams, GStreamer's HTTP source) goes out with the
  // reading's request settings, and the station's titles are read in its
  // title encoding when it names one.
  static std::shared_ptr<QTMovie> movieWithURL(const BVURL& url, BVErrorRef* error,
                                               std::shared_ptr<MovieAudioSink> audio = nullptr,
                                               const MovieReading& reading = {});
  ~QTMovie();

  QTMovie(const QTMovie&) = delete;
  QTMovie& operator=(const QTMovie&) = delete;

  // QTMovieLoadStateAttribute (integer) and QTMovieDurationAttribute (real
  // seconds, absent for a live stream or before the duration is known).
  BVValue attributeForKey(const std::string& key) const;
  void setAttribute(const BVValue& value, const std::string& key);

  void play();
  void stop();  // pauses: rate 0.0
  float rate() const;
  QTTime currentTime() const;
  QTTime duration() const;  // indefinite for a live stream
  void setCurrentTime(QTTime time);
  float volume() const;
  void setVolume(float volume);  // 0.0 to 1.0
  bool muted() const;
  void setMuted(bool muted);

  // GetMovieStatus: 0 while nothing failed; once loading failed, an HTTP
  // status the source reported or a classic movie error code (-2048 not a
  // movie file, -19160 a stream that cannot be reached, -43 file not found).
  int32_t movieStatus() const;
  QTMovieController* quickTimeMovieController();

  // Notifications, delivered on the movie's thread. An observer is a key; all
  // of its registrations go at once.
  void addObserver(const void* observer, const std::string& name, std::function<void(const QTNotification&)> handler);
  void removeObserver(const void* observer);

  // What the metadata readers need: the local file being played (after
  // references and station lists were followed), the movie's tracks, and the
  // GStreamer tags of the whole movie and of each track (new references the
  // caller unrefs, or null).
  std::optional<std::string> filePath() const;
  std::vector<QTTrack> tracks();
  GstTagList* copyTags() const;
  GstTagList* copyTrackTags(size_t index) const;

  // A resource with an end: a local file, or a network reply that declared
  // its length. Its titles are track titles, not stream titles.
  bool isFiniteResource() const;
  // What a station's server announced of it in its reply (player attribute
  // keys: BVPlayerAttributeStation...; empty for other media), what the
  // movie decodes (codec, sample rate, channels, once known), and the entry
  // of the station list that plays (its title and place there).
  BVDictionary stationFacts() const;
  // Fresh connections tried after breaks since the movie opened, and
  // whether one is under way (our own connection, or a stream GStreamer
  // reads opened again); on the movie's thread.
  StreamReaderProgress connectionProgress() const;

  // A live station read by Belvane's connection with a station tap can be
  // played behind its live edge from its ring (see movie_ring_feed.h);
  // null otherwise. On the movie's thread.
  MovieRingFeed* ringFeed() const;

  // The URL being played (after references and station lists were followed).
  BVURL url() const;

 private:
  struct Impl;
  QTMovie();
  std::unique_ptr<Impl> impl_;
  friend class QTMovieController;
};

}  // namespace belvane::detail
