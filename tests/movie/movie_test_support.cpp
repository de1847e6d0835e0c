#include "movie_test_support.h"

#include <algorithm>
#include <cstdlib>

namespace belvane::test {
namespace {
// Tests never need a sound card.
const bool kSilentOutput = (setenv("BELVANE_AUDIO_OUTPUT", "null", 1), true);
}  // namespace

using namespace belvane::detail;

void MovieEvents::watch(QTMovie& movie) {
  (void)kSilentOutput;
  movie.addObserver(this, QTMovieLoadStateDidChangeNotification, [this](const QTNotification& n) {
    loadStates.push_back(n.object->attributeForKey(QTMovieLoadStateAttribute).integerValue());
  });
  movie.addObserver(this, QTMovieRateDidChangeNotification, [this](const QTNotification& n) {
    rates.push_back(n.rate.value_or(-1.0));
  });
  movie.addObserver(this, QTMovieDidEndNotification, [this](const QTNotification&) { ++ends; });
  movie.addObserver(this, QTMovieTimeDidChangeNotification, [this](const QTNotification&) { ++timeChanges; });
  movie.addObserver(this, QTMovieMetaDataDidChangeNotification, [this](const QTNotification&) { ++metadataChanges; });
}

bool MovieEvents::sawRate(double rate) const { return std::find(rates.begin(), rates.end(), rate) != rates.end(); }

bool runUntil(const std::function<bool()>& condition, double timeout) {
  return BVRunLoop::current().runUntil(condition, timeout);
}

int64_t loadState(const QTMovie& movie) { return movie.attributeForKey(QTMovieLoadStateAttribute).integerValue(); }

double seconds(QTTime time) {
  double value = -1;
  return QTGetTimeInterval(time, &value) ? value : -1;
}

}  // namespace belvane::test
