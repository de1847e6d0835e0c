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

// Marks errors the host must not report to the RadioTime directory.
BV_EXPORT extern const char* const BVDoNotReportToRadioTimeErrorKey;  // "RTDoNotReportToRadioTimeErrorKey"
