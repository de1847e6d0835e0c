// Reference movies: the shipped template written the way the QuickTime player
// writes it, and QuickTime's own rmra kind.
#include "box_bytes.h"
#include "movie/reference_movie.h"

#include <belvane/BVResources.h>

#include "support/gst_media_files.h"

#include <gtest/gtest.h>

using namespace belvane::detail;
using namespace belvane::test;

namespace {

std::string templateBytes() {
  auto path = BVResources::frameworkPathForResource("asx_template", "mov");
  if (!path) return {};
  return readWholeFile(*path);
}

// What the player does with a copy: the URL replaces the 40-byte field, and
// its length goes in front, big-endian.
std::string withURL(std::string movie, const std::string& url) {
  movie.replace(kReferenceTemplateURLOffset, kReferenceTemplateURLFieldSize, url);
  movie.replace(kReferenceTemplateLengthOffset, 4, u32(uint32_t(url.size())));
  return movie;
}

}  // namespace

TEST(ReferenceMovie, TemplateCopiesNameTheirURL) {
  std::string movie = templateBytes();
  ASSERT_GT(movie.size(), kReferenceTemplateURLOffset + kReferenceTemplateURLFieldSize) << "asx_template.mov missing";
  EXPECT_EQ(movie.substr(4, 8), "ftypqt  ");
  // The shipped file already names a placeholder, so it reads as it is.
  EXPECT_TRUE(referenceMovieURL(bytes(movie)).has_value());

  for (const std::string& url :
       {std::string("mms://a.example/x"), std::string("http://radio.example.org/live.asx"),
        "http://streams.example.net/" + std::string(300, 'p') + "/station.wax?listener=12345&q=%20"}) {
    std::string copy = withURL(movie, url);
    EXPECT_EQ(copy.size(), movie.size() - kReferenceTemplateURLFieldSize + url.size());
    EXPECT_EQ(referenceMovieURL(bytes(copy)), url);
  }

  // A length that runs past the end, or a cut file, is not followed.
  std::string copy = withURL(movie, "http://a.example/");
  copy.replace(kReferenceTemplateLengthOffset, 4, u32(5000));
  EXPECT_EQ(referenceMovieURL(bytes(copy)), std::nullopt);
  EXPECT_EQ(referenceMovieURL(bytes(movie).first(700)), std::nullopt);
}

TEST(ReferenceMovie, QuickTimeReferenceMoviesAreFollowed) {
  auto rdrf = [](const std::string& type, const std::string& data) {
    return fullBox("rdrf", type + u32(uint32_t(data.size())) + data);
  };
  std::string alias = box("rmda", rdrf("alis", std::string(20, 'a')));
  std::string url = box("rmda", box("rmdr", u32(0) + u32(28000)) + rdrf("url ", std::string("http://h.example/a.mp4\0", 23)));
  std::string second = box("rmda", rdrf("url ", "http://h.example/b.mp4"));
  std::string movie = box("ftyp", "qt  " + u32(0x200) + "qt  ") + box("moov", box("rmra", alias + url + second));
  EXPECT_EQ(referenceMovieURL(bytes(movie)), "http://h.example/a.mp4");

  // No reference at all, an empty URL, and bytes that are no movie.
  std::string plain = movieFile(box("mvhd", std::string(100, '\0')));
  std::string emptyURL = movieFile(box("rmra", box("rmda", rdrf("url ", std::string(1, '\0')))));
  EXPECT_EQ(referenceMovieURL(bytes(plain)), std::nullopt);
  EXPECT_EQ(referenceMovieURL(bytes(emptyURL)), std::nullopt);
  EXPECT_EQ(referenceMovieURL(bytes(std::string("#EXTM3U\nhttp://x.example/\n"))), std::nullopt);
}
