// Helpers for the movie tests: a recorder of a movie's notifications and a
// wait that runs the test thread's run loop.
#pragma once

#include <belvane/BVRunLoop.h>

#include <functional>
#include <string>
#include <vector>

#include "movie/QTMovie.h"

namespace belvane::test {

using belvane::detail::QTMovie;

struct MovieEvents {
  std::vector<int64_t> loadStates;
  std::vector<double> rates;
  int ends = 0;
  int timeChanges = 0;
  int metadataChanges = 0;

  void watch(QTMovie& movie);
  int64_t lastLoadState() const { return loadStates.empty() ? 0 : loadStates.back(); }
  bool sawRate(double rate) const;
};

// Runs the current run loop until condition holds or the timeout passes.
bool runUntil(const std::function<bool()>& condition, double timeout = 30);

int64_t loadState(const QTMovie& movie);
double seconds(belvane::detail::QTTime time);

}  // namespace belvane::test
