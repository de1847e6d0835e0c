// The box reader: user-data texts, iTunes items, keyed metadata, per-track
// items, and files whose sizes lie.
#include "box_bytes.h"
#include "movie/iso_box_reader.h"

#include <gtest/gtest.h>

using namespace belvane::detail;
using namespace belvane::test;

namespace {

constexpr uint16_t kEnglish = 0x15C7;  // packed "eng"

QTMetaDataContainer movieItems(const std::string& file) {
  QTMetaDataContainer container;
  appendIsoMovieItems(container, bytes(file));
  return container;
}

// "type:value" of every item, in order.
std::vector<std::string> summary(const QTMetaDataContainer& container) {
  std::vector<std::string> out;
  for (const auto& item : container.items) out.push_back(std::to_string(item.dataType) + ":" + item.key + "=" + item.value);
  return out;
}

}  // namespace

TEST(IsoBoxReader, UserDataEntriesDecodeByLanguageCode) {
  std::string udta = box("\xA9nam", textRecord("Caf\x8E", 0)) +  // Mac language code: Mac Roman
                     box("\xA9" "alb", textRecord("Blue", kEnglish) + textRecord("Bleu", 0x1A61)) +
                     box("\xA9" "cmt", textRecord(std::string("\xFE\xFF\x00H", 4), kEnglish)) +
                     box("\xA9" "day", u16(400) + u16(0) + "overrun") + box("hinf", "raw");
  EXPECT_EQ(summary(movieItems(movieFile(box("udta", udta + u32(0))))),
            (std::vector<std::string>{"3:\xA9nam=Caf\x8E", "1:\xA9" "alb=Blue", "1:\xA9" "alb=Bleu",
                                      "2:\xA9" "cmt=" + std::string("\x00H", 2), "0:\xA9" "day=" + u16(400) + u16(0) + "overrun",
                                      "0:hinf=raw"}));
}

TEST(IsoBoxReader, ITunesItemsShortAndLongForm) {
  std::string ilst = box("\xA9nam", dataBox(1, "Song")) + box("covr", dataBox(13, "jpeg") + dataBox(14, "png")) +
                     box("----", fullBox("mean", "com.apple.iTunes") + fullBox("name", "iTunSMPB") + dataBox(1, " 0 1")) +
                     box("----", dataBox(1, "nameless"));
  auto container = movieItems(movieFile(box("udta", fullBox("meta", hdlr("mdir") + box("ilst", ilst)))));
  EXPECT_EQ(summary(container), (std::vector<std::string>{"1:\xA9nam=Song", "13:covr=jpeg", "14:covr=png",
                                                          "1:com.apple.iTunes.iTunSMPB= 0 1"}));
  EXPECT_EQ(container.items[0].keyFormat, kQTMetaDataKeyFormatiTunesShortForm);
  EXPECT_EQ(container.items[3].keyFormat, kQTMetaDataKeyFormatiTunesLongForm);
}

TEST(IsoBoxReader, KeyedMetadataAndTracks) {
  std::string keys = fullBox("keys", u32(3) + box("mdta", "com.apple.quicktime.displayname") +
                                         box("mdta", "com.apple.quicktime.artist") + box("udta", "\xA9" "day"));
  std::string ilst = box(u32(1), dataBox(1, "Shown")) + box(u32(3), dataBox(22, "\x07")) +
                     box(u32(9), dataBox(1, "no such key")) + box(u32(0), dataBox(1, "zero"));
  // QuickTime's moov/meta carries no version and flags.
  std::string meta = box("meta", hdlr("mdta") + keys + box("ilst", ilst));
  // Tracks count sound first, then video; a hint track has no number.
  std::string video = box("trak", box("mdia", hdlr("vide")) + box("udta", box("\xA9nam", textRecord("Video", kEnglish))));
  std::string hint = box("trak", box("mdia", hdlr("hint")) + box("udta", box("\xA9nam", textRecord("Hint", kEnglish))));
  std::string sound = box("trak", box("mdia", hdlr("soun")) +
                                      fullBox("meta", hdlr("mdir") + box("ilst", box("\xA9nam", dataBox(1, "Sound")))));
  std::string file = movieFile(meta + video + hint + sound);

  auto movie = movieItems(file);
  EXPECT_EQ(summary(movie), (std::vector<std::string>{"1:com.apple.quicktime.displayname=Shown", "22:\xA9" "day=\x07"}));
  EXPECT_EQ(movie.items[0].keyFormat, kQTMetaDataKeyFormatQuickTime);
  EXPECT_EQ(movie.items[1].keyFormat, kQTMetaDataKeyFormatUserData);
  std::vector<std::string> titles;
  for (size_t index = 0; index < 3; ++index) {
    QTMetaDataContainer track;
    appendIsoTrackItems(track, bytes(file), index);
    titles.push_back(track.items.empty() ? "-" : track.items[0].value);
  }
  EXPECT_EQ(titles, (std::vector<std::string>{"Sound", "Video", "-"}));
}

TEST(IsoBoxReader, SizesAreNeverTrusted) {
  std::string entry = box("\xA9nam", textRecord("Title", kEnglish));
  std::vector<std::string> readable = {
      movieFile(u32(1) + "udta" + u32(0) + u32(uint32_t(entry.size() + 16)) + entry),  // 64-bit size
      box("ftyp", "qt  ") + u32(0) + "moov" + u32(0) + "udta" + entry,                  // size 0: to the end
      movieFile(box("udta", entry) + box("trak", std::string(5000, 'x'))).substr(0, 1100)};  // cut short
  for (const std::string& file : readable) EXPECT_EQ(movieItems(file).items.size(), 1u);

  // Headers smaller than their fields, sizes and counts far beyond the
  // bytes: nothing is read out of bounds.
  for (const std::string& bad :
       {movieFile(u32(4) + "udta" + entry), movieFile(u32(1) + "udta" + u32(0xFFFFFFFF) + u32(0xFFFFFFF0)),
        movieFile(u32(12) + "uuid" + "abcd"), movieFile(box("udta", box("\xA9nam", u16(0xFFFF)))),
        movieFile(box("meta", hdlr("mdta") + fullBox("keys", u32(0xFFFFFFFF) + u32(0xFFFFFFFF) + "mdta") +
                                   box("ilst", box(u32(1), dataBox(1, "x")))))})
    EXPECT_LE(movieItems(bad).items.size(), 1u);

  std::string many;
  for (size_t i = 0; i < kIsoMaxChildBoxes + 10; ++i) many += box("free", "");
  EXPECT_EQ(isoChildBoxes(bytes(many)).size(), kIsoMaxChildBoxes);
  std::string ilst;
  for (size_t i = 0; i < 300; ++i) ilst += box("\xA9nam", dataBox(1, "a") + dataBox(1, "b") + dataBox(1, "c") + dataBox(1, "d"));
  EXPECT_EQ(movieItems(movieFile(box("udta", fullBox("meta", hdlr("mdir") + box("ilst", ilst))))).items.size(), kIsoMaxItems);
}
