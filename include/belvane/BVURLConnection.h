// BVURLConnection: HTTP(S) and file loading over libcurl.
//
// An asynchronous connection runs its transfer on a worker thread and
// delivers its delegate calls (redirect, response, data, finish, fail) on the
// run loop of the thread that started it. Redirects are followed. A request's
// time-out bounds the connection set-up and every silence of the server.
// Replies whose status line is not HTTP (a Shoutcast "ICY 200 OK") arrive as
// a response without status and their whole text, status line and header
// block included, as body bytes.
#pragma once

#include <belvane/BVExport.h>

#include <belvane/BVError.h>
#include <belvane/BVRequestSettings.h>
#include <belvane/BVRunLoop.h>
#include <belvane/BVURL.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

// Case-insensitive header names, as HTTP has them.
struct BV_EXPORT BVCaseInsensitiveLess {
  bool operator()(const std::string& a, const std::string& b) const;
};
using BVHTTPHeaderFields = std::map<std::string, std::string, BVCaseInsensitiveLess>;

struct BV_EXPORT BVURLRequest {
  BVURL url;
  std::string httpMethod = "GET";
  double timeoutInterval = 60.0;
  BVHTTPHeaderFields headerFields;
  // Caches are never used; the flag is kept for callers that state intent.
  bool ignoreCache = true;
  // Allow replies whose status line is not HTTP (Shoutcast); on by default.
  bool allowNonHTTPReplies = true;
  // The user agent, extra header fields and proxy of the player the request
  // is made for; null: the defaults (BVRequestSettings::defaultSettings()).
  BVRequestSettingsRef requestSettings;

  explicit BVURLRequest(BVURL u, double timeout = 60.0) : url(std::move(u)), timeoutInterval(timeout) {}
};

class BV_EXPORT BVURLResponse {
 public:
  BVURLResponse(BVURL url, int statusCode, BVHTTPHeaderFields fields);

  const BVURL& url() const { return url_; }
  // The HTTP status; 0 when the reply had no HTTP status line.
  int statusCode() const { return statusCode_; }
  // Header fields as the server sent them (later duplicates win). Lookups
  // through headerFields().find() ignore case; allHeaderFields() gives each
  // name in canonical form (each dash-separated word capitalised: a server's
  // "content-type" or "Content-type" is "Content-Type"), so an exact lookup
  // by the usual spelling finds it.
  const BVHTTPHeaderFields& headerFields() const { return fields_; }
  const std::map<std::string, std::string>& allHeaderFields() const { return rawFields_; }
  // The Content-Type without parameters, lower-cased; empty when none.
  std::string mimeType() const;
  long long expectedContentLength() const;  // -1 when unknown

 private:
  BVURL url_;
  int statusCode_;
  BVHTTPHeaderFields fields_;
  std::map<std::string, std::string> rawFields_;
};

class BVURLConnection;
using BVURLConnectionRef = std::shared_ptr<BVURLConnection>;

class BV_EXPORT BVURLConnectionDelegate {
 public:
  virtual ~BVURLConnectionDelegate() = default;
  virtual void connectionWillSendRequest(BVURLConnection&, const BVURLRequest&, const BVURLResponse*) {}
  virtual void connectionDidReceiveResponse(BVURLConnection&, const BVURLResponse&) {}
  virtual void connectionDidReceiveData(BVURLConnection&, std::span<const uint8_t>) {}
  virtual void connectionDidFinishLoading(BVURLConnection&) {}
  virtual void connectionDidFailWithError(BVURLConnection&, const BVErrorRef&) {}
};

class BV_EXPORT BVURLConnection : public std::enable_shared_from_this<BVURLConnection> {
 public:
  // Starts loading at once; delegate calls arrive on the calling thread's run
  // loop. The delegate is not owned; cancel() (or destroying the last
  // reference) guarantees that no further call reaches it. Thread: any
  // whose run loop runs. cancel() may come from any thread; on another
  // thread than the loop's, a delegate call already under way finishes.
  static BVURLConnectionRef start(const BVURLRequest& request, BVURLConnectionDelegate* delegate);
  ~BVURLConnection();

  void cancel();
  const BVURLRequest& originalRequest() const;

  // Loads the whole resource on the calling thread. Returns the body (empty
  // but present when the body was empty), or nothing with *error set.
  // Thread: any (it blocks; worker threads use it).
  static std::optional<std::vector<uint8_t>> sendSynchronousRequest(
      const BVURLRequest& request, std::shared_ptr<BVURLResponse>* response, BVErrorRef* error,
      size_t maxBodyBytes = SIZE_MAX);

  // The transfer and what it has queued for the delegate; opaque outside
  // the library.
  struct State;
  BVURLConnection(std::shared_ptr<State> state);

 private:
  std::shared_ptr<State> state_;
};

// Error domain and codes of connection failures (curl's own codes are kept
// under BVURLErrorCurlCodeKey in the user info).
extern const char* const BVURLErrorDomain;       // "NSURLErrorDomain"
extern const char* const BVURLErrorCurlCodeKey;  // "BVURLErrorCurlCode"
enum : int {
  BVURLErrorUnknown = -1,
  BVURLErrorCancelled = -999,
  BVURLErrorBadURL = -1000,
  BVURLErrorTimedOut = -1001,
  BVURLErrorUnsupportedURL = -1002,
  BVURLErrorCannotFindHost = -1003,
  BVURLErrorCannotConnectToHost = -1004,
  BVURLErrorNetworkConnectionLost = -1005,
  BVURLErrorHTTPTooManyRedirects = -1007,
  BVURLErrorResourceUnavailable = -1008,
  BVURLErrorBadServerResponse = -1011,
  BVURLErrorDataLengthExceedsMaximum = -1103,
  BVURLErrorFileDoesNotExist = -1100,
  BVURLErrorSecureConnectionFailed = -1200,
};

// The English phrase for an HTTP status, lower-case ("not found"); a class
// phrase ("client error") for unlisted codes of a known class, "" otherwise.
BV_EXPORT std::string BVLocalizedStringForHTTPStatusCode(int statusCode);
