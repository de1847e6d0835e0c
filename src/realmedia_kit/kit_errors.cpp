// Kit result codes, their sentences, and the mapping of GStreamer, libcurl
// and protocol-status failures onto them.
#include "kit_errors.h"

#include <curl/curl.h>
#include <gst/gst.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace belvane::detail {

namespace {

bool contains(const std::string& haystack, const char* needle) {
  std::string lower = haystack;
  std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return char(std::tolower(c)); });
  return lower.find(needle) != std::string::npos;
}

bool isLocal(const std::string& url) { return url.rfind("file:", 0) == 0 || url.rfind("/", 0) == 0; }

// The last "(NNN)" in a text, as RTSP and HTTP sources quote a server's
// status: "Session Not Found (454)". 0 when there is none.
long quotedStatus(const std::string& text) {
  long status = 0;
  for (size_t i = 0; i + 4 < text.size(); ++i) {
    if (text[i] != '(' || text[i + 4] != ')') continue;
    if (!std::isdigit((unsigned char)text[i + 1]) || !std::isdigit((unsigned char)text[i + 2]) ||
        !std::isdigit((unsigned char)text[i + 3]))
      continue;
    long value = std::strtol(text.c_str() + i + 1, nullptr, 10);
    if (value >= 300 && value < 600) status = value;
  }
  return status;
}

// What a resource failure's technical text says happened, if it says.
bool resultFromText(const std::string& text, KitResult* result) {
  if (long status = quotedStatus(text)) {
    *result = kitResultForStatus(status);
    return true;
  }
  if (contains(text, "refused") || contains(text, "end-of-file") || contains(text, "end of file")) {
    *result = KitResult::ConnectionRefused;
  } else if (contains(text, "timed out") || contains(text, "timeout")) {
    *result = KitResult::Timeout;
  } else if (contains(text, "resolve") || contains(text, "not known") || contains(text, "unreachable") ||
             contains(text, "no route") || contains(text, "failed to connect") || contains(text, "could not connect")) {
    *result = KitResult::ServerUnreachable;
  } else if (contains(text, "not found") || contains(text, "no such file")) {
    *result = KitResult::FileNotFound;
  } else {
    return false;
  }
  return true;
}

}  // namespace

const char* kitResultMessage(KitResult result) {
  switch (result) {
    case KitResult::FileNotFound:
      return "The file could not be found.";
    case KitResult::InvalidFile:
      return "The file is damaged or is not in a format that can be played.";
    case KitResult::ConnectionRefused:
      return "The server refused the connection.";
    case KitResult::ServerUnreachable:
      return "The server could not be reached.";
    case KitResult::ServerError:
      return "The server reported an error.";
    case KitResult::Timeout:
      return "The server did not answer in time.";
    case KitResult::GeneralFailure:
      break;
  }
  return "The stream could not be played.";
}

std::string KitFailure::message() const { return kitResultMessage(result); }

std::string kitResultHex(KitResult result) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08X", unsigned(int32_t(result)));
  return text;
}

KitResult kitResultForStatus(long status) {
  if (status == 404 || status == 410) return KitResult::FileNotFound;
  if (status == 408 || status == 504) return KitResult::Timeout;
  if (status >= 500) return KitResult::ServerError;
  if (status >= 400) return KitResult::ConnectionRefused;
  return KitResult::ServerError;
}

KitFailure kitFailureFromGstError(const GError* error, const std::string& debug, const std::string& url) {
  KitFailure failure;
  failure.url = url;
  failure.detail = error && error->message ? error->message : "unknown failure";
  if (!debug.empty()) failure.detail += " (" + debug + ")";

  if (!error) return failure;
  if (error->domain == GST_RESOURCE_ERROR) {
    const bool local = isLocal(url);
    if (error->code == GST_RESOURCE_ERROR_NOT_FOUND) {
      failure.result = KitResult::FileNotFound;
    } else if (error->code == GST_RESOURCE_ERROR_NOT_AUTHORIZED) {
      failure.result = local ? KitResult::GeneralFailure : KitResult::ConnectionRefused;
    } else if (!local && resultFromText(debug + " " + error->message, &failure.result)) {
      // The source's own account names the cause.
    } else {
      failure.result = local ? KitResult::GeneralFailure : KitResult::ServerError;
    }
  } else if (error->domain == GST_STREAM_ERROR) {
    failure.result = KitResult::InvalidFile;
  } else if (error->domain == GST_CORE_ERROR && error->code == GST_CORE_ERROR_MISSING_PLUGIN) {
    failure.result = KitResult::InvalidFile;
  }
  return failure;
}

KitFailure kitFailureFromCurl(int curlCode, const std::string& text, int osErrno, const std::string& url) {
  KitFailure failure;
  failure.url = url;
  failure.detail = text.empty() ? curl_easy_strerror(CURLcode(curlCode)) : text;
  switch (curlCode) {
    case CURLE_COULDNT_CONNECT:
      failure.result = osErrno == ECONNREFUSED || contains(text, "refused") ? KitResult::ConnectionRefused
                                                                             : KitResult::ServerUnreachable;
      break;
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
      failure.result = KitResult::ServerUnreachable;
      break;
    case CURLE_OPERATION_TIMEDOUT:
      failure.result = KitResult::Timeout;
      break;
    case CURLE_FILE_COULDNT_READ_FILE:
      failure.result = KitResult::FileNotFound;
      break;
    case CURLE_GOT_NOTHING:
    case CURLE_RECV_ERROR:
    case CURLE_SEND_ERROR:
    case CURLE_WEIRD_SERVER_REPLY:
      failure.result = KitResult::ServerError;
      break;
    default:
      failure.result = KitResult::GeneralFailure;
      break;
  }
  return failure;
}

}  // namespace belvane::detail
