// The engine center's order and lookups, and the base engine's rules.
#include <belvane/BVMediaFormat.h>
#include <belvane/BVPlayerEngineCenter.h>
#include <belvane/BVPlayerEngines.h>

#include "engines/stub_engine.h"

#include <gtest/gtest.h>

using belvane::test::StubEngine;

namespace {

std::shared_ptr<BVMediaMutableFormat> formatWith(std::optional<std::string> extension,
                                                 std::optional<std::string> engineID = std::nullopt) {
  auto format = BVMediaMutableFormat::emptyFormat();
  format->setFileExtension(extension);
  format->setEngineID(engineID);
  return format;
}

std::vector<std::string> idsOf(const std::vector<BVPlayerEngineRef>& engines) {
  std::vector<std::string> ids;
  for (const auto& engine : engines) ids.push_back(engine->engineID().value_or("?"));
  return ids;
}

}  // namespace

TEST(EngineCenter, HoldsTheFourEnginesInPreferenceOrder) {
  auto center = BVPlayerEngineCenter::sharedCenter();
  EXPECT_EQ(center, BVPlayerEngineCenter::sharedCenter());
  ASSERT_EQ(center->allEngines().size(), 4u);
  EXPECT_EQ(center->allEngines()[0], BVMP3StreamPlayerEngine::sharedEngine());
  EXPECT_EQ(center->allEngines()[1], BVHelixPlayerEngine::sharedEngine());
  EXPECT_EQ(center->allEngines()[2], BVWindowsMediaPlayerEngine::sharedEngine());
  EXPECT_EQ(center->allEngines()[3], BVQuicktimePlayerEngine::sharedEngine());

  EXPECT_EQ(center->engineWithEngineID("com.realnetworks.helix"), BVHelixPlayerEngine::sharedEngine());
  EXPECT_EQ(center->engineWithEngineID("com.apple.quicktime"), BVQuicktimePlayerEngine::sharedEngine());
  EXPECT_FALSE(center->engineWithEngineID("com.Apple.QuickTime"));
  EXPECT_FALSE(center->engineWithEngineID(""));
}

TEST(EngineCenter, RanksEveryClaimingEngineInCenterOrder) {
  auto center = BVPlayerEngineCenter::sharedCenter();
  // MP3 is claimed by the streamer and by the general engine, in that order.
  EXPECT_EQ(idsOf(center->preferedEnginesForFormat(*formatWith("mp3"))),
            (std::vector<std::string>{"com.brambleside.shoutcast", "com.apple.quicktime"}));
  EXPECT_EQ(idsOf(center->preferedEnginesForFormat(*formatWith("ra"))),
            (std::vector<std::string>{"com.realnetworks.helix"}));
  EXPECT_EQ(center->preferedEngineForFormat(*formatWith("wma")), BVWindowsMediaPlayerEngine::sharedEngine());
  // No clue at all: no candidate.
  EXPECT_TRUE(center->preferedEnginesForFormat(*BVMediaFormat::emptyFormat()).empty());
}

TEST(EngineCenter, AnExplicitEngineIDWinsIgnoringCase) {
  auto center = BVPlayerEngineCenter::sharedCenter();
  // A RealMedia extension, but the format names the general engine.
  EXPECT_EQ(idsOf(center->preferedEnginesForFormat(*formatWith("ra", "COM.APPLE.QuickTime"))),
            (std::vector<std::string>{"com.realnetworks.helix", "com.apple.quicktime"}));
  EXPECT_TRUE(BVWindowsMediaPlayerEngine::sharedEngine()->canPlayFormat(
      *formatWith(std::nullopt, "com.microsoft.WindowsMediaPlayer")));

  // Without a formats file only an explicit choice plays, and the
  // candidates include engines that are not available.
  auto fileless = std::make_shared<StubEngine>(false, "org.example.fileless");
  BVPlayerEngineCenter mine({fileless});
  EXPECT_FALSE(fileless->formatsFile());
  EXPECT_FALSE(fileless->displayableFormatName());
  EXPECT_FALSE(fileless->canPlayFormat(*formatWith("mp3")));
  EXPECT_EQ(mine.preferedEngineForFormat(*formatWith("mp3", "ORG.example.FILELESS")), fileless);
  EXPECT_FALSE(fileless->createPlayer());
}
