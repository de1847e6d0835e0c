// BVQuickTimePlayer::Impl: the part of the general engine's player that the
// public header leaves opaque: the movie that plays, the movie's audio on
// its way to our own output, the live stream's title that plays and the
// reception watch; the movie's notifications, which become the player's
// states, positions and attribute changes; the movie's metadata read into
// attributes; and a stream title handed on once its audio is heard. Tests
// read the ASX/WAX playlist and whether the Windows Media work-around was
// used through it, and reset the process-wide component version answer.
//
// Thread: the player's run loop (the movie's notifications and the output's
// titles arrive there).
#pragma once

#include <belvane/BVQuickTimePlayer.h>

#include <memory>

#include "movie/QTMovie.h"
#include "players/audio_delivery.h"
#include "players/quicktime/movie_audio_adapter.h"
#include "players/reception_watch.h"
#include "streaming/stream_title.h"

namespace belvane::detail {
class QTMetaData;
class QuickTimeTitleClient;
}  // namespace belvane::detail

// Hidden: the library's own, though its class is exported.
struct __attribute__((visibility("hidden"))) BVQuickTimePlayer::Impl {
  using QTMovie = belvane::detail::QTMovie;
  using QTNotification = belvane::detail::QTNotification;

  explicit Impl(BVQuickTimePlayer& owner) : player(owner) {}
  static Impl& of(BVQuickTimePlayer& player) { return *player.impl_; }

  // Movie notifications.
  void _noteMovieLoadingChange(const QTNotification* notification);
  void _noteMovieTimeChange(const QTNotification* notification);
  void _noteMovieDidEnd(const QTNotification* notification);
  void _noteMovieRateDidChange(const QTNotification* notification);
  void _noteMovieMetaDataChange(const QTNotification* notification);

  // Metadata: one reader's (the movie's or a track's) values, and the
  // movie's whole set with the file's tags and the station's facts.
  BVDictionary _metaDataAsDictionary(const belvane::detail::QTMetaData* reader) const;
  BVDictionary _attribtesFromMovie(const std::shared_ptr<QTMovie>& movie) const;
  // A live stream's title is due: its audio is what the listener hears next.
  void streamTitleDue(const std::shared_ptr<const belvane::detail::StreamTitle>& title);

  // For tests.
  static const BVWebPlaylistRef& playlist(const BVQuickTimePlayer& player) { return player._playlist; }
  static bool employedFlip4MacWorkAround(const BVQuickTimePlayer& player) {
    return player._employedFlip4MacWorkAround;
  }
  // Forgets the cached "not fixed" answer (tests install and remove the
  // component between cases).
  static void resetFlip4MacVersionCheck();

  BVQuickTimePlayer& player;
  std::shared_ptr<QTMovie> movie;
  // The movie's audio goes through our own output (see audio_delivery.h).
  std::shared_ptr<belvane::detail::AudioDelivery> audio;
  std::shared_ptr<belvane::detail::QuickTimeTitleClient> titleClient;
  std::shared_ptr<belvane::detail::MovieAudioAdapter> movieAudio;
  std::shared_ptr<const belvane::detail::StreamTitle> streamTitle;  // with its StreamUrl
  std::unique_ptr<belvane::detail::ReceptionWatch> receptionWatch;
};
