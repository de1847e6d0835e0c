// bv_error_is_retryable: which of the errors of BVErrorCodes.h are passing
// conditions.
#include <belvane/BVErrorCodes.h>

#include <cstring>

namespace {

bool retryableHTTPStatus(int64_t status) { return status >= 500 || status == 408 || status == 429; }

bool equals(const char* a, const char* b) { return std::strcmp(a, b) == 0; }

}  // namespace

extern "C" int bv_error_is_retryable(const char* domain, int64_t code) {
  if (!domain) return 0;
  if (equals(domain, BV_ERROR_DOMAIN_SHOUTSTREAMER)) {
    auto c = int32_t(code);
    if ((uint32_t(c) >> 24) == 'H') {
      int status = 0;
      for (int shift = 16; shift >= 0; shift -= 8) status = status * 10 + int((uint32_t(c) >> shift) & 0xFF) - '0';
      return retryableHTTPStatus(status);
    }
    return c == BV_SHOUTSTREAMER_CONNECTION_REFUSED || c == BV_SHOUTSTREAMER_HOST_NOT_FOUND ||
           c == BV_SHOUTSTREAMER_TIMED_OUT || c == BV_SHOUTSTREAMER_LOST_SYNC ||
           c == BV_SHOUTSTREAMER_CONNECTION_LOST || c == BV_SHOUTSTREAMER_NO_AUDIO;
  }
  if (equals(domain, BV_ERROR_DOMAIN_STREAM_TUNER)) return code == BV_STREAM_TUNER_TIMED_OUT;
  if (equals(domain, BV_ERROR_DOMAIN_HTTP)) return retryableHTTPStatus(code);
  if (equals(domain, BV_ERROR_DOMAIN_OS_STATUS)) {
    if (code >= 300 && code <= 599) return retryableHTTPStatus(code);
    return code == BV_OS_STATUS_IO_ERROR || code == BV_OS_STATUS_CANNOT_REACH_STREAM;
  }
  if (equals(domain, BV_ERROR_DOMAIN_URL))
    return code == BV_URL_ERROR_TIMED_OUT || code == BV_URL_ERROR_CANNOT_FIND_HOST ||
           code == BV_URL_ERROR_CANNOT_CONNECT_TO_HOST || code == BV_URL_ERROR_CONNECTION_LOST ||
           code == BV_URL_ERROR_RESOURCE_UNAVAILABLE;
  if (equals(domain, BV_ERROR_DOMAIN_WEB_PLAYLIST)) return code == BV_WEB_PLAYLIST_HTTP_STATUS;
  if (equals(domain, BV_ERROR_DOMAIN_HELIX))
    return code == BV_HELIX_CONNECTION_REFUSED || code == BV_HELIX_SERVER_UNREACHABLE ||
           code == BV_HELIX_SERVER_ERROR || code == BV_HELIX_TIMEOUT;
  if (equals(domain, BV_ERROR_DOMAIN_BELVANE))
    return code == BV_BELVANE_OUTPUT_SOUND_SERVER || code == BV_BELVANE_OUTPUT_SOUND_CARD;
  return 0;
}
