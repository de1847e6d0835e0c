// The string constants Belvane exports: error domains, the error user-info
// key that carries Belvane's explanation, and the player attribute keys.
#pragma once

#include <belvane/BVExport.h>

BV_EXPORT extern const char* const BVBelvaneErrorDomain;
BV_EXPORT extern const char* const BVHelixErrorDomain;
BV_EXPORT extern const char* const BVShoutstreamerErrorDomain;
BV_EXPORT extern const char* const BVBasePlayerErrorKey;

BV_EXPORT extern const char* const BVPlayerAttributeLastErrorKey;
BV_EXPORT extern const char* const BVPlayerAttributeDurationKey;
BV_EXPORT extern const char* const BVPlayerAttributeCopyrightKey;
BV_EXPORT extern const char* const BVPlayerAttributeYearKey;
BV_EXPORT extern const char* const BVPlayerAttributeGenreKey;
BV_EXPORT extern const char* const BVPlayerAttributeCommentKey;
BV_EXPORT extern const char* const BVPlayerAttributeTrackNumberKey;
BV_EXPORT extern const char* const BVPlayerAttributeAlbumKey;
BV_EXPORT extern const char* const BVPlayerAttributeArtistKey;
BV_EXPORT extern const char* const BVPlayerAttributeStreamTitleKey;
BV_EXPORT extern const char* const BVPlayerAttributeTrackTitleKey;
// Linux additions: what a station's server announces of it in the reply
// (Shoutcast's and Icecast's icy-name, icy-genre, icy-url and icy-br, or
// the bit rate of Icecast's ice-audio-info), on every engine that reads the
// station with Belvane's connection. Text, and the bit rate in kbit/s as an
// integer.
BV_EXPORT extern const char* const BVPlayerAttributeStationNameKey;
BV_EXPORT extern const char* const BVPlayerAttributeStationGenreKey;
BV_EXPORT extern const char* const BVPlayerAttributeStationHomePageKey;
BV_EXPORT extern const char* const BVPlayerAttributeStationBitRateKey;
// Linux additions: what the player decodes (on every engine that decodes in
// Belvane's process): the codec by its short name ("MP3", "MP2", "AAC",
// "HE-AAC", "Vorbis", "Opus", "FLAC", ...), the sample rate in Hz and the
// channels coded in the stream (integers), as the decoder found them.
BV_EXPORT extern const char* const BVPlayerAttributeCodecKey;
BV_EXPORT extern const char* const BVPlayerAttributeSampleRateKey;
BV_EXPORT extern const char* const BVPlayerAttributeChannelsKey;
// Linux addition: the address a live station sent with its current stream
// title (ICY's StreamUrl, often the song's cover art); text, announced with
// the title it came with and gone when a later title comes without one.
BV_EXPORT extern const char* const BVPlayerAttributeStreamURLKey;
// Linux additions: for a station reached through a playlist (M3U, PLS, ASX,
// XSPF), the title the playlist gives the entry that plays (#EXTINF, TitleN,
// an ASX entry's <title>), when it gives one, and that entry's place in the
// playlist, counting from 1 in the playlist's own order (integer).
BV_EXPORT extern const char* const BVPlayerAttributePlaylistEntryTitleKey;
BV_EXPORT extern const char* const BVPlayerAttributePlaylistEntryIndexKey;

// Marks errors the host must not report to the RadioTime directory.
BV_EXPORT extern const char* const BVDoNotReportToRadioTimeErrorKey;  // "RTDoNotReportToRadioTimeErrorKey"
