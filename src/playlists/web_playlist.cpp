// BVWebPlaylist: downloading, decoding, the track list and the
// notifications to delegate and observers.
#include <belvane/BVWebPlaylist.h>

#include "foundation/text_encoding.h"
#include "playlists/playlist_download.h"

#include <algorithm>

namespace {

const std::string kFinishedLoadingKey = "finishedLoading";
const std::string kTracksKey = "tracks";

BVErrorRef tooLargeError() {
  return BVError::withDescription(
      BVWebPlaylistErrorDomain, BVWebPlaylistErrorTooLarge,
      "The playlist download was stopped after " + std::to_string(BVWebPlaylistMaximumDownloadLength) +
          " bytes: the resource is too large to be a playlist (it may be an audio stream).");
}

// Valid UTF-8; unlike GLib's check, NUL characters are allowed (they are
// valid UTF-8 and may turn up in a file).
bool isUTF8(std::span<const uint8_t> data) {
  while (!data.empty()) {
    auto nul = std::find(data.begin(), data.end(), uint8_t(0));
    if (!belvane::detail::isValidUTF8(data.subspan(0, size_t(nul - data.begin())))) return false;
    data = data.subspan(std::min(data.size(), size_t(nul - data.begin()) + 1));
  }
  return true;
}

}  // namespace

BVWebPlaylist::BVWebPlaylist() = default;

BVWebPlaylist::~BVWebPlaylist() {
  delegate_ = nullptr;
  observers_.clear();
  if (urlConnection_) urlConnection_->cancel();
  if (deadlineTimer_) deadlineTimer_->invalidate();
}

bool BVWebPlaylist::canInitWithURL(const BVURL&) { return false; }
bool BVWebPlaylist::canInitWithMIMEType(const std::optional<std::string>&) { return false; }

BVWebPlaylistRef BVWebPlaylist::playlistWithContentsOfURL(const BVURL& url) {
  auto playlist = initWithURL(url);
  if (!playlist) return nullptr;
  playlist->load();
  return playlist->loadSucceeded() ? playlist : nullptr;
}

std::optional<std::string> BVWebPlaylist::stringFromData(std::span<const uint8_t> data) {
  if (isUTF8(data)) {
    // A file saved with a byte-order mark must still start with its
    // "#EXTM3U" or "[playlist]" line.
    std::string text(data.begin(), data.end());
    belvane::detail::dropByteOrderMark(text);
    return text;
  }
  return belvane::detail::decodeText(data, "WINDOWS-1252");
}

// MARK: observers and delegate

void BVWebPlaylist::addObserver(BVWebPlaylistObserver* observer) {
  if (observer && std::find(observers_.begin(), observers_.end(), observer) == observers_.end())
    observers_.push_back(observer);
}

void BVWebPlaylist::removeObserver(BVWebPlaylistObserver* observer) {
  observers_.erase(std::remove(observers_.begin(), observers_.end(), observer), observers_.end());
}

void BVWebPlaylist::willChangeValueForKey(const std::string& key) {
  // An observer may remove itself or another one from inside its call.
  auto snapshot = observers_;
  for (auto* o : snapshot)
    if (std::find(observers_.begin(), observers_.end(), o) != observers_.end()) o->playlistWillChangeValueForKey(*this, key);
}

void BVWebPlaylist::didChangeValueForKey(const std::string& key) {
  auto snapshot = observers_;
  for (auto* o : snapshot)
    if (std::find(observers_.begin(), observers_.end(), o) != observers_.end()) o->playlistDidChangeValueForKey(*this, key);
}

void BVWebPlaylist::setFinishedLoading(bool finished) {
  willChangeValueForKey(kFinishedLoadingKey);
  finishedLoading_ = finished;
  didChangeValueForKey(kFinishedLoadingKey);
}

BVWebPlaylistRef BVWebPlaylist::keepAlive() {
  return std::static_pointer_cast<BVWebPlaylist>(weak_from_this().lock());
}

void BVWebPlaylist::reportFailure(const BVErrorRef& error) {
  if (delegate_) delegate_->playlistDidFailWithError(*this, error);
}

// MARK: tracks

const BVDictionary& BVWebPlaylist::objectInTracksAtIndex(size_t index) const {
  static const BVDictionary empty;
  auto d = index < tracks_.size() ? tracks_[index].dictionary() : nullptr;
  return d ? *d : empty;
}

void BVWebPlaylist::insertObject(BVValue track, size_t index) {
  if (index >= tracks_.size())
    tracks_.push_back(std::move(track));
  else
    tracks_.insert(tracks_.begin() + std::ptrdiff_t(index), std::move(track));
}

void BVWebPlaylist::insertCopies(const BVValue& track, size_t copies, size_t index) {
  tracks_.insert(tracks_.begin() + std::ptrdiff_t(std::min(index, tracks_.size())), copies, track);
}

void BVWebPlaylist::generateTracksFromString(std::string_view string) {
  size_t start = 0;
  while (true) {
    size_t end = string.find('\n', start);
    std::string_view piece = string.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start);
    insertObject(BVDictionary{{kPlaylistAttributeTrackURL, BVValue(piece)}}, tracks_.size());
    if (end == std::string_view::npos) break;
    start = end + 1;
  }
}

// MARK: loading

void BVWebPlaylist::load() {
  auto self = keepAlive();
  if (!url_) {
    downloadFailed_ = true;
    return;
  }
  BVURLRequest request(*url_);
  request.ignoreCache = true;
  request.requestSettings = requestSettings_;
  BVErrorRef error;
  auto data = belvane::detail::downloadPlaylist(request, downloadDeadline_, BVWebPlaylistMaximumDownloadLength, &error);
  if (!data) {
    downloadFailed_ = true;
    if (error && error->domain() == BVURLErrorDomain && error->code() == BVURLErrorDataLengthExceedsMaximum)
      reportFailure(tooLargeError());
    else if (error && error->domain() == BVURLErrorDomain && error->code() == BVURLErrorTimedOut)
      reportFailure(error);
    return;
  }
  auto text = stringFromData(*data);
  if (!text) {
    downloadFailed_ = true;
    return;
  }
  contents_ = std::move(*text);
  downloadFailed_ = false;
  finishedDownload();
}

void BVWebPlaylist::loadAsynchronously() { startDownload(); }

void BVWebPlaylist::startDownload() {
  downloadFailed_ = false;
  receivedLength_ = 0;
  stopDownload();
  if (url_) {
    BVURLRequest request(*url_);
    request.requestSettings = requestSettings_;
    urlConnection_ = BVURLConnection::start(request, this);
    // The whole download has a deadline: a server that keeps trickling
    // bytes never lets the connection's own time-out fire.
    std::weak_ptr<BVObject> weak = weak_from_this();
    deadlineTimer_ = BVTimer::scheduledTimer(downloadDeadline_, false, [weak](BVTimer&) {
      if (auto self = std::static_pointer_cast<BVWebPlaylist>(weak.lock())) self->downloadTimedOut();
    });
  } else {
    downloadFailed_ = true;
  }
  setFinishedLoading(false);
}

void BVWebPlaylist::stopDownload() {
  if (urlConnection_) urlConnection_->cancel();
  urlConnection_.reset();
  if (deadlineTimer_) deadlineTimer_->invalidate();
  deadlineTimer_.reset();
}

void BVWebPlaylist::downloadTimedOut() {
  deadlineTimer_.reset();
  if (!urlConnection_) return;
  auto self = keepAlive();
  stopDownload();
  downloadFailed_ = true;
  reportFailure(belvane::detail::playlistTimeoutError(downloadDeadline_));
}

void BVWebPlaylist::finishedDownload() {
  if (!loadSucceeded()) return;
  auto self = keepAlive();
  willChangeValueForKey(kTracksKey);
  generateTracksFromString(contents_);
  didChangeValueForKey(kTracksKey);
  setFinishedLoading(true);
  if (delegate_) delegate_->playlistDidFinishLoading(*this);
}

// MARK: connection delegate

void BVWebPlaylist::connectionWillSendRequest(BVURLConnection&, const BVURLRequest&, const BVURLResponse*) {
  // Redirects are followed as proposed.
}

void BVWebPlaylist::connectionDidReceiveResponse(BVURLConnection&, const BVURLResponse& response) {
  if (response.statusCode() == 200 || response.url().isFileURL()) return;
  auto self = keepAlive();
  downloadFailed_ = true;
  // The transfer goes on: an error page that arrives in full is still parsed.
  int code = response.statusCode();
  reportFailure(BVError::withDescription(BVWebPlaylistErrorDomain, BVWebPlaylistErrorHTTPStatus,
                                         std::to_string(code) + " " + BVLocalizedStringForHTTPStatusCode(code)));
}

void BVWebPlaylist::connectionDidReceiveData(BVURLConnection& connection, std::span<const uint8_t> data) {
  receivedLength_ += data.size();
  if (receivedLength_ > BVWebPlaylistMaximumDownloadLength) {
    // An endless stream or a huge file: stop here instead of growing without bound.
    // Dropping the connection (after this callback) closes the socket.
    auto self = keepAlive();
    connection.cancel();
    auto stopped = std::move(urlConnection_);
    stopDownload();
    downloadFailed_ = true;
    reportFailure(tooLargeError());
    return;
  }
  // Each chunk is decoded on its own; one that fits neither encoding is dropped.
  if (auto text = stringFromData(data)) contents_ += *text;
}

void BVWebPlaylist::connectionDidFinishLoading(BVURLConnection&) {
  auto self = keepAlive();
  // The connection is done; it goes once this callback has returned.
  auto finished = std::move(urlConnection_);
  stopDownload();
  downloadFailed_ = false;
  finishedDownload();
}

void BVWebPlaylist::connectionDidFailWithError(BVURLConnection&, const BVErrorRef& error) {
  auto self = keepAlive();
  auto failed = std::move(urlConnection_);
  stopDownload();
  downloadFailed_ = true;
  reportFailure(error);
}
