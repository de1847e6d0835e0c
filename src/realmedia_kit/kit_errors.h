// The client kit's error results: a small table of Helix-style result codes
// (0x8004xxxx, reported as signed decimals), each with a sentence a
// listener can read, and the rules that turn GStreamer, libcurl and HTTP or
// RTSP failures into one of them.
#pragma once

#include <cstdint>
#include <string>

typedef struct _GError GError;

namespace belvane::detail {

enum class KitResult : int32_t {
  GeneralFailure = int32_t(0x80040100u),     // -2147221248
  FileNotFound = int32_t(0x80040101u),       // -2147221247
  InvalidFile = int32_t(0x80040102u),        // -2147221246
  ConnectionRefused = int32_t(0x80040103u),  // -2147221245
  ServerUnreachable = int32_t(0x80040104u),  // -2147221244
  ServerError = int32_t(0x80040105u),        // -2147221243
  Timeout = int32_t(0x80040106u),            // -2147221242
};

// One failure as the kit reports it to its observer.
struct KitFailure {
  KitResult result = KitResult::GeneralFailure;
  std::string detail;  // the technical account (what failed, where)
  std::string url;     // the stream that failed

  std::string message() const;  // the listener's sentence for result
};

// "The file could not be found." and so on.
const char* kitResultMessage(KitResult result);
// "0x80040101"
std::string kitResultHex(KitResult result);

// A GStreamer error message (its GError and debug text) from playing url.
KitFailure kitFailureFromGstError(const GError* error, const std::string& debug, const std::string& url);
// A libcurl transfer result (CURLcode) with its error text and the
// system's errno for the failed connection (0 when none).
KitFailure kitFailureFromCurl(int curlCode, const std::string& text, int osErrno, const std::string& url);
// An HTTP or RTSP status that ended a request.
KitResult kitResultForStatus(long status);

}  // namespace belvane::detail
