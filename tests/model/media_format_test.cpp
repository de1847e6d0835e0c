// BVMediaFormat: inference from URLs, normalisation, copying, the property
// list form (with its "urlScheme" quirk) and the lazy MIME-type query.
#include <belvane/BVMediaFormat.h>

#include "support/test_http_server.h"

#include <gtest/gtest.h>

using belvane::test::Response;
using belvane::test::TestHTTPServer;

namespace {

BVURL url(const std::string& s) { return *BVURL::URLWithString(s); }

}  // namespace

TEST(MediaFormat, InfersLowerCasedCluesFromTheURL) {
  auto format = BVMediaFormat::formatByInferringFromURL(url("HTTP://Example.COM/Radio/Stream.MP3?x=1"));
  EXPECT_EQ(format->urlScheme(), "http");
  EXPECT_EQ(format->fileExtension(), "mp3");
  EXPECT_EQ(format->engineID(), std::nullopt);
  EXPECT_EQ(format->sourceURL()->absoluteString(), "HTTP://Example.COM/Radio/Stream.MP3?x=1");

  auto bare = BVMediaFormat::formatByInferringFromURL(url("rtsp://host/live"));
  EXPECT_EQ(bare->urlScheme(), "rtsp");
  EXPECT_EQ(bare->fileExtension(), std::nullopt);
  auto relative = BVMediaFormat::formatByInferringFromURL(url("folder/song.Ogg"));
  EXPECT_EQ(relative->urlScheme(), std::nullopt);
  EXPECT_EQ(relative->fileExtension(), "ogg");

  // An explicit MIME type is lower-cased; an empty one leaves it unset.
  auto typed = BVMediaFormat::formatByInferringFromURL(url("file:///tmp/a.pls"), "Audio/X-SCPLS");
  EXPECT_EQ(typed->mimeType(), "audio/x-scpls");
  auto untyped = BVMediaFormat::formatByInferringFromURL(url("ftp://host/a.xyz"), "");
  EXPECT_EQ(untyped->mimeType(), std::nullopt);
}

TEST(MediaFormat, MutableSettersNormaliseLikeThePrivateOnes) {
  auto format = BVMediaMutableFormat::emptyFormat();
  format->setURLScheme("MMS");
  format->setFileExtension("");
  format->setEngineID("com.Example.Engine");
  format->setMimeType("Video/X-MS-ASF");
  format->setRadioTimeMediaType("");
  EXPECT_EQ(format->urlScheme(), "mms");
  EXPECT_EQ(format->fileExtension(), std::nullopt);
  EXPECT_EQ(format->engineID(), "com.Example.Engine");
  EXPECT_EQ(format->mimeType(), "video/x-ms-asf");
  EXPECT_EQ(format->radioTimeMediaType(), "");  // kept exactly, even empty
  format->setEngineID("");
  EXPECT_EQ(format->engineID(), std::nullopt);
  EXPECT_EQ(format->description(), "<BVMediaMutableFormat: video/x-ms-asf, '(null)', (null), mms>");
}

TEST(MediaFormat, ImmutableCopiesAreSharedAndMutableOnesAreNot) {
  auto format = BVMediaFormat::formatByInferringFromURL(url("file:///nowhere/a.mp3"), "audio/mpeg");
  EXPECT_EQ(format->copy(), format);

  auto copy = format->mutableCopy();
  EXPECT_NE(copy.get(), format.get());
  EXPECT_EQ(copy->className(), "BVMediaMutableFormat");
  EXPECT_EQ(copy->sourceURL(), std::nullopt);
  copy->setEngineID("other");
  EXPECT_EQ(format->engineID(), std::nullopt);

  auto frozen = copy->copy();
  EXPECT_NE(frozen.get(), copy.get());
  EXPECT_EQ(frozen->className(), "BVMediaFormat");
  EXPECT_EQ(frozen->description(), "<BVMediaFormat: audio/mpeg, 'other', mp3, file>");
  EXPECT_EQ(frozen->copy(), frozen);
}

TEST(MediaFormat, PropertyListKeepsTheURLSchemeAsWritten) {
  auto format = BVMediaMutableFormat::emptyFormat();
  EXPECT_TRUE(format->plistRepresentation().empty());
  format->setURLScheme("http");
  format->setFileExtension("mp3");
  format->setEngineID("Shoutcast");
  format->setMimeType("audio/mpeg");
  format->setRadioTimeMediaType("MP3");
  BVDictionary plist = format->plistRepresentation();
  EXPECT_EQ(plist, (BVDictionary{{"urlScheme", "http"},
                                 {"fileExtension", "mp3"},
                                 {"engineID", "Shoutcast"},
                                 {"mimeType", "audio/mpeg"},
                                 {"radioTimeMediaType", "MP3"}}));
  auto back = BVMediaFormat::createWithPlistRepresentation(plist);
  EXPECT_EQ(back->plistRepresentation(), plist);

  // Reading stores "urlScheme" as it stands but normalises the others;
  // unknown keys are ignored and values of the wrong kind stay unset.
  auto read = BVMediaFormat::createWithPlistRepresentation({{"urlScheme", "HTTP"},
                                                            {"fileExtension", "MP3"},
                                                            {"mimeType", "Audio/MPEG"},
                                                            {"engineID", ""},
                                                            {"radioTimeMediaType", 42},
                                                            {"color", "blue"}});
  EXPECT_EQ(read->urlScheme(), "HTTP");
  EXPECT_EQ(read->fileExtension(), "mp3");
  EXPECT_EQ(read->mimeType(), "audio/mpeg");
  EXPECT_EQ(read->engineID(), std::nullopt);
  EXPECT_EQ(read->radioTimeMediaType(), std::nullopt);
  EXPECT_EQ(read->sourceURL(), std::nullopt);
  EXPECT_EQ(read->plistRepresentation().at("urlScheme"), BVValue("HTTP"));
}

TEST(MediaFormat, LazyMIMETypeAsksOncePerReadUntilItHasAnAnswer) {
  TestHTTPServer server;
  server.route("/live", Response());  // no Content-Type yet
  auto format = BVMediaFormat::formatByInferringFromURL(url(server.url("/live")));

  EXPECT_EQ(format->mimeType(), std::nullopt);
  EXPECT_EQ(server.requestCount("/live"), 1);
  // The description shows the stored type and never asks.
  EXPECT_EQ(format->description(), "<BVMediaFormat: (null), '(null)', (null), http>");
  EXPECT_EQ(format->mimeType(), std::nullopt);
  EXPECT_EQ(server.requestCount("/live"), 2);

  server.route("/live", Response::ok("audio/mpeg"));
  EXPECT_EQ(format->mimeType(), "audio/mpeg");
  EXPECT_EQ(format->mimeType(), "audio/mpeg");
  EXPECT_EQ(format->plistRepresentation().at("mimeType"), BVValue("audio/mpeg"));
  EXPECT_EQ(server.requestCount("/live"), 3);

  // Writing a property list and copying read the type through the getter.
  server.route("/other", Response::ok("audio/aacp"));
  auto other = BVMediaMutableFormat::formatByInferringFromURL(url(server.url("/other")));
  EXPECT_EQ(other->plistRepresentation().at("mimeType"), BVValue("audio/aacp"));
  auto third = BVMediaMutableFormat::formatByInferringFromURL(url(server.url("/other")));
  EXPECT_EQ(third->copy()->mimeType(), "audio/aacp");
  EXPECT_EQ(server.requestCount("/other"), 2);

  // Setting an empty type on a format with a source URL keeps the query possible.
  third->setMimeType("");
  EXPECT_EQ(third->mimeType(), "audio/aacp");
  EXPECT_EQ(server.requestCount("/other"), 3);
}
