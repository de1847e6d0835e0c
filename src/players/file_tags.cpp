// FileTags through TagLib: an MPEG file's ID3v2 tag wins over its ID3v1 tag
// field by field (TagLib's tag union), and the length comes from the audio
// itself (the Xing/VBRI header, else the frames' bit rate).
#include "players/file_tags.h"

#include <belvane/BVConstants.h>

#include <vector>

#include <taglib/attachedpictureframe.h>
#include <taglib/audioproperties.h>
#include <taglib/fileref.h>
#include <taglib/flacfile.h>
#include <taglib/flacpicture.h>
#include <taglib/id3v2tag.h>
#include <taglib/mp4coverart.h>
#include <taglib/mp4file.h>
#include <taglib/mpegfile.h>
#include <taglib/tag.h>
#include <taglib/vorbisfile.h>
#include <taglib/xiphcomment.h>

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

namespace {

// JPEG and PNG only: what every desktop shows.
std::optional<FileCover> coverOf(const TagLib::ByteVector& data) {
  std::string bytes(data.data(), data.size());
  if (bytes.rfind("\xFF\xD8\xFF", 0) == 0) return FileCover{std::move(bytes), "jpg"};
  if (bytes.rfind("\x89PNG", 0) == 0) return FileCover{std::move(bytes), "png"};
  return std::nullopt;
}

// The front cover of a list of pictures, else the first that is an image.
template <class List, class Type, class Data>
std::optional<FileCover> frontCover(const List& pictures, Type type, Data data) {
  std::optional<FileCover> first;
  for (const auto& picture : pictures) {
    auto cover = coverOf(data(picture));
    if (!cover) continue;
    if (type(picture)) return cover;
    if (!first) first = std::move(cover);
  }
  return first;
}

}  // namespace

std::optional<FileCover> readFileCover(const std::string& path) {
  TagLib::FileRef ref(path.c_str(), false);
  if (ref.isNull()) return std::nullopt;
  TagLib::File* file = ref.file();
  if (auto* mpeg = dynamic_cast<TagLib::MPEG::File*>(file)) {
    if (!mpeg->hasID3v2Tag()) return std::nullopt;
    std::vector<const TagLib::ID3v2::AttachedPictureFrame*> frames;
    for (auto* frame : mpeg->ID3v2Tag()->frameListMap()["APIC"])
      if (auto* picture = dynamic_cast<const TagLib::ID3v2::AttachedPictureFrame*>(frame)) frames.push_back(picture);
    return frontCover(
        frames, [](auto* f) { return f->type() == TagLib::ID3v2::AttachedPictureFrame::FrontCover; },
        [](auto* f) { return f->picture(); });
  }
  auto isFront = [](TagLib::FLAC::Picture* p) { return p->type() == TagLib::FLAC::Picture::FrontCover; };
  auto dataOf = [](TagLib::FLAC::Picture* p) { return p->data(); };
  if (auto* flac = dynamic_cast<TagLib::FLAC::File*>(file)) return frontCover(flac->pictureList(), isFront, dataOf);
  if (auto* vorbis = dynamic_cast<TagLib::Ogg::Vorbis::File*>(file))
    if (auto* comment = vorbis->tag()) return frontCover(comment->pictureList(), isFront, dataOf);
  if (auto* mp4 = dynamic_cast<TagLib::MP4::File*>(file)) {
    if (!mp4->tag() || !mp4->tag()->contains("covr")) return std::nullopt;
    return frontCover(
        mp4->tag()->item("covr").toCoverArtList(), [](const TagLib::MP4::CoverArt&) { return true; },
        [](const TagLib::MP4::CoverArt& art) { return art.data(); });
  }
  return std::nullopt;
}

}  // namespace belvane::detail
