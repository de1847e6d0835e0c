// The length of the long outages: $BELVANE_OUTAGE_SECONDS, else 3 minutes.
#pragma once

#include <cstdlib>

inline double outageSeconds() {
  const char* text = std::getenv("BELVANE_OUTAGE_SECONDS");
  return text ? std::atof(text) : 180.0;
}
