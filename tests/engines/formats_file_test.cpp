// Formats files: reading the layout, finding the file, matching order.
#include <belvane/BVMediaFormat.h>
#include <belvane/BVMediaFormatsFile.h>
#include <belvane/BVPropertyList.h>
#include <belvane/BVResources.h>

#include "support/temp_dir.h"
#include "support/test_http_server.h"

#include <gtest/gtest.h>


using belvane::test::Response;
using belvane::test::TempDir;
using belvane::test::TestHTTPServer;

namespace {

const char* const kTestFormats = R"(<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0"><dict>
  <key>WebPluginDescriptions</key>
  <dict><key>formatName</key><string>Test Audio</string><key>brandingName</key><string>Tester</string></dict>
  <key>WebPluginMIMETypes</key>
  <dict>
    <key>audio/x-test</key><dict><key>WebPluginExtensions</key><array><string>tst</string><string>tsx</string></array></dict>
    <key>audio/x-other</key><dict><key>WebPluginExtensions</key><array><string>oth</string><string>tst</string></array></dict>
    <key>audio/x-bare</key><dict/>
  </dict>
  <key>WebPluginRadioTimeMediaTypes</key><array><string>test</string></array>
</dict></plist>)";

std::shared_ptr<BVMediaMutableFormat> formatFor(const std::string& url) {
  return BVMediaMutableFormat::formatByInferringFromURL(*BVURL::URLWithString(url));
}

}  // namespace

TEST(FormatsFile, ReadsTheLayoutAndTreatsMissingEntriesAsEmpty) {
  TempDir dir;
  auto file = BVMediaFormatsFile::create(dir.write("Formats-Test.plist", kTestFormats));
  ASSERT_TRUE(file);
  EXPECT_EQ(file->displayableFormatName(), "Test Audio");
  EXPECT_EQ(file->displayableBrandingName(), "Tester");
  EXPECT_EQ(file->allMIMETypes(), (std::vector<std::string>{"audio/x-bare", "audio/x-other", "audio/x-test"}));
  // Extensions of every MIME entry in MIME order, duplicates kept.
  EXPECT_EQ(file->allFileExtensions(), (std::vector<std::string>{"oth", "tst", "tst", "tsx"}));
  EXPECT_EQ(file->fileExtensionsForMIMEType("audio/x-test"), (std::vector<std::string>{"tst", "tsx"}));
  EXPECT_FALSE(file->fileExtensionsForMIMEType("audio/x-bare"));
  EXPECT_FALSE(file->fileExtensionsForMIMEType("audio/X-TEST"));
  EXPECT_TRUE(file->allURLSchemes().empty());
  EXPECT_EQ(file->allRadioTimeMediaTypes(), (std::vector<std::string>{"test"}));

  // No scheme list: no scheme matches, extensions still do.
  auto format = BVMediaMutableFormat::emptyFormat();
  format->setURLScheme("http");
  EXPECT_FALSE(file->matchesForFormat(*format));
  format->setFileExtension("TSX");
  EXPECT_TRUE(file->matchesForFormat(*format));

  EXPECT_FALSE(BVMediaFormatsFile::create(dir.write("array.plist", "<plist><array/></plist>")));
  EXPECT_FALSE(BVMediaFormatsFile::create(dir.write("junk.plist", "not a property list")));
  EXPECT_FALSE(BVMediaFormatsFile::create(dir.path() + "/missing.plist"));
}

TEST(FormatsFile, IsFoundInTheFrameworkThenInTheHostFolder) {
  TempDir host;
  host.write("Formats-HostOnly.plist", kTestFormats);
  BVResources::setMainBundleDirectory(host.path());
  EXPECT_TRUE(BVMediaFormatsFile::formatsFileNamed("Formats-HostOnly"));
  EXPECT_TRUE(BVMediaFormatsFile::formatsFileNamed("Formats-Helix"));
  EXPECT_FALSE(BVMediaFormatsFile::formatsFileNamed("Formats-Nowhere"));
  BVResources::setMainBundleDirectory("");
  EXPECT_FALSE(BVMediaFormatsFile::formatsFileNamed("Formats-HostOnly"));
}

// The cheap clues come first; the MIME type (which asks the server) only
// when none of them matched.
TEST(FormatsFile, MatchesCheapCluesWithoutAskingTheServer) {
  TempDir dir;
  auto file = BVMediaFormatsFile::create(dir.write("Formats-Test.plist", kTestFormats));
  ASSERT_TRUE(file);
  TestHTTPServer server;
  server.route("/song.tst", Response::ok("audio/x-unlisted"));
  server.route("/station", Response::ok("audio/x-test"));
  server.route("/elsewhere", Response::ok("text/html"));

  EXPECT_TRUE(file->matchesForFormat(*formatFor(server.url("/song.tst"))));
  EXPECT_EQ(server.requestCount("/song.tst"), 0);

  auto radio = formatFor(server.url("/elsewhere"));
  radio->setRadioTimeMediaType("test");
  EXPECT_TRUE(file->matchesForFormat(*radio));
  EXPECT_EQ(server.requestCount("/elsewhere"), 0);

  EXPECT_TRUE(file->matchesForFormat(*formatFor(server.url("/station"))));
  EXPECT_EQ(server.requestCount("/station"), 1);
  EXPECT_FALSE(file->matchesForFormat(*formatFor(server.url("/elsewhere"))));
  EXPECT_EQ(server.requestCount("/elsewhere"), 1);
}
