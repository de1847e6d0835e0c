// The length of the long outages: $BELVANE_OUTAGE_SECONDS, else 3 minutes;
// and of the long pause of a live station: $BELVANE_PAUSE_SECONDS, else a
// minute.
#pragma once

#include <cstdlib>

inline double outageSeconds() {
  const char* text = std::getenv("BELVANE_OUTAGE_SECONDS");
  return text ? std::atof(text) : 180.0;
}

inline double pauseSeconds() {
  const char* text = std::getenv("BELVANE_PAUSE_SECONDS");
  return text ? std::atof(text) : 60.0;
}
