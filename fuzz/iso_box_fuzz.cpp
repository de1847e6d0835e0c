// Fuzzes the ISO box reader (movie and track items, the value conversions of
// the metadata reader) and the reference-movie reader.
#include "movie/iso_box_reader.h"
#include "movie/reference_movie.h"
#include "players/quicktime/QTMetaData.h"

#include <cstddef>
#include <cstdint>

using namespace belvane::detail;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::span<const uint8_t> bytes(data, size);
  (void)referenceMovieURL(bytes);
  auto container = std::make_shared<QTMetaDataContainer>();
  appendIsoMovieItems(*container, bytes);
  for (size_t track = 0; track < 3; ++track) appendIsoTrackItems(*container, bytes, track);
  QTMetaData reader(container, QTTime{1, 1, 0});
  (void)reader.title();
  (void)reader.artist();
  (void)reader.year();
  (void)reader.copyright();
  (void)reader.description();
  return 0;
}
