// Metadata containers of movies and tracks: the file's native atoms read by
// the box reader, then "comn" items from the GStreamer tags.
#include "movie/QTMetaDataContainer.h"

#include "movie/QTMovie.h"
#include "movie/iso_box_reader.h"

#include <gst/gst.h>
#include <sys/stat.h>

#include <mutex>

namespace belvane::detail {
namespace {

// The players ask for the metadata of the same file every second or so, once
// for the movie and once per track: the last file's moov is kept while the
// file's size and modification time stay the same.
std::shared_ptr<const std::vector<uint8_t>> movieBoxOfFile(const std::string& path) {
  struct stat info {};
  if (stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) return nullptr;
  static std::mutex lock;
  static std::string cachedPath;
  static struct timespec cachedTime {};
  static off_t cachedSize = -1;
  static std::shared_ptr<const std::vector<uint8_t>> cachedBox;
  std::lock_guard guard(lock);
  if (path == cachedPath && info.st_size == cachedSize && info.st_mtim.tv_sec == cachedTime.tv_sec &&
      info.st_mtim.tv_nsec == cachedTime.tv_nsec)
    return cachedBox;
  auto box = isoReadMovieBox(path);
  cachedPath = path;
  cachedTime = info.st_mtim;
  cachedSize = info.st_size;
  cachedBox = box ? std::make_shared<const std::vector<uint8_t>>(std::move(*box)) : nullptr;
  return cachedBox;
}

struct TagListDeleter {
  void operator()(GstTagList* tags) const { gst_tag_list_unref(tags); }
};
using TagListPtr = std::unique_ptr<GstTagList, TagListDeleter>;

}  // namespace

const QTMetaDataItem* QTMetaDataContainer::firstItem(uint32_t keyFormat, std::string_view key) const {
  for (const QTMetaDataItem& item : items) {
    if (item.keyFormat == keyFormat && item.key == key) return &item;
  }
  return nullptr;
}

QTMetaDataRef QTMakeMetaData(const std::optional<std::string>& filePath, std::optional<size_t> trackIndex,
                             const GstTagList* tags) {
  auto container = std::make_shared<QTMetaDataContainer>();
  if (filePath) {
    if (auto moov = movieBoxOfFile(*filePath)) {
      if (trackIndex) appendIsoTrackItems(*container, *moov, *trackIndex);
      else appendIsoMovieItems(*container, *moov);
    }
  }
  appendCommonItemsFromTags(*container, tags);
  if (container->items.empty()) return nullptr;
  return container;
}

QTMetaDataRef QTCopyMovieMetaData(const QTMovie& movie) {
  TagListPtr tags(movie.copyTags());
  return QTMakeMetaData(movie.filePath(), std::nullopt, tags.get());
}

QTMetaDataRef QTCopyTrackMetaData(const QTTrack& track) {
  if (!track.movie) return nullptr;
  TagListPtr tags(track.movie->copyTrackTags(track.index));
  return QTMakeMetaData(track.movie->filePath(), track.index, tags.get());
}

}  // namespace belvane::detail
