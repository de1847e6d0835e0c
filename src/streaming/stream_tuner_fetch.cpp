// TunerFetch: reads just enough of a URL to tell a playlist from a stream.
#include "streaming/stream_tuner_fetch.h"

#include <belvane/BVRunLoop.h>
#include <belvane/BVURLProbe.h>
#include <belvane/BVWebPlaylist.h>

#include "foundation/text_encoding.h"
#include "streaming/QLDebug.h"
#include "streaming/held_stream.h"
#include "streaming/QLStreamTuner.h"
#include "streaming/stream_tuner_errors.h"

#include <algorithm>

namespace belvane::detail {

namespace {

// Where a header block that starts the bytes ends (after its blank line),
// or 0 when no blank line has come yet. Lone LFs are tolerated.
size_t rawHeaderEnd(std::span<const uint8_t> bytes) {
  std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  size_t end = std::string_view::npos;
  if (size_t crlf = text.find("\r\n\r\n"); crlf != std::string_view::npos) end = crlf + 4;
  if (size_t lf = text.find("\n\n"); lf != std::string_view::npos) end = std::min(end, lf + 2);
  return end == std::string_view::npos ? 0 : end;
}

// The header block with every line ended by CR LF, as the raw parser wants.
std::string normalisedHeaderBlock(std::span<const uint8_t> bytes) {
  std::string text = latin1ToUTF8(bytes);
  std::string out;
  out.reserve(text.size() + 16);
  for (char c : text) {
    if (c == '\r') continue;
    if (c == '\n') out += "\r\n";
    else out += c;
  }
  return out;
}

bool startsWithICY(std::span<const uint8_t> bytes) {
  return hasPrefixIgnoringASCIICase(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()), "icy");
}

}  // namespace

std::shared_ptr<TunerFetch> TunerFetch::start(const BVURL& url, const BVRequestSettingsRef& settings,
                                              Completion completion) {
  auto fetch = std::make_shared<TunerFetch>(url, std::move(completion));
  BVURLRequest request(url, kTunerFetchTimeout);
  request.requestSettings = settings;
  // Asked as the streamer asks, so that a stream's reply can be handed to it.
  request.headerFields["Icy-MetaData"] = "1";
  fetch->connection_ = BVURLConnection::start(request, fetch.get());
  fetch->deadline_ = BVRunLoop::current().performAfterDelay(kTunerFetchDeadline, fetch, [self = fetch.get()] {
    self->fail(tunerError(QLStreamTunerErrorTimedOut, "The station's server took too long to answer.", &self->url_));
  });
  return fetch;
}

TunerFetch::TunerFetch(BVURL url, Completion completion) : url_(std::move(url)), completion_(std::move(completion)) {}

TunerFetch::~TunerFetch() { cancel(); }

void TunerFetch::cancel() {
  phase_ = Phase::Done;
  completion_ = nullptr;
  deadline_.cancel();
  if (connection_) connection_->cancel();
}

void TunerFetch::connectionDidReceiveResponse(BVURLConnection&, const BVURLResponse& response) {
  if (phase_ != Phase::AwaitingResponse) return;
  auto keep = shared_from_this();
  finalURL_ = response.url();
  int status = response.statusCode();
  if (status == 0) {
    // No HTTP status line: a Shoutcast "ICY" reply (its header block comes
    // as body bytes) or a local file, whose response names the file's type.
    auto type = response.headerFields().find("Content-Type");
    if (type != response.headerFields().end() && !type->second.empty()) contentType_ = type->second;
    phase_ = Phase::RawReply;
    return;
  }
  if (status < 200 || status >= 300) {
    fail(tunerHTTPStatusError(status, *finalURL_));
    return;
  }
  head_.status = status;
  for (const auto& [name, value] : response.headerFields()) head_.addField(name, value);
  auto type = response.headerFields().find("Content-Type");
  if (type != response.headerFields().end() && !type->second.empty()) contentType_ = type->second;
  decideFromHeaders();
}

void TunerFetch::connectionDidReceiveData(BVURLConnection&, std::span<const uint8_t> data) {
  if (phase_ == Phase::Done || phase_ == Phase::AwaitingResponse) return;
  auto keep = shared_from_this();
  body_.insert(body_.end(), data.begin(), data.end());
  advance(false);
}

void TunerFetch::connectionDidFinishLoading(BVURLConnection&) {
  if (phase_ == Phase::Done) return;
  auto keep = shared_from_this();
  advance(true);
}

void TunerFetch::connectionDidFailWithError(BVURLConnection&, const BVErrorRef& error) {
  if (phase_ == Phase::Done) return;
  auto keep = shared_from_this();
  fail(error);
}

void TunerFetch::advance(bool complete) {
  if (phase_ == Phase::AwaitingResponse) {
    // A body-less end without any response cannot happen; treat it as empty.
    phase_ = Phase::RawReply;
  }
  if (phase_ == Phase::RawReply) readRawHeader(complete);
  if (phase_ == Phase::Sniffing) sniff(complete);
  if (phase_ == Phase::ReadingPlaylist) {
    if (body_.size() > kTunerMaximumPlaylistLength) {
      fail(tunerError(QLStreamTunerErrorPlaylistTooLarge, "The station's playlist is too large to be read.", &url_));
    } else if (complete) {
      finishPlaylist();
    }
  }
}

void TunerFetch::readRawHeader(bool complete) {
  if (!complete && body_.size() < 3) return;
  if (!startsWithICY(body_)) {
    // A file or a bare reply: the bytes alone decide.
    decideFromHeaders();
    return;
  }
  size_t end = rawHeaderEnd(body_);
  if (end == 0 && !complete && body_.size() < kTunerMaximumRawHeaderLength) return;
  if (end == 0) end = std::min(body_.size(), kTunerMaximumRawHeaderLength);

  BVErrorRef refusal;
  auto fields = BVURLProbe::dictionaryWithAllKeysLowercase(
      BVURLProbe::parseHeader(normalisedHeaderBlock(std::span(body_).first(end)), &refusal));
  if (refusal) {
    // "ICY 404 ...", "ICY 503 ...": the station's status, reported as an
    // HTTP status would be (its own sentence, and a full server is worth
    // another try).
    fail(tunerHTTPStatusError(int(refusal->code()), url_));
    return;
  }
  if (auto type = fields.find("content-type"); type != fields.end() && !type->second.empty())
    contentType_ = type->second;
  head_.status = 200;
  for (const auto& [name, value] : fields) head_.addField(name, value);
  body_.erase(body_.begin(), body_.begin() + ptrdiff_t(end));
  decideFromHeaders();
}

void TunerFetch::decideFromHeaders() {
  std::string finalExtension = finalURL_ ? finalURL_->pathExtension() : std::string();
  hint_ = tunerContentHint(contentType_, url_.pathExtension(), finalExtension);
  if (!hint_.needsFirstBytes) {
    finishStream(contentType_);
    return;
  }
  phase_ = Phase::Sniffing;
}

void TunerFetch::sniff(bool complete) {
  TunerSniffResult result = tunerSniffFirstBytes(body_, hint_.format, complete);
  switch (result.verdict) {
    case TunerSniffVerdict::NeedMoreBytes: return;
    case TunerSniffVerdict::Stream: finishStream(contentType_); return;
    case TunerSniffVerdict::HLS: finishHLS(); return;
    case TunerSniffVerdict::Playlist:
      format_ = result.format;
      phase_ = Phase::ReadingPlaylist;
      return;
  }
}

void TunerFetch::finishPlaylist() {
  auto decoded = BVWebPlaylist::stringFromData(body_);
  std::string text = decoded ? std::move(*decoded) : latin1ToUTF8(body_);
  if (hasPrefix(text, "\xEF\xBB\xBF")) text.erase(0, 3);
  if (format_ == PlaylistFormat::M3U && isHLSPlaylistText(text)) {
    finishHLS();
    return;
  }
  TunerFetchResult result;
  result.kind = TunerFetchResult::Kind::Playlist;
  result.format = format_;
  result.text = std::move(text);
  result.finalURL = finalURL_ ? finalURL_ : url_;
  finish(std::move(result));
}

void TunerFetch::finishStream(std::optional<std::string> mimeType, bool holdReply) {
  TunerFetchResult result;
  result.kind = TunerFetchResult::Kind::Stream;
  std::string scheme = asciiLower(url_.scheme());
  if (holdReply && connection_ && (scheme == "http" || scheme == "https"))
    result.held = HeldStream::create(head_, std::move(body_), std::move(connection_));
  result.mimeType = std::move(mimeType);
  result.finalURL = finalURL_ ? finalURL_ : url_;
  finish(std::move(result));
}

void TunerFetch::finishHLS() {
  // One stream, under the HLS type even when its server named another.
  bool namedHLS = contentType_ && isHLSMIMEType(*contentType_);
  finishStream(namedHLS ? contentType_ : std::optional<std::string>(kTunerHLSMIMEType),
               false);
}

void TunerFetch::fail(BVErrorRef error) {
  TunerFetchResult result;
  result.kind = TunerFetchResult::Kind::Failed;
  result.error = std::move(error);
  result.finalURL = finalURL_ ? finalURL_ : url_;
  finish(std::move(result));
}

void TunerFetch::finish(TunerFetchResult result) {
  if (phase_ == Phase::Done) return;
  Completion completion = std::move(completion_);
  // Cuts the connection: a stream's audio is never downloaded.
  cancel();
  QLDebugLog(QL_LOG_DEBUG, "tuner: %s is %s", url_.absoluteString().c_str(),
             result.kind == TunerFetchResult::Kind::Stream     ? "a stream"
             : result.kind == TunerFetchResult::Kind::Playlist ? "a playlist"
                                                               : "unavailable");
  if (completion) completion(std::move(result));
}

}  // namespace belvane::detail
