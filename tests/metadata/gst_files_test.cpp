// Files written by GStreamer's own muxers (mp4mux, qtmux) with tags, read
// from disk through the box reader. The muxers put stream tags into the
// track's udta/meta/ilst and leave the movie's own ilst empty.
#include "movie/iso_box_reader.h"
#include "players/quicktime/QTMetaData.h"
#include "support/gst_media_files.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

using namespace belvane::detail;
using namespace belvane::test;

TEST(MuxedFiles, TagsReadAsITunesItemsOfTheTrack) {
  TempDir dir;
  for (MediaKind kind : {MediaKind::M4A, MediaKind::QuickTime}) {
    std::string path = writeMediaFile(dir.path() + "/tagged." + mediaKindExtension(kind), kind, 0.5,
                                      {{"title", "Morning Tone"}, {"album", "Sine Works"}, {"genre", "Ambient"},
                                       {"comment", "made by a test"}, {"copyright", "(c) 2024 Us"}});
    ASSERT_FALSE(path.empty());
    auto metaData = QTMakeMetaData(path, 0, nullptr);
    ASSERT_TRUE(metaData);
    const QTMetaDataItem* title = metaData->firstItem(kQTMetaDataKeyFormatiTunesShortForm, "\xA9nam");
    ASSERT_NE(title, nullptr);
    EXPECT_EQ(title->dataType, kQTMetaDataTypeUTF8);

    QTMetaData reader(metaData, QTTime{1, 2, 0});
    EXPECT_EQ(reader.title(), BVValue("Morning Tone"));
    // Without a common artist, the iTunes album is asked before the artist.
    EXPECT_EQ(reader.artist(), BVValue("Sine Works"));
    EXPECT_EQ(reader.genre(), BVValue("Ambient"));
    EXPECT_EQ(reader.comment(), BVValue("made by a test"));
    EXPECT_EQ(reader.copyright(), BVValue("(c) 2024 Us"));
    EXPECT_EQ(QTMakeMetaData(path, std::nullopt, nullptr), nullptr);
    EXPECT_EQ(QTMakeMetaData(path, 1, nullptr), nullptr);
  }
  // A file that is no movie, and a missing one, give nothing.
  std::string mp3 = writeMediaFile(dir.path() + "/tone.mp3", MediaKind::MP3, 0.2, {{"title", "x"}});
  EXPECT_FALSE(isoReadMovieBox(mp3).has_value());
  EXPECT_EQ(QTMakeMetaData(dir.path() + "/missing.m4a", std::nullopt, nullptr), nullptr);
}
