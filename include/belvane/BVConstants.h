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

// Marks errors the host must not report to the RadioTime directory.
BV_EXPORT extern const char* const BVDoNotReportToRadioTimeErrorKey;  // "RTDoNotReportToRadioTimeErrorKey"
