// The account of a reconnection that failed (see reconnect_wording.h).
#include "players/reconnect_wording.h"

#include "streaming/stream_reader.h"

#include <cmath>
#include <string>

namespace belvane::detail {

namespace {

std::string spanOfTime(double seconds) {
  long whole = std::lround(seconds);
  if (whole >= 120 && whole % 60 == 0) return std::to_string(whole / 60) + " minutes";
  if (whole >= 120) return std::to_string(whole / 60) + " minutes " + std::to_string(whole % 60) + " seconds";
  return std::to_string(whole) + (whole == 1 ? " second" : " seconds");
}

}  // namespace

BVErrorRef withReconnectionAccount(const BVErrorRef& error, double patience) {
  if (!error || BVDictionaryString(error->userInfo(), BVLocalizedFailureReasonErrorKey)) return error;
  BVDictionary info = error->hasUserInfo() ? error->userInfo() : BVDictionary{};
  info[BVLocalizedFailureReasonErrorKey] =
      BVValue("The station stopped while playing, and it could not be reached again in " +
              spanOfTime(reconnectWindowForPatience(patience)) + " of trying.");
  return BVError::create(error->domain(), error->code(), std::move(info));
}

}  // namespace belvane::detail
