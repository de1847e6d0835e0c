// BVWebPlaylist: a playlist file (PLS, M3U or ASX) on a web server, read
// into an ordered list of track dictionaries.
//
// initWithURL() chooses the reader: by the URL's file extension first, then
// by the content type the server reports. The playlist downloads the file
// synchronously (load) or on the calling thread's run loop
// (loadAsynchronously), decodes it (UTF-8, else Windows-1252), lets the
// reader fill `tracks`, and tells its delegate. Observers may follow the
// "finishedLoading" and "tracks" properties.
#pragma once

#include <belvane/BVExport.h>

#include <belvane/BVError.h>
#include <belvane/BVObject.h>
#include <belvane/BVRunLoop.h>
#include <belvane/BVURL.h>
#include <belvane/BVURLConnection.h>
#include <belvane/BVValue.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

// Track dictionary keys; each constant's text is its own name.
BV_EXPORT extern const char* const kPlaylistAttributeTrackURL;            // string, as written in the file
BV_EXPORT extern const char* const kPlaylistAttributeTrackTitle;          // string
BV_EXPORT extern const char* const kPlaylistAttributeTrackDuration;       // M3U: integer; PLS: string
BV_EXPORT extern const char* const kPlaylistAttributeTrackNumber;         // integer (PLS)
BV_EXPORT extern const char* const kPlaylistAttributeAlternateTrackURLs;  // list of strings (ASX)

// Error domain of download failures: "BVWebPlaylist".
BV_EXPORT extern const char* const BVWebPlaylistErrorDomain;
enum : int {
  // The server answered with a status other than 200 ("404 not found").
  BVWebPlaylistErrorHTTPStatus = -1,
  // The download passed BVWebPlaylistMaximumDownloadLength and was stopped.
  BVWebPlaylistErrorTooLarge = -2,
};
// Downloads larger than this are no playlist (an audio stream, a big file).
inline constexpr size_t BVWebPlaylistMaximumDownloadLength = 4 * 1024 * 1024;
// Seconds a download may take as a whole (both ways of loading); past it the
// download fails with a BVURLErrorTimedOut error, which the delegate hears.
inline constexpr double BVWebPlaylistDownloadDeadline = 20.0;

class BVWebPlaylist;
using BVWebPlaylistRef = std::shared_ptr<BVWebPlaylist>;

// The playlist's delegate; both calls are optional (default: nothing).
class BV_EXPORT BVWebPlaylistDelegate {
 public:
  virtual ~BVWebPlaylistDelegate() = default;
  // The tracks are ready.
  virtual void playlistDidFinishLoading(BVWebPlaylist& /*playlist*/) {}
  // The download failed, or the server answered other than 200.
  virtual void playlistDidFailWithError(BVWebPlaylist& /*playlist*/, const BVErrorRef& /*error*/) {}
};

// Follows the playlist's observable properties: key is "finishedLoading" or
// "tracks". Will-change comes before the change, did-change after it.
class BV_EXPORT BVWebPlaylistObserver {
 public:
  virtual ~BVWebPlaylistObserver() = default;
  virtual void playlistWillChangeValueForKey(BVWebPlaylist& /*playlist*/, const std::string& /*key*/) {}
  virtual void playlistDidChangeValueForKey(BVWebPlaylist& /*playlist*/, const std::string& /*key*/) {}
};

class BV_EXPORT BVWebPlaylist : public BVObject, protected BVURLConnectionDelegate {
 public:
  // Class-level tests of the readers; the base accepts nothing. An absent
  // MIME type stands for a server that reported none.
  static bool canInitWithURL(const BVURL& url);
  static bool canInitWithMIMEType(const std::optional<std::string>& mimeType);

  // The reader for url (PLS, M3U, ASX, asked in that order): by the path's
  // extension, else by the content type a probe of the URL finds (blocking).
  // Nothing when no reader accepts either.
  static BVWebPlaylistRef initWithURL(const BVURL& url);
  // initWithURL() and load(); nothing unless the load succeeded.
  static BVWebPlaylistRef playlistWithContentsOfURL(const BVURL& url);

  // Decodes downloaded bytes: UTF-8, else Windows-1252; nothing when neither fits.
  static std::optional<std::string> stringFromData(std::span<const uint8_t> data);

  ~BVWebPlaylist() override;
  std::string className() const override { return "BVWebPlaylist"; }

  // The delegate is not owned; clear it before it goes away.
  void setDelegate(BVWebPlaylistDelegate* delegate) { delegate_ = delegate; }
  BVWebPlaylistDelegate* delegate() const { return delegate_; }
  // Observers are not owned; remove them before they go away.
  void addObserver(BVWebPlaylistObserver* observer);
  void removeObserver(BVWebPlaylistObserver* observer);

  // Blocking download and parse. Failures only clear loadSucceeded(), except
  // a download over the size limit or past the deadline, which the delegate
  // hears about.
  void load();
  // Starts the download; every delegate and observer call arrives on the
  // calling thread's run loop.
  void loadAsynchronously();

  // The download's overall deadline in seconds (BVWebPlaylistDownloadDeadline
  // unless set); it applies to the next load.
  void setDownloadDeadline(double seconds) { downloadDeadline_ = seconds; }
  double downloadDeadline() const { return downloadDeadline_; }
  // The user agent, extra header fields and proxy of the download (those of
  // the player it is made for; null: the defaults); it applies to the next load.
  void setRequestSettings(BVRequestSettingsRef settings) { requestSettings_ = std::move(settings); }
  const BVRequestSettingsRef& requestSettings() const { return requestSettings_; }

  size_t countOfTracks() const { return tracks_.size(); }
  const BVDictionary& objectInTracksAtIndex(size_t index) const;
  // Inserts at index, or appends when index is past the end.
  void insertObject(BVValue track, size_t index);
  // Every track, each a dictionary value.
  const BVArray& tracks() const { return tracks_; }

  // The reader: turns the playlist text into tracks. The base makes one
  // track per "\n"-separated piece, empty pieces included.
  virtual void generateTracksFromString(std::string_view string);

  bool isFinishedLoading() const { return finishedLoading_; }
  bool loadSucceeded() const { return !downloadFailed_; }
  const std::string& contents() const { return contents_; }
  // The playlist's URL; nothing for a reader made with create().
  const std::optional<BVURL>& URL() const { return url_; }

 protected:
  BVWebPlaylist();  // init: empty contents and tracks

  void setURL(const BVURL& url) { url_ = url; }
  // Inserts copies of one track at index (appends when index is past the
  // end), as many insertObject() calls would, in one step.
  void insertCopies(const BVValue& track, size_t copies, size_t index);
  // Makes room for that many more tracks.
  void reserveTracks(size_t additional) { tracks_.reserve(tracks_.size() + additional); }
  void startDownload();
  void finishedDownload();

  void connectionWillSendRequest(BVURLConnection& connection, const BVURLRequest& request,
                                 const BVURLResponse* redirectResponse) override;
  void connectionDidReceiveResponse(BVURLConnection& connection, const BVURLResponse& response) override;
  void connectionDidReceiveData(BVURLConnection& connection, std::span<const uint8_t> data) override;
  void connectionDidFinishLoading(BVURLConnection& connection) override;
  void connectionDidFailWithError(BVURLConnection& connection, const BVErrorRef& error) override;

  void willChangeValueForKey(const std::string& key);
  void didChangeValueForKey(const std::string& key);

 private:
  void setFinishedLoading(bool finished);
  // Cancels the connection and the deadline's timer.
  void stopDownload();
  void downloadTimedOut();
  void reportFailure(const BVErrorRef& error);
  BVWebPlaylistRef keepAlive();

  BVWebPlaylistDelegate* delegate_ = nullptr;
  std::optional<BVURL> url_;
  BVURLConnectionRef urlConnection_;
  std::shared_ptr<BVTimer> deadlineTimer_;
  double downloadDeadline_ = BVWebPlaylistDownloadDeadline;
  BVRequestSettingsRef requestSettings_;
  std::string contents_;
  BVArray tracks_;
  bool finishedLoading_ = false;
  bool downloadFailed_ = false;
  size_t receivedLength_ = 0;
  std::vector<BVWebPlaylistObserver*> observers_;
};
