// FileTags through TagLib: an MPEG file's ID3v2 tag wins over its ID3v1 tag
// field by field (TagLib's tag union), and the length comes from the audio
// itself (the Xing/VBRI header, else the frames' bit rate).
#include "players/file_tags.h"

#include <belvane/BVConstants.h>

#include <taglib/audioproperties.h>
#include <taglib/fileref.h>
#include <taglib/tag.h>

namespace belvane::detail {

std::optional<FileTags> readFileTags(const std::string& path) {
  TagLib::FileRef file(path.c_str(), true, TagLib::AudioProperties::Accurate);
  if (file.isNull()) return std::nullopt;
  FileTags result;
  auto text = [&](const char* key, const TagLib::String& value) {
    std::string utf8 = value.stripWhiteSpace().to8Bit(true);
    if (!utf8.empty()) result.attributes[key] = BVValue(utf8);
  };
  if (const TagLib::Tag* tag = file.tag()) {
    text(BVPlayerAttributeTrackTitleKey, tag->title());
    text(BVPlayerAttributeArtistKey, tag->artist());
    text(BVPlayerAttributeAlbumKey, tag->album());
    text(BVPlayerAttributeGenreKey, tag->genre());
    text(BVPlayerAttributeCommentKey, tag->comment());
    if (tag->year() > 0) result.attributes[BVPlayerAttributeYearKey] = BVValue(std::to_string(tag->year()));
    if (tag->track() > 0) result.attributes[BVPlayerAttributeTrackNumberKey] = BVValue(int64_t(tag->track()));
  }
  if (const TagLib::AudioProperties* audio = file.audioProperties()) {
    result.sampleRate = audio->sampleRate();
    result.duration = audio->lengthInMilliseconds() / 1000.0;
    if (result.duration > 0) result.attributes[BVPlayerAttributeDurationKey] = BVValue(result.duration);
  }
  return result;
}

}  // namespace belvane::detail
