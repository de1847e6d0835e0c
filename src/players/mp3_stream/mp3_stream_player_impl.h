// BVMP3StreamPlayer::Impl: the part of the MP3 stream player that the
// public header leaves opaque: the stream title that plays, the live
// station's time-shift and the reception watch. titleDue is how the
// shoutstreamer delegate hands the player a title once the audio before it
// has been heard.
//
// Thread: the player's run loop.
#pragma once

#include <belvane/BVMP3StreamPlayer.h>

#include <memory>

#include "players/reception_watch.h"
#include "streaming/stream_title.h"
#include "streaming/time_shift.h"

// Hidden: the library's own, though its class is exported.
struct __attribute__((visibility("hidden"))) BVMP3StreamPlayer::Impl {
  // Announces the title (with its StreamUrl) unless it is the one
  // announced last.
  static void titleDue(BVMP3StreamPlayer& player, const std::shared_ptr<const belvane::detail::StreamTitle>& title);

  std::shared_ptr<const belvane::detail::StreamTitle> currentTitle;  // with its StreamUrl
  // The live stream's time-shift (null for a file, or with the ring off).
  std::shared_ptr<belvane::detail::TimeShift> timeShift;
  std::unique_ptr<belvane::detail::ReceptionWatch> receptionWatch;
};
