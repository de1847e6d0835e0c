// BVURL: parsing as written, refusal, components and resolution.
#include <belvane/BVError.h>
#include <belvane/BVKitOwner.h>
#include <belvane/BVURL.h>

#include "foundation/url_redaction.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

TEST(URL, KeepsTheStringAsWrittenAndReadsItsParts) {
  auto url = BVURL::URLWithString("HTTP://Radio.Example:8000/Live/Stream.MP3?x=1#frag");
  ASSERT_TRUE(url);
  EXPECT_EQ(url->absoluteString(), "HTTP://Radio.Example:8000/Live/Stream.MP3?x=1#frag");
  EXPECT_EQ(url->scheme(), "HTTP");
  EXPECT_EQ(url->resourceSpecifier(), "//Radio.Example:8000/Live/Stream.MP3?x=1#frag");
  EXPECT_EQ(url->host(), "Radio.Example");
  EXPECT_EQ(url->port(), 8000);
  EXPECT_EQ(url->path(), "/Live/Stream.MP3");
  EXPECT_EQ(url->pathExtension(), "MP3");
  EXPECT_EQ(url->query(), "x=1");
}

TEST(URL, RefusesWhatIsNoURL) {
  for (const char* bad : {"http://host/a b", "http://host/%zz", "http://host:99999/", "http://h/\"q\"",
                          "http://h/a#b#c", "http://h/\xc3\xa9"}) {
    EXPECT_FALSE(BVURL::URLWithString(bad)) << bad;
  }
  for (const char* good : {"http://", "a.pls", "/abs/path", "file:/foo", "icy://x.y/", "mailto:x@y", "//host/p"}) {
    EXPECT_TRUE(BVURL::URLWithString(good)) << good;
  }
}

TEST(URL, PathExtensionAndFileURLs) {
  EXPECT_EQ(BVURL::URLWithString("http://h/dir.d/file")->pathExtension(), "");
  EXPECT_EQ(BVURL::URLWithString("http://h/a.tar.gz")->pathExtension(), "gz");
  EXPECT_EQ(BVURL::URLWithString("http://h/a%2Epls")->pathExtension(), "pls");
  EXPECT_EQ(BVURL::URLWithString("http://h")->path(), "");

  BVURL file = BVURL::fileURLWithPath("/tmp/My Music/song.ogg");
  EXPECT_EQ(file.absoluteString(), "file:///tmp/My%20Music/song.ogg");
  EXPECT_TRUE(file.isFileURL());
  EXPECT_EQ(file.fileSystemPath(), "/tmp/My Music/song.ogg");
  EXPECT_EQ(file.pathExtension(), "ogg");
}

TEST(URL, ResolvesRelativeReferences) {
  auto base = *BVURL::URLWithString("http://h/dir/list.pls");
  EXPECT_EQ(BVURL::URLWithStringRelativeTo("a.pls", base)->absoluteString(), "http://h/dir/a.pls");
  EXPECT_EQ(BVURL::URLWithStringRelativeTo("../x.mp3?q", base)->absoluteString(), "http://h/x.mp3?q");
  EXPECT_EQ(BVURL::URLWithStringRelativeTo("http://other/y", base)->absoluteString(), "http://other/y");
  EXPECT_FALSE(BVURL::URLWithStringRelativeTo("a b", base));
}

TEST(URL, PasswordsAreTakenOutOfEveryTextShownOrLogged) {
  using belvane::detail::withoutURLPasswords;
  EXPECT_EQ(withoutURLPasswords("Failed: http://ann:s3cr:et@radio.example:8000/live?x=1 and "
                                "mms://bob:pw@h/a, \"rtsp://c:d@e\""),
            "Failed: http://ann@radio.example:8000/live?x=1 and mms://bob@h/a, \"rtsp://c@e\"");
  EXPECT_EQ(withoutURLPasswords("http://user@host/x:y@z http://host/a:b@c no URL: a:b@c"),
            "http://user@host/x:y@z http://host/a:b@c no URL: a:b@c");

  belvane::test::LogCapture log;
  BVLog("Exception in %s", "http://ann:secret@h/");
  EXPECT_TRUE(log.contains("Exception in http://ann@h/"));
  auto error = BVError::create("X", 1, {{BVLocalizedDescriptionKey, BVValue("at http://ann:secret@h/")},
                                        {"NSErrorFailingURLStringKey", BVValue("http://ann:secret@h/")}});
  EXPECT_EQ(error->description().find("secret"), std::string::npos);
  EXPECT_EQ(error->localizedDescription(), "at http://ann@h/");
}
