// The icon center: framework images, the icon theme, and no caching of
// names that were not found.
#include <belvane/BVIconCenter.h>

#include "support/scoped_env.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

using belvane::test::ScopedXDGDataHome;
using belvane::test::TempDir;

TEST(IconCenter, FindsFrameworkImagesAndCachesThem) {
  BVIconCenter center;
  for (const char* name : {BVIconShoutcastPlayer, BVIconShockwavePlayer, BVIconWindowsMediaPlayer, BVIconHelixPlayer,
                           BVIconQuickTimePlayer, BVIconiTunes, BVIconSafari, "Icon-Generic"}) {
    auto image = center.imageNamed(name);
    ASSERT_TRUE(image) << name;
    EXPECT_EQ(image, center.imageNamed(name));
    EXPECT_TRUE(image->data()) << name;
  }
  EXPECT_FALSE(center.imageNamed(""));
}

TEST(IconCenter, LooksForUnknownNamesAgainAndUsesTheIconTheme) {
  TempDir data;
  ScopedXDGDataHome xdg(data.path());
  BVIconCenter center;
  EXPECT_FALSE(center.imageNamed("belvane-test-station"));
  EXPECT_FALSE(center.imageNamed("belvane-test-station"));

  data.write("icons/hicolor/16x16/apps/belvane-test-station.png", "small");
  data.write("icons/hicolor/128x128/apps/belvane-test-station.png", "large");
  data.write("icons/hicolor/48x48/apps/belvane-test-station.png", "medium");
  auto image = center.imageNamed("belvane-test-station");
  ASSERT_TRUE(image);
  EXPECT_EQ(image->path(), data.path() + "/icons/hicolor/128x128/apps/belvane-test-station.png");

  // The file is read when its bytes are first wanted, not before.
  data.write("icons/hicolor/128x128/apps/belvane-test-station.png", "replaced");
  ASSERT_TRUE(image->data());
  EXPECT_EQ(std::string(image->data()->begin(), image->data()->end()), "replaced");
}
