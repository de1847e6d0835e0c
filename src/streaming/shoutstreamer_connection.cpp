// StreamConnection over a libcurl easy handle driven by a private multi
// handle, so that cancel() can wake the wait at once.
#include "streaming/shoutstreamer_connection.h"

#include "foundation/curl_request_settings.h"
#include "foundation/text_encoding.h"
#include "streaming/QLDebug.h"
#include "streaming/held_stream.h"
#include "streaming/shoutstreamer.h"
#include "streaming/shoutstreamer_errors.h"

#include <curl/curl.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>

namespace belvane::detail {

namespace {

using Clock = std::chrono::steady_clock;

bool isFollowedRedirect(int status) {
  return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

std::string lowerScheme(const std::string& url) {
  size_t colon = url.find("://");
  if (colon == std::string::npos) return {};
  return asciiLower(std::string_view(url).substr(0, colon));
}

}  // namespace

struct StreamConnection::Impl {
  CURL* easy = nullptr;
  CURLM* multi = nullptr;
  curl_slist* requestHeaders = nullptr;
  std::string url;
  bool isFile = false;
  bool refusesAAC = true;
  double connectTimeout;
  double stallTimeout;
  std::atomic<bool> cancelled{false};
  Handler* handler = nullptr;
  std::shared_ptr<HeldStream> held;

  // The HTTP head as libcurl reports it, block by block (redirects too).
  StreamReplyHead httpHead;
  bool inBlock = false;
  // The head (HTTP or ICY) has been judged and passed on.
  bool headDone = false;
  IcyReplyParser icy;
  bool chunked = false;
  int32_t error = 0;
  bool stopped = false;
  Clock::time_point lastActivity;

  Impl(const std::string& u, double connect, double stall) : connectTimeout(connect), stallTimeout(stall) {
    url = fetchableURL(u);
    isFile = lowerScheme(url) == "file";
  }

  // Judges a complete head; false stops the transfer.
  bool acceptHead(const StreamReplyHead& head) {
    headDone = true;
    if (head.status != 0 && (head.status < 200 || head.status > 299)) {
      QLDebugLog(QL_LOG_WARNING, "shoutstreamer: %s answered %d %s", url.c_str(), head.status, head.reason.c_str());
      error = shoutstreamerErrorForStatus(head.status);
      return false;
    }
    const std::string* type = head.field("content-type");
    if (type && refusesAAC && isAACContentType(*type)) {
      error = SHOUTSTREAMER_ERROR_AAC;
      return false;
    }
    if (const std::string* encoding = head.field("transfer-encoding")) {
      chunked = asciiLower(*encoding).find("chunked") != std::string::npos;
    }
    int32_t result = handler->head(head);
    if (result != 0) {
      error = result;
      return false;
    }
    return true;
  }

  // The outcome every way of reading shares: cancelled or stopped, timed
  // out, or an error found on the way. False: the caller decides the rest.
  bool settle(Result& result, bool timedOut) const {
    result.headSeen = headDone;
    if (cancelled || stopped)
      result.cancelled = true;
    else if (timedOut)
      result.error = SHOUTSTREAMER_ERROR_TIMED_OUT;
    else if (error)
      result.error = error;
    else
      return false;
    return true;
  }

  bool deliver(std::span<const uint8_t> bytes) {
    if (bytes.empty()) return true;
    int32_t result = handler->body(bytes);
    lastActivity = Clock::now();
    if (result == 0) return true;
    if (result == kStop)
      stopped = true;
    else
      error = result;
    return false;
  }

  static size_t onHeader(char* data, size_t size, size_t count, void* user) {
    auto self = static_cast<Impl*>(user);
    size_t n = size * count;
    self->lastActivity = Clock::now();
    std::string_view line(data, n);
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.remove_suffix(1);
    if (line.substr(0, 5) == "HTTP/") {
      self->inBlock = true;
      self->httpHead = {};
      if (!parseStatusLine(line, self->httpHead.status, self->httpHead.reason)) {
        self->error = SHOUTSTREAMER_ERROR_BAD_REPLY;
        return 0;
      }
      return n;
    }
    if (!self->inBlock || self->headDone) return n;
    if (!line.empty()) {
      size_t colon = line.find(':');
      if (colon != std::string_view::npos) self->httpHead.addField(line.substr(0, colon), line.substr(colon + 1));
      return n;
    }
    self->inBlock = false;
    int status = self->httpHead.status;
    if (status < 200 || (isFollowedRedirect(status) && self->httpHead.field("location"))) return n;
    return self->acceptHead(self->httpHead) ? n : 0;
  }

  static size_t onWrite(char* data, size_t size, size_t count, void* user) {
    auto self = static_cast<Impl*>(user);
    size_t n = size * count;
    if (self->cancelled) return 0;
    self->lastActivity = Clock::now();
    std::span<const uint8_t> bytes(reinterpret_cast<const uint8_t*>(data), n);
    if (self->headDone) return self->deliver(bytes) ? n : 0;
    if (self->isFile) {
      if (!self->acceptHead(StreamReplyHead{})) return 0;
      return self->deliver(bytes) ? n : 0;
    }
    // No HTTP head came: a Shoutcast reply or a bare stream, as body bytes.
    switch (self->icy.feed(bytes)) {
      case IcyReplyParser::Result::NeedMore: return n;
      case IcyReplyParser::Result::Malformed: self->error = SHOUTSTREAMER_ERROR_BAD_REPLY; return 0;
      case IcyReplyParser::Result::NotIcy:
        if (!self->acceptHead(StreamReplyHead{})) return 0;
        break;
      case IcyReplyParser::Result::Head:
        if (!self->acceptHead(self->icy.head())) return 0;
        break;
    }
    return self->deliver(self->icy.pending()) ? n : 0;
  }
};

StreamConnection::StreamConnection(const std::string& url, double connectTimeout, double stallTimeout,
                                   const BVRequestSettingsRef& settings)
    : impl_(std::make_unique<Impl>(url, connectTimeout, stallTimeout)) {
  static std::once_flag once;
  std::call_once(once, [] { curl_global_init(CURL_GLOBAL_ALL); });
  Impl& s = *impl_;
  s.easy = curl_easy_init();
  s.multi = curl_multi_init();
  if (!s.easy || !s.multi) return;
  CURL* e = s.easy;
  curl_easy_setopt(e, CURLOPT_URL, s.url.c_str());
  curl_easy_setopt(e, CURLOPT_FOLLOWLOCATION, 1L);
  curl_easy_setopt(e, CURLOPT_MAXREDIRS, 10L);
  curl_easy_setopt(e, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(e, CURLOPT_PROTOCOLS_STR, "http,https,file");
  curl_easy_setopt(e, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(e, CURLOPT_HTTP09_ALLOWED, 1L);
  curl_easy_setopt(e, CURLOPT_CONNECTTIMEOUT_MS, std::max(1L, long(connectTimeout * 1000)));
  s.requestHeaders = curl_slist_append(s.requestHeaders, "Icy-MetaData: 1");
  applyRequestSettings(e, settings.get(), &s.requestHeaders);
  curl_easy_setopt(e, CURLOPT_HTTPHEADER, s.requestHeaders);
  curl_easy_setopt(e, CURLOPT_HEADERFUNCTION, &Impl::onHeader);
  curl_easy_setopt(e, CURLOPT_HEADERDATA, impl_.get());
  curl_easy_setopt(e, CURLOPT_WRITEFUNCTION, &Impl::onWrite);
  curl_easy_setopt(e, CURLOPT_WRITEDATA, impl_.get());
  // Larger reads when the server sends faster than real time (the burst at
  // the start, a file): fewer system calls and fewer, longer hand-overs.
  curl_easy_setopt(e, CURLOPT_BUFFERSIZE, 64L * 1024);
}

StreamConnection::StreamConnection(const std::string& url, std::shared_ptr<HeldStream> held, double stallTimeout)
    : impl_(std::make_unique<Impl>(url, stallTimeout, stallTimeout)) {
  impl_->held = std::move(held);
}

StreamConnection::~StreamConnection() {
  Impl& s = *impl_;
  if (s.multi && s.easy) curl_multi_remove_handle(s.multi, s.easy);
  if (s.multi) curl_multi_cleanup(s.multi);
  if (s.easy) curl_easy_cleanup(s.easy);
  curl_slist_free_all(s.requestHeaders);
}

void StreamConnection::cancel() {
  impl_->cancelled = true;
  if (impl_->multi) curl_multi_wakeup(impl_->multi);
  if (impl_->held) impl_->held->cancel();
}

void StreamConnection::setRefusesAAC(bool refuses) { impl_->refusesAAC = refuses; }

void StreamConnection::setStartOffset(uint64_t offset) {
  if (impl_->easy && !impl_->held) curl_easy_setopt(impl_->easy, CURLOPT_RESUME_FROM_LARGE, curl_off_t(offset));
}

std::string StreamConnection::fetchableURL(const std::string& url) {
  std::string scheme = lowerScheme(url);
  if (scheme == "icy" || scheme == "shttp") return "http" + url.substr(scheme.size());
  return url;
}

StreamConnection::Result StreamConnection::runHeld(Handler& handler) {
  Impl& s = *impl_;
  Result result;
  s.handler = &handler;
  HeldStream& held = *s.held;
  std::atomic<int64_t> lastActivity{Clock::now().time_since_epoch().count()};
  HeldStream::End end = HeldStream::End::Stopped;
  bool timedOut = false;
  if (s.acceptHead(held.head())) {
    // The body is decoded on the held connection's thread from here on;
    // this thread only watches for the end, a stall or cancel().
    held.attach([&](std::span<const uint8_t> bytes) {
      lastActivity = Clock::now().time_since_epoch().count();
      return !s.cancelled && s.deliver(bytes);
    });
    while (!s.cancelled) {
      auto silent = Clock::now() - Clock::time_point(Clock::duration(lastActivity.load()));
      double seconds = std::chrono::duration<double>(silent).count();
      if (seconds > s.stallTimeout) {
        timedOut = true;
        break;
      }
      end = held.waitForEnd(std::max(s.stallTimeout - seconds, 0.001));
      if (end != HeldStream::End::None) break;
    }
    held.cancel();
    held.detach();
  } else if (s.error == SHOUTSTREAMER_ERROR_AAC) {
    // Untouched: the engine that plays AAC takes the reply over in turn.
    HeldStream::park(s.url, s.held);
  }
  if (s.settle(result, timedOut)) return result;
  if (end == HeldStream::End::Failed)
    result.error = SHOUTSTREAMER_ERROR_CONNECTION_LOST;
  else
    result.declaredEnd = s.chunked || held.head().field("content-length") != nullptr;
  return result;
}

StreamConnection::Result StreamConnection::run(Handler& handler) {
  Impl& s = *impl_;
  if (s.held) return runHeld(handler);
  Result result;
  if (!s.easy || !s.multi) {
    result.error = SHOUTSTREAMER_ERROR_INTERNAL;
    return result;
  }
  s.handler = &handler;
  const auto started = Clock::now();
  s.lastActivity = started;
  curl_multi_add_handle(s.multi, s.easy);
  CURLcode code = CURLE_OK;
  bool timedOut = false;
  while (!s.cancelled) {
    int running = 0;
    if (curl_multi_perform(s.multi, &running) != CURLM_OK) {
      code = CURLE_FAILED_INIT;
      break;
    }
    if (!running) {
      int left = 0;
      while (CURLMsg* message = curl_multi_info_read(s.multi, &left)) {
        if (message->msg == CURLMSG_DONE) code = message->data.result;
      }
      break;
    }
    // Until the head is in, the time-out bounds the whole wait (a server
    // that trickles its head cannot hold us); afterwards each silence.
    auto now = Clock::now();
    double waited = s.headDone ? std::chrono::duration<double>(now - s.lastActivity).count()
                               : std::chrono::duration<double>(now - started).count();
    double limit = s.headDone ? s.stallTimeout : s.connectTimeout;
    if (waited > limit) {
      timedOut = true;
      break;
    }
    int pollMs = int(std::clamp((limit - waited) * 1000.0, 1.0, 1000.0));
    curl_multi_poll(s.multi, nullptr, 0, pollMs, nullptr);
  }
  if (s.settle(result, timedOut)) return result;
  if (code != CURLE_OK) {
    QLDebugLog(QL_LOG_INFO, "shoutstreamer: %s: %s", s.url.c_str(), curl_easy_strerror(code));
    result.error = shoutstreamerErrorForCurlCode(code);
  } else if (!s.headDone) {
    // An empty file or reply, or one that ended inside an ICY head.
    if (s.isFile)
      result.declaredEnd = true;
    else
      result.error = s.icy.pending().empty() ? SHOUTSTREAMER_ERROR_NO_AUDIO : SHOUTSTREAMER_ERROR_BAD_REPLY;
  } else {
    curl_off_t length = -1;
    curl_easy_getinfo(s.easy, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
    result.declaredEnd = s.isFile || s.chunked || length >= 0;
  }
  return result;
}

}  // namespace belvane::detail
