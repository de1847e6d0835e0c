// Many create / play / destroy cycles of the master player on a loopback
// station, destroyed while tuning, connecting, buffering and playing: the
// process must get back every descriptor and thread, and (in sanitizer
// builds) hold no leaked memory afterwards.
#include <gtest/gtest.h>

#include <belvane/BVMP3StreamPlayer.h>
#include <belvane/BVMasterPlayer.h>

#include "support/recording_owner.h"
#include "support/icy_test_server.h"
#include "support/process_counts.h"

#if defined(__SANITIZE_ADDRESS__)
#define BELVANE_LEAK_CHECK 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define BELVANE_LEAK_CHECK 1
#endif
#endif
#ifdef BELVANE_LEAK_CHECK
#include <sanitizer/lsan_interface.h>
#endif

using namespace belvane::test;

namespace {

// Plays the station; waits for Playing when asked, else lingers a little.
bool playCycle(const std::string& url, int i) {
  RecordingOwner owner;
  auto master = BVMasterPlayer::create();
  master->setOwner(&owner);
  dynamic_cast<BVMP3StreamPlayer&>(*master->subPlayer()).setAudioOutput("null");
  master->playLink(linkTo(url));
  if (i % 5 == 4) return BVRunLoop::main().runUntil([&] { return owner.reached(BVPlayerStatePlaying); }, 20.0);
  BVRunLoop::main().runFor(0.004 * (i % 5));
  return !owner.reached(BVPlayerStateError);
}

}  // namespace

TEST(PlayerCycles, HundredCyclesGiveBackDescriptorsThreadsAndMemory) {
  BELVANE_SKIP_WITHOUT_LAME();
  IcyTestServer server;
  IcyStreamScript script;
  script.audio = {stereoTone44k()};
  script.audioBytes = 2'000'000;
  server.serve("/live", {script});
  ASSERT_TRUE(playCycle(server.url("/live"), 4));  // warm up process-wide threads
  BVRunLoop::main().runFor(0.3);
  const int fds = openDescriptorCount(), threads = threadCount();

  int notPlaying = 0;
  for (int i = 0; i < 100; ++i)
    if (!playCycle(server.url("/live"), i)) ++notPlaying;
  EXPECT_EQ(notPlaying, 0);
  EXPECT_TRUE(BVRunLoop::main().runUntil(
      [&] { return openDescriptorCount() <= fds && threadCount() <= threads; }, 10.0))
      << openDescriptorCount() << " descriptors (" << fds << " before), " << threadCount()
      << " threads (" << threads << " before)";
#ifdef BELVANE_LEAK_CHECK
  EXPECT_EQ(__lsan_do_recoverable_leak_check(), 0);
#endif
}
