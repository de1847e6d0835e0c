// The duration of a movie file: a movie is opened on a private run loop of
// the calling thread and the caller waits until the duration is known, the
// movie failed, or the time-out passed.
#include <belvane/BVRunLoop.h>
#include <belvane/BVURLAdditions.h>

#include "movie/QTMovie.h"

namespace {
constexpr double kDurationTimeout = 10.0;
}

double bvMovieFileDuration(const BVURL& url) {
  using namespace belvane::detail;
  BVRunLoop::ThreadScope scope;
  auto movie = QTMovie::movieWithURL(url, nullptr);
  if (!movie) return -1.0;
  auto settled = [&] {
    int64_t state = movie->attributeForKey(QTMovieLoadStateAttribute).integerValue();
    return state == QTMovieLoadStateError || state >= QTMovieLoadStatePlayable;
  };
  scope.loop().runUntil(settled, kDurationTimeout);
  BVValue duration = movie->attributeForKey(QTMovieDurationAttribute);
  movie.reset();
  double seconds = 0;
  if (!duration.isNumber()) return -1.0;
  QTTime time{int64_t(duration.doubleValue() * kQTMovieTimeScale), kQTMovieTimeScale, 0};
  if (!QTGetTimeInterval(time, &seconds)) return -1.0;
  return seconds;
}
