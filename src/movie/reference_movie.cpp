// Reading the URL out of a reference movie: our own template first (its
// marker sits at a fixed place and its length field is trusted, since writing
// the URL changes the file's length but not the sizes of the boxes around it),
// then QuickTime's moov > rmra > rmda > rdrf data reference of type 'url '.
#include "movie/reference_movie.h"

#include "movie/iso_box_reader.h"

#include <algorithm>
#include <cstring>

namespace belvane::detail {
namespace {

// The template's own box (moov > udta > bvrf): its type, then a 20-byte marker
// text, then the URL length that ends at the length offset.
constexpr size_t kMarkerBoxTypeOffset = 591;
constexpr char kMarkerBoxType[] = "bvrf";
constexpr size_t kMarkerOffset = 595;
constexpr char kMarker[] = "BelvaneReferenceURL";  // with its terminator: 20 bytes
static_assert(kMarkerOffset + sizeof(kMarker) == kReferenceTemplateLengthOffset);

// A URL longer than this is no URL a template holds.
constexpr uint32_t kMaxURLLength = 64 * 1024;

bool hasBytes(std::span<const uint8_t> bytes, size_t offset, const void* what, size_t n) {
  return offset <= bytes.size() && n <= bytes.size() - offset && std::memcmp(bytes.data() + offset, what, n) == 0;
}

bool isTemplate(std::span<const uint8_t> bytes) {
  return hasBytes(bytes, 4, "ftyp", 4) && hasBytes(bytes, kMarkerBoxTypeOffset, kMarkerBoxType, 4) &&
         hasBytes(bytes, kMarkerOffset, kMarker, sizeof(kMarker));
}

// Only the length field counts: the boxes around the URL keep the sizes of
// the template's placeholder.
std::optional<std::string> templateURL(std::span<const uint8_t> bytes) {
  if (bytes.size() < kReferenceTemplateURLOffset) return std::nullopt;
  uint32_t length = 0;
  if (!isoReadU32(bytes, kReferenceTemplateLengthOffset, &length)) return std::nullopt;
  if (length == 0 || length > kMaxURLLength || length > bytes.size() - kReferenceTemplateURLOffset) return std::nullopt;
  auto url = bytes.subspan(kReferenceTemplateURLOffset, length);
  if (std::find(url.begin(), url.end(), uint8_t(0)) != url.end()) return std::nullopt;
  return std::string(url.begin(), url.end());
}

std::optional<std::string> dataReferenceURL(std::span<const uint8_t> rdrf) {
  // version and flags, data reference type, data reference size, data.
  uint32_t type = 0, size = 0;
  if (!isoReadU32(rdrf, 4, &type) || !isoReadU32(rdrf, 8, &size)) return std::nullopt;
  if (type != QTFourCharCode("url ")) return std::nullopt;
  auto data = rdrf.subspan(12, std::min<size_t>(size, rdrf.size() - 12));
  auto end = std::find(data.begin(), data.end(), uint8_t(0));
  if (end == data.begin()) return std::nullopt;
  return std::string(data.begin(), end);
}

std::optional<std::string> quickTimeReferenceURL(std::span<const uint8_t> bytes) {
  auto rmra = isoFindPath(bytes, {QTFourCharCode("moov"), QTFourCharCode("rmra")});
  if (!rmra) return std::nullopt;
  // The first alternate with a URL data reference wins.
  for (const IsoBox& rmda : isoChildBoxes(rmra->payload)) {
    if (rmda.type != QTFourCharCode("rmda")) continue;
    auto rdrf = isoFindChild(rmda.payload, QTFourCharCode("rdrf"));
    if (!rdrf) continue;
    if (auto url = dataReferenceURL(rdrf->payload)) return url;
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string> referenceMovieURL(std::span<const uint8_t> bytes) {
  if (isTemplate(bytes)) return templateURL(bytes);
  return quickTimeReferenceURL(bytes);
}

}  // namespace belvane::detail
