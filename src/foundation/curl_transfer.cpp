// CurlTransfer: one libcurl easy transfer driven by a private multi handle.
#include "foundation/curl_transfer.h"

#include "foundation/curl_request_settings.h"
#include "foundation/local_mime_type.h"

#include <belvane/BVError.h>

#include <curl/curl.h>
#include <glib.h>
#include <glib/gstdio.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <mutex>

namespace belvane::detail {

namespace {

// A header block larger than this is hostile, whatever its line lengths.
constexpr size_t kMaxHeaderBytes = 256 * 1024;

void ensureCurlInitialised() {
  static std::once_flag once;
  std::call_once(once, [] { curl_global_init(CURL_GLOBAL_ALL); });
}

// libcurl's global set-up (OpenSSL's among it) runs when the library is
// loaded, on the loading thread, rather than on whichever short-lived worker
// thread happens to make the first transfer: state that set-up keeps for its
// thread then lives as long as the process.
[[gnu::constructor]] void initialiseCurlAtLoad() { ensureCurlInitialised(); }

using Clock = std::chrono::steady_clock;

bool isRedirectStatus(int code) { return code == 301 || code == 302 || code == 303 || code == 307 || code == 308; }

// A file has no header block; its response carries what the file system
// knows instead: the content type of the file and its length, as a server
// would send them.
BVHTTPHeaderFields fileResponseFields(const BVURL& url) {
  BVHTTPHeaderFields fields;
  if (g_ascii_strcasecmp(url.scheme().c_str(), "file") != 0) return fields;
  std::string path = url.path();
  if (auto mime = mimeTypeOfLocalFile(path)) fields["Content-Type"] = *mime;
  GStatBuf st;
  if (g_stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode)) fields["Content-Length"] = std::to_string(st.st_size);
  return fields;
}

// A connection error with the failing URL and libcurl's own code.
BVErrorRef transferError(int code, int curlCode, const std::string& url, const std::string& description) {
  BVDictionary info{{BVLocalizedDescriptionKey, BVValue(description)},
                    {"NSErrorFailingURLStringKey", BVValue(url)},
                    {BVURLErrorCurlCodeKey, BVValue(curlCode)}};
  return BVError::create(BVURLErrorDomain, code, std::move(info));
}

// What a listener reads when the server's certificate was refused, by
// OpenSSL's verification result.
std::string certificateFault(long verifyResult, const std::string& host) {
  // X509_V_ERR_CERT_NOT_YET_VALID and X509_V_ERR_CERT_HAS_EXPIRED.
  constexpr long kNotYetValid = 9, kExpired = 10;
  const char* why = verifyResult == kExpired       ? "has expired"
                    : verifyResult == kNotYetValid ? "is not valid yet"
                                                   : "is not trusted";
  return "A secure connection to " + host + " could not be made: the server's certificate " + why + ".";
}

}  // namespace

struct CurlTransfer::Impl {
  BVURLRequest request;
  CURL* easy = nullptr;
  CURLM* multi = nullptr;
  curl_slist* headers = nullptr;
  std::atomic<bool> cancelled{false};
  bool paused = false;
  // libcurl hands a non-HTTP reply's first line to the write callback on its
  // own and the rest of the same read right after; the line is held back and
  // joined to that rest so the header block arrives as one piece of body.
  std::string heldFirstLine;
  TransferSink* sink = nullptr;
  CurlTransfer* owner = nullptr;

  // Current header block.
  int status = 0;
  bool inBlock = false;
  BVHTTPHeaderFields fields;
  std::map<std::string, std::string> rawFields;
  size_t headerBytes = 0;
  bool headerOverflow = false;
  std::string currentURL;
  Clock::time_point started;
  Clock::time_point lastActivity;

  explicit Impl(const BVURLRequest& r) : request(r) {}

  void finishBlock() {
    inBlock = false;
    if (status >= 100 && status < 200) return;
    bool redirect = isRedirectStatus(status) && fields.count("Location");
    std::optional<BVURL> location;
    auto url = BVURL::URLWithString(currentURL).value_or(request.url);
    if (redirect) {
      location = BVURL::URLWithStringRelativeTo(fields["Location"], url);
    }
    BVURLResponse response(url, status, fields);
    if (!redirect) owner->responseSeen_ = true;
    if (sink && sink->onResponse) sink->onResponse(response, redirect, location);
    if (redirect && location) currentURL = location->absoluteString();
  }

  static size_t onHeader(char* data, size_t size, size_t count, void* user) {
    auto self = static_cast<Impl*>(user);
    size_t n = size * count;
    self->lastActivity = Clock::now();
    self->headerBytes += n;
    if (self->headerBytes > kMaxHeaderBytes) {
      self->headerOverflow = true;
      return 0;
    }
    std::string line(data, n);
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
    // A status line; "ICY 200 OK" reaches here only where it is read as HTTP.
    if (line.rfind("HTTP/", 0) == 0 || line.rfind("ICY ", 0) == 0) {
      self->inBlock = true;
      self->fields.clear();
      self->rawFields.clear();
      auto sp = line.find(' ');
      self->status = sp == std::string::npos ? 0 : std::atoi(line.c_str() + sp + 1);
      return n;
    }
    if (!self->inBlock) return n;  // trailers
    if (line.empty()) {
      self->finishBlock();
      return n;
    }
    auto colon = line.find(':');
    if (colon != std::string::npos) {
      std::string name = line.substr(0, colon);
      std::string value = line.substr(colon + 1);
      size_t b = value.find_first_not_of(" \t");
      value = b == std::string::npos ? "" : value.substr(b);
      while (!value.empty() && (value.back() == ' ' || value.back() == '\t')) value.pop_back();
      self->fields[name] = value;
      self->rawFields[name] = value;
    }
    return n;
  }

  static size_t onWrite(char* data, size_t size, size_t count, void* user) {
    auto self = static_cast<Impl*>(user);
    size_t n = size * count;
    if (self->cancelled) return 0;
    if (self->sink && self->sink->canAccept && !self->sink->canAccept()) {
      self->paused = true;
      return CURL_WRITEFUNC_PAUSE;
    }
    self->lastActivity = Clock::now();
    if (!self->owner->responseSeen_) {
      // A reply without an HTTP status line (Shoutcast "ICY 200 OK", or a
      // file): its text arrives as body bytes after an empty response.
      self->owner->responseSeen_ = true;
      BVURL responseURL = BVURL::URLWithString(self->currentURL).value_or(self->request.url);
      BVURLResponse response(responseURL, 0, fileResponseFields(responseURL));
      if (self->sink && self->sink->onResponse) self->sink->onResponse(response, false, std::nullopt);
      self->heldFirstLine.assign(data, n);
      return n;
    }
    if (!self->heldFirstLine.empty()) {
      std::string joined = std::move(self->heldFirstLine) + std::string(data, n);
      self->heldFirstLine.clear();
      if (self->sink && self->sink->onData) self->sink->onData({reinterpret_cast<const uint8_t*>(joined.data()), joined.size()});
      return n;
    }
    if (self->sink && self->sink->onData) self->sink->onData({reinterpret_cast<const uint8_t*>(data), n});
    return n;
  }

  // Delivers a held first line that no further bytes followed in this read.
  void flushHeldFirstLine() {
    if (heldFirstLine.empty()) return;
    std::string line = std::move(heldFirstLine);
    heldFirstLine.clear();
    if (sink && sink->onData) sink->onData({reinterpret_cast<const uint8_t*>(line.data()), line.size()});
  }
};

CurlTransfer::CurlTransfer(const BVURLRequest& request) : impl_(std::make_unique<Impl>(request)) {
  ensureCurlInitialised();
  impl_->owner = this;
  CURL* e = curl_easy_init();
  impl_->easy = e;
  impl_->currentURL = request.url.absoluteString();
  curl_easy_setopt(e, CURLOPT_URL, impl_->currentURL.c_str());
  curl_easy_setopt(e, CURLOPT_FOLLOWLOCATION, 1L);
  curl_easy_setopt(e, CURLOPT_MAXREDIRS, 16L);
  curl_easy_setopt(e, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(e, CURLOPT_PROTOCOLS_STR, "http,https,file");
  curl_easy_setopt(e, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(e, CURLOPT_HTTP09_ALLOWED, request.allowNonHTTPReplies ? 1L : 0L);
  if (!request.allowNonHTTPReplies || request.httpMethod == "HEAD") {
    // A Shoutcast server answers every request, HEAD included, with
    // "ICY 200 OK" and HTTP header lines: where no body follows, or where
    // only HTTP replies are wanted, read it as HTTP/1.0 200 so that its
    // Content-Type is known (a GET that takes raw replies sees it as it is).
    // One list for the process, never freed.
    static curl_slist* const icyStatusLine = curl_slist_append(nullptr, "ICY 200 OK");
    curl_easy_setopt(e, CURLOPT_HTTP200ALIASES, icyStatusLine);
  }
  curl_easy_setopt(e, CURLOPT_ACCEPT_ENCODING, "");
  long connectMs = request.timeoutInterval > 0 ? long(request.timeoutInterval * 1000) : 0L;
  curl_easy_setopt(e, CURLOPT_CONNECTTIMEOUT_MS, connectMs > 0 ? connectMs : 1L);
  if (request.httpMethod == "HEAD") {
    curl_easy_setopt(e, CURLOPT_NOBODY, 1L);
  } else if (request.httpMethod != "GET") {
    curl_easy_setopt(e, CURLOPT_CUSTOMREQUEST, request.httpMethod.c_str());
  }
  for (auto& [k, v] : request.headerFields) impl_->headers = curl_slist_append(impl_->headers, (k + ": " + v).c_str());
  if (request.ignoreCache) impl_->headers = curl_slist_append(impl_->headers, "Cache-Control: no-cache");
  applyRequestSettings(e, request.requestSettings.get(), &impl_->headers);
  curl_easy_setopt(e, CURLOPT_HTTPHEADER, impl_->headers);
  curl_easy_setopt(e, CURLOPT_HEADERFUNCTION, &Impl::onHeader);
  curl_easy_setopt(e, CURLOPT_HEADERDATA, impl_.get());
  curl_easy_setopt(e, CURLOPT_WRITEFUNCTION, &Impl::onWrite);
  curl_easy_setopt(e, CURLOPT_WRITEDATA, impl_.get());
  impl_->multi = curl_multi_init();
}

CurlTransfer::~CurlTransfer() {
  if (impl_->multi) {
    curl_multi_remove_handle(impl_->multi, impl_->easy);
    curl_multi_cleanup(impl_->multi);
  }
  curl_easy_cleanup(impl_->easy);
  curl_slist_free_all(impl_->headers);
}

void CurlTransfer::cancel() {
  impl_->cancelled = true;
  curl_multi_wakeup(impl_->multi);
}

void CurlTransfer::resume() { curl_multi_wakeup(impl_->multi); }

BVErrorRef CurlTransfer::run(TransferSink& sink) {
  Impl& s = *impl_;
  s.sink = &sink;
  s.started = s.lastActivity = Clock::now();
  const auto timeout = std::chrono::duration<double>(s.request.timeoutInterval > 0 ? s.request.timeoutInterval : 1e9);
  curl_multi_add_handle(s.multi, s.easy);
  CURLcode result = CURLE_OK;
  bool timedOut = false;
  while (true) {
    if (s.cancelled) return BVError::withDescription(BVURLErrorDomain, BVURLErrorCancelled, "cancelled");
    if (s.paused && (!sink.canAccept || sink.canAccept())) {
      s.paused = false;
      curl_easy_pause(s.easy, CURLPAUSE_CONT);
    }
    int running = 0;
    if (curl_multi_perform(s.multi, &running) != CURLM_OK) {
      result = CURLE_FAILED_INIT;
      break;
    }
    s.flushHeldFirstLine();
    if (!running) {
      int left = 0;
      while (CURLMsg* msg = curl_multi_info_read(s.multi, &left)) {
        if (msg->msg == CURLMSG_DONE) result = msg->data.result;
      }
      break;
    }
    auto now = Clock::now();
    if (s.paused) s.lastActivity = now;
    // Until the response arrives the time-out bounds the whole wait, so a
    // server that trickles headers cannot hold the request; afterwards it
    // bounds each silence.
    auto waited = responseSeen_ ? now - s.lastActivity : now - s.started;
    if (waited > timeout) {
      timedOut = true;
      break;
    }
    // Sleeps until the socket, libcurl's own timers, cancel() or resume()
    // wake it, or the time-out could have passed: a long transfer (a stream)
    // costs no wake-ups of its own.
    double left = std::chrono::duration<double>(timeout - waited).count();
    curl_multi_poll(s.multi, nullptr, 0, int(std::clamp(left * 1000.0, 1.0, 1000.0)), nullptr);
  }
  if (s.cancelled) return BVError::withDescription(BVURLErrorDomain, BVURLErrorCancelled, "cancelled");
  if (timedOut) return errorForCurlCode(CURLE_OPERATION_TIMEDOUT, s.request.url.absoluteString(), nullptr);
  if (s.headerOverflow)
    return BVError::withDescription(BVURLErrorDomain, BVURLErrorBadServerResponse,
                                    "The server's reply was malformed: its header block is too large.");
  if (result == CURLE_OUT_OF_MEMORY && !responseSeen_) {
    // libcurl refuses a header line longer than it will buffer with its
    // out-of-memory code; the fault is the server's, not this machine's.
    return transferError(BVURLErrorBadServerResponse, result, s.request.url.absoluteString(),
                         "The server's reply was malformed: one of its header lines is too long.");
  }
  if (result == CURLE_PEER_FAILED_VERIFICATION) {
    long verifyResult = 0;
    curl_easy_getinfo(s.easy, CURLINFO_SSL_VERIFYRESULT, &verifyResult);
    std::string host = BVURL::URLWithString(s.currentURL).value_or(s.request.url).host();
    return errorForCurlCode(result, s.request.url.absoluteString(), certificateFault(verifyResult, host).c_str());
  }
  if (result == CURLE_UNSUPPORTED_PROTOCOL) {
    // After a connection was made, libcurl's "unsupported protocol" is a
    // status line it cannot read ("HTTP/1.1 2x0"): the server's fault, not
    // the address's.
    const char* ip = nullptr;
    curl_easy_getinfo(s.easy, CURLINFO_PRIMARY_IP, &ip);
    if (ip && *ip)
      return transferError(BVURLErrorBadServerResponse, result, s.request.url.absoluteString(),
                           "The server's reply could not be understood.");
  }
  if (result != CURLE_OK) return errorForCurlCode(result, s.request.url.absoluteString(), nullptr);
  if (!responseSeen_) {
    // A body-less reply that ended without a header block we recognised.
    responseSeen_ = true;
    BVURL responseURL = BVURL::URLWithString(s.currentURL).value_or(s.request.url);
    BVURLResponse response(responseURL, s.status, s.fields.empty() ? fileResponseFields(responseURL) : s.fields);
    if (sink.onResponse) sink.onResponse(response, false, std::nullopt);
  }
  return nullptr;
}

BVErrorRef errorForCurlCode(int curlCode, const std::string& url, const char* detail) {
  int code = BVURLErrorUnknown;
  const char* text = nullptr;
  switch (CURLcode(curlCode)) {
    case CURLE_COULDNT_CONNECT: code = BVURLErrorCannotConnectToHost; text = "Could not connect to the server."; break;
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
      code = BVURLErrorCannotFindHost; text = "A server with the specified hostname could not be found."; break;
    case CURLE_OPERATION_TIMEDOUT: code = BVURLErrorTimedOut; text = "The request timed out."; break;
    case CURLE_UNSUPPORTED_PROTOCOL: code = BVURLErrorUnsupportedURL; text = "The address uses a protocol that is not supported."; break;
    case CURLE_URL_MALFORMAT: code = BVURLErrorBadURL; text = "The address is not valid."; break;
    case CURLE_TOO_MANY_REDIRECTS: code = BVURLErrorHTTPTooManyRedirects; text = "The server redirected the request too many times."; break;
    case CURLE_RECV_ERROR:
    case CURLE_SEND_ERROR:
    case CURLE_PARTIAL_FILE:
    case CURLE_GOT_NOTHING:
      code = BVURLErrorNetworkConnectionLost; text = "The network connection was lost."; break;
    case CURLE_WEIRD_SERVER_REPLY:
      code = BVURLErrorBadServerResponse; text = "The server's reply could not be understood."; break;
    case CURLE_FILE_COULDNT_READ_FILE:
      code = BVURLErrorFileDoesNotExist; text = "The requested file does not exist."; break;
    case CURLE_FILESIZE_EXCEEDED:
      code = BVURLErrorDataLengthExceedsMaximum; text = "The resource exceeds the maximum size."; break;
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_CACERT_BADFILE:
      code = BVURLErrorSecureConnectionFailed; text = "A secure connection to the server could not be made."; break;
    default: text = curl_easy_strerror(CURLcode(curlCode)); break;
  }
  return transferError(code, curlCode, url, detail ? detail : text);
}

}  // namespace belvane::detail
