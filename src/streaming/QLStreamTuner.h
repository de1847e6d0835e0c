// QLStreamTuner: turns a station URL into the stream to play.
//
// It fetches the source URL (redirects followed, Shoutcast replies
// accepted), decides from the content type, the path extension and the first
// bytes whether it is a playlist (M3U, PLS, ASX/WAX/WVX, XSPF) or a stream,
// expands playlists (nested ones too, depth and loops bounded) into
// candidates in order, asks the server for each candidate's MIME type, and
// offers them one by one to its delegate. Delegate calls arrive on the run
// loop of the thread that called start(); call the tuner on that thread.
// An HLS playlist is one candidate, offered as "application/vnd.apple.mpegurl"
// unless its server named an HLS type; candidates of schemes the tuner cannot
// fetch (mms, rtsp, icy, ...) are offered without a MIME type.
#pragma once

#include <belvane/BVError.h>
#include <belvane/BVRequestSettings.h>
#include <belvane/BVURL.h>

#include "playlists/playlist_entry.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

class QLStreamTuner;

// Domain of the tuner's own failures; HTTP statuses come as
// "NetHTTPErrorDomain" errors, network failures as the connection's errors.
extern const char* const QLStreamTunerErrorDomain;  // "QLStreamTunerErrorDomain"
enum : int {
  QLStreamTunerErrorNoSourceURL = 1,       // start() without a source URL
  QLStreamTunerErrorNoPlayableStream = 2,  // every candidate was declined
  QLStreamTunerErrorNoStreams = 3,         // the playlists listed no usable entry
  QLStreamTunerErrorPlaylistTooLarge = 4,  // a playlist passed the download cap
  QLStreamTunerErrorTimedOut = 5,          // a server took too long to answer, or the search did
};

// Seconds a search may take from start() (or tuneNextStream()) to the next
// accepted candidate, however many entries stall on the way; past it the
// delegate hears one QLStreamTunerErrorTimedOut failure (or the completion,
// once a stream was found before).
inline constexpr double QLStreamTunerSearchTimeout = 30.0;

class QLStreamTunerDelegate {
 public:
  virtual ~QLStreamTunerDelegate() = default;
  // Whether to tune this candidate; mimeType is what its server reported
  // (nullptr when it gave none).
  virtual bool streamTunerShouldTuneStream(QLStreamTuner& tuner, const BVURL& url, const std::string* mimeType) = 0;
  virtual void streamTunerDidFindStreamURL(QLStreamTuner& tuner, const BVURL& url, const std::string* mimeType) = 0;
  virtual void streamTunerDidFailWithError(QLStreamTuner& tuner, const BVErrorRef& error) = 0;
  virtual void streamTunerDidComplete(QLStreamTuner& tuner) = 0;
};

class QLStreamTuner : public std::enable_shared_from_this<QLStreamTuner> {
 public:
  // initWithDelegate:
  static std::shared_ptr<QLStreamTuner> create(QLStreamTunerDelegate* delegate);
  virtual ~QLStreamTuner();

  void setDelegate(QLStreamTunerDelegate* delegate);
  void setSourceURL(const BVURL& url);
  void start();
  // Stops all work; no delegate call arrives after it returns.
  void stop();
  // Goes on from the candidate after the one reported last.
  void tuneNextStream();
  // The user agent, extra header fields and proxy of every look from the
  // next start() on (null: the defaults).
  void setRequestSettings(BVRequestSettingsRef settings);
  // The search's bound (QLStreamTunerSearchTimeout unless set).
  void setSearchTimeout(double seconds);
  // The URL tuned last (the source URL before any candidate was offered).
  std::optional<BVURL> tunedURL() const;
  // The playlist entry the URL tuned last is (its title there and its place,
  // in the playlist that listed it); nothing for the source URL itself.
  std::optional<belvane::detail::PlaylistEntry> tunedPlaylistEntry() const;
  // The other entries of the playlist the tuned URL came from: those after
  // it, then those before it, in file order; empty when it came from none.
  // A station that breaks off is reconnected to these in turn with its own.
  std::vector<BVURL> alternateStreamURLs() const;
  // "audio/mpeg; charset=x" -> "audio/mpeg".
  static std::string trimParametersFromMimeType(const std::string& mimeType);

  struct Impl;

 protected:
  explicit QLStreamTuner(QLStreamTunerDelegate* delegate);

 private:
  std::unique_ptr<Impl> impl_;
};
