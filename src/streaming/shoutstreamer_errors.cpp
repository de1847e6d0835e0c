// Error codes and their listener-readable texts.
#include "streaming/shoutstreamer_errors.h"

#include "streaming/shoutstreamer.h"

#include "foundation/mime_type.h"

#include <belvane/BVURLConnection.h>

#include <curl/curl.h>
#include <glib.h>

#include <cstdlib>
#include <cstring>
#include <string>

namespace belvane::detail {

int32_t shoutstreamerErrorForCurlCode(int curlCode) {
  switch (CURLcode(curlCode)) {
    case CURLE_OK: return 0;
    case CURLE_COULDNT_CONNECT: return SHOUTSTREAMER_ERROR_CONNECTION_REFUSED;
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY: return SHOUTSTREAMER_ERROR_HOST_NOT_FOUND;
    case CURLE_OPERATION_TIMEDOUT: return SHOUTSTREAMER_ERROR_TIMED_OUT;
    case CURLE_UNSUPPORTED_PROTOCOL:
    case CURLE_URL_MALFORMAT: return SHOUTSTREAMER_ERROR_BAD_URL;
    case CURLE_TOO_MANY_REDIRECTS:
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_BAD_CONTENT_ENCODING:
    case CURLE_HTTP2:
    case CURLE_HTTP2_STREAM: return SHOUTSTREAMER_ERROR_BAD_REPLY;
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_CACERT_BADFILE: return SHOUTSTREAMER_ERROR_SECURE_CONNECTION;
    case CURLE_FILE_COULDNT_READ_FILE: return SHOUTSTREAMER_ERROR_NOT_FOUND;
    case CURLE_RECV_ERROR:
    case CURLE_SEND_ERROR:
    case CURLE_PARTIAL_FILE:
    case CURLE_GOT_NOTHING: return SHOUTSTREAMER_ERROR_CONNECTION_LOST;
    default: return SHOUTSTREAMER_ERROR_INTERNAL;
  }
}

int32_t shoutstreamerErrorForStatus(int status) {
  if (status < 100 || status > 999) return SHOUTSTREAMER_ERROR_BAD_REPLY;
  return SHOUTSTREAMER_ERROR_HTTP_STATUS(status);
}

bool isAACContentType(std::string_view contentType) {
  // Blanks inside the type ("audio/ aac") are dropped too.
  std::string type = mimeTypeWithoutParameters(contentType);
  std::erase_if(type, [](char c) { return c == ' ' || c == '\t'; });
  return type == "audio/aac" || type == "audio/aacp" || type == "audio/x-aac" || type == "audio/x-aacp";
}

}  // namespace belvane::detail

namespace {

// The status of an 'Hnnn' code, or 0.
int statusOfCode(int32_t code) {
  auto u = uint32_t(code);
  char c[4] = {char(u >> 24), char(u >> 16), char(u >> 8), char(u)};
  if (c[0] != 'H') return 0;
  for (int i = 1; i < 4; ++i) {
    if (c[i] < '0' || c[i] > '9') return 0;
  }
  return (c[1] - '0') * 100 + (c[2] - '0') * 10 + (c[3] - '0');
}

std::string statusText(int status) {
  if (status == 404) return "The station's stream was not found on its server. The station may be off the air.";
  std::string phrase = BVLocalizedStringForHTTPStatusCode(status);
  std::string detail = phrase.empty() ? std::to_string(status) : std::to_string(status) + ", " + phrase;
  if (status == 401 || status == 403 || status == 407)
    return "The station's server refused access to the stream (error " + detail + ").";
  if (status >= 500 && status <= 599)
    return "The station's server is unavailable or full at the moment (error " + detail + "). Try again later.";
  if (status >= 300 && status <= 399)
    return "The station's server sent the stream somewhere it could not be followed (status " + detail + ").";
  return "The station's server could not deliver the stream (error " + detail + ").";
}

}  // namespace

std::string belvane::detail::shoutstreamerStatusDescription(int status) { return statusText(status); }

namespace {

const char* fixedText(int32_t code) {
  switch (code) {
    case SHOUTSTREAMER_ERROR_AAC: return "This station broadcasts in AAC format, which the MP3 player cannot play.";
    case SHOUTSTREAMER_ERROR_CONNECTION_REFUSED:
      return "Could not connect to the station's server. It may be down or not accepting listeners.";
    case SHOUTSTREAMER_ERROR_HOST_NOT_FOUND:
      return "The station's server could not be found. Check the address and your internet connection.";
    case SHOUTSTREAMER_ERROR_TIMED_OUT: return "The station stopped responding (the connection timed out).";
    case SHOUTSTREAMER_ERROR_NOT_MPEG: return "The station sent something that is not MP3 audio.";
    case SHOUTSTREAMER_ERROR_WEB_PAGE: return "The address serves a web page, not a station's stream.";
    case SHOUTSTREAMER_ERROR_LOST_SYNC: return "The station's audio is damaged and could no longer be decoded.";
    case SHOUTSTREAMER_ERROR_CONNECTION_LOST:
      return "The connection to the station was lost and could not be restored.";
    case SHOUTSTREAMER_ERROR_NO_AUDIO: return "The station's server closed the stream without sending any audio.";
    case SHOUTSTREAMER_ERROR_BAD_REPLY: return "The station's server sent a reply that could not be understood.";
    case SHOUTSTREAMER_ERROR_SECURE_CONNECTION: return "A secure connection to the station could not be made.";
    case SHOUTSTREAMER_ERROR_BAD_URL: return "The stream's address is not valid.";
    case SHOUTSTREAMER_ERROR_ALREADY_STARTED: return "This stream has already been started.";
    case SHOUTSTREAMER_ERROR_INTERNAL: return "The stream could not be played because of an internal error.";
    default: return nullptr;
  }
}

}  // namespace

extern "C" char* shoutstreamer_error_as_string(int32_t errorCode) {
  if (const char* text = fixedText(errorCode)) return strdup(text);
  if (int status = statusOfCode(errorCode)) return strdup(statusText(status).c_str());
  return nullptr;
}
