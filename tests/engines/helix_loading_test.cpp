// Loading the Helix client kit: finding the application, the kit and its
// operations; the copy-first rule for removable volumes; rechecking.
#include <belvane/BVConstants.h>
#include <belvane/BVPlayerEngines.h>

#include "engines/application_bundles.h"
#include "support/scoped_env.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace fs = std::filesystem;
using belvane::test::ScopedEnv;
using belvane::test::ScopedXDGDataHome;
using belvane::test::TempDir;

namespace {

const char* const kInfoPlist = R"(<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0"><dict><key>CFBundleIdentifier</key><string>%s</string></dict></plist>)";

class HelixLoading : public ::testing::Test {
 protected:
  // An application bundle with that identifier, with the given kit (or none).
  std::string installApplication(const std::string& folder, const std::string& identifier, const char* kit) {
    char info[512];
    std::snprintf(info, sizeof info, kInfoPlist, identifier.c_str());
    std::string bundle = data_.path() + "/belvane/applications/" + folder;
    data_.write("belvane/applications/" + folder + "/Info.plist", info);
    if (kit) {
      fs::path frameworks = fs::path(bundle) / "PrivateFrameworks" / "HXClientKit.framework";
      fs::create_directories(frameworks);
      fs::copy_file(kit, frameworks / "HXClientKit.so");
    }
    return bundle;
  }

  static void expectError(const BVErrorRef& error, int64_t code, const std::string& text) {
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain(), BVHelixErrorDomain);
    EXPECT_EQ(error->code(), code);
    EXPECT_EQ(error->localizedDescription(), text);
  }

  TempDir data_;
  ScopedXDGDataHome xdg_{data_.path()};
  // The framework's own resource folder is the last place applications are
  // looked for; the source tree's has the formats files and no applications,
  // so only what a test installs is found.
  ScopedEnv resources_{"BELVANE_RESOURCE_DIR", BELVANE_TEST_DATA_DIR "/../../resources"};
};

}  // namespace

TEST_F(HelixLoading, IsUnavailableUntilTheApplicationIsInstalledAndRechecked) {
  BVHelixPlayerEngine engine;
  installApplication("Other.app", "org.example.other", SCRIPTED_HXKIT);
  EXPECT_FALSE(engine.isAvailable());
  expectError(engine.loadingError(), -43, "RealPlayer could not be found");

  // Installing is not noticed until the engine is told to look again.
  installApplication("RealPlayer.app", "com.realnetworks.realplayer", SCRIPTED_HXKIT);
  EXPECT_FALSE(engine.isAvailable());
  engine.recheckAvailablity();
  EXPECT_FALSE(engine.didAttemptLoad());
  EXPECT_TRUE(engine.isAvailable());
  EXPECT_FALSE(engine.loadingError());
  ASSERT_TRUE(engine.clientPlayerClass());
  ASSERT_TRUE(engine.clientViewClass());

  // An available engine keeps its kit.
  engine.recheckAvailablity();
  EXPECT_TRUE(engine.didAttemptLoad());
  EXPECT_TRUE(engine.isAvailable());
}

TEST_F(HelixLoading, ReportsAMissingKitAndAnIncompatibleOne) {
  {
    installApplication("RealPlayer.app", "com.RealNetworks.RealPlayer", nullptr);
    BVHelixPlayerEngine engine;
    EXPECT_FALSE(engine.isAvailable());
    expectError(engine._loadHXClientKitIfNeeded(), -43, "HXClientKit bundle could not be loaded");
    EXPECT_FALSE(engine.clientPlayerClass());
  }
  fs::remove_all(data_.path() + "/belvane");
  {
    installApplication("RealPlayer.app", "com.RealNetworks.RealPlayer", SCRIPTED_HXKIT_WITHOUT_IS_LIVE);
    BVHelixPlayerEngine engine;
    EXPECT_FALSE(engine.isAvailable());
    expectError(engine.loadingError(), -4, "HXClientKit version incompatible");
    EXPECT_FALSE(engine.clientPlayerClass());
  }
}

TEST(HelixVolumes, RemovableAndImageVolumesAreCopiedFirst) {
  TempDir sys;
  // sdb is a removable disk (its partition sdb1 is 8:17), sda a fixed one.
  sys.write("devices/sdb/removable", "1\n");
  sys.write("devices/sdb/sdb1/partition", "1\n");
  sys.write("devices/sda/removable", "0\n");
  sys.write("devices/sda/sda1/partition", "1\n");
  fs::create_directories(sys.path() + "/dev/block");
  fs::create_directory_symlink(sys.path() + "/devices/sdb/sdb1", sys.path() + "/dev/block/8:17");
  fs::create_directory_symlink(sys.path() + "/devices/sda/sda1", sys.path() + "/dev/block/8:1");
  std::string mountInfo = sys.write("mountinfo",
                                    "22 1 8:1 / / rw,relatime shared:1 - ext4 /dev/sda1 rw\n"
                                    "40 22 8:17 / /media/My\\040Stick rw,nosuid - vfat /dev/sdb1 rw\n"
                                    "41 22 7:3 / /media/image ro - iso9660 /dev/loop3 ro\n"
                                    "42 22 8:1 /home /media/image/inner rw - ext4 /dev/sda1 rw\n");

  auto stick = belvane::detail::volumeInformationForPath("/media/My Stick/RealPlayer.app", mountInfo, sys.path());
  ASSERT_TRUE(stick);
  EXPECT_TRUE(stick->removable);
  EXPECT_TRUE(stick->unmountable);
  EXPECT_TRUE(stick->writable);
  EXPECT_EQ(stick->type, "vfat");

  auto image = belvane::detail::volumeInformationForPath("/media/image/RealPlayer.app", mountInfo, sys.path());
  ASSERT_TRUE(image);
  EXPECT_TRUE(image->removable && image->unmountable);
  EXPECT_FALSE(image->writable);

  // A fixed disk mounted below the image.
  EXPECT_FALSE(belvane::detail::volumeInformationForPath("/media/image/inner/x.app", mountInfo, sys.path())->removable);

  auto root = belvane::detail::volumeInformationForPath("/opt/RealPlayer.app", mountInfo, sys.path());
  EXPECT_TRUE(root && !root->removable && !root->unmountable);
}
