// The string constants Belvane exports: error domains, the error user-info
// key that carries Belvane's explanation, and the player attribute keys.
#pragma once

extern const char* const BVBelvaneErrorDomain;
extern const char* const BVHelixErrorDomain;
extern const char* const BVShoutstreamerErrorDomain;
extern const char* const BVBasePlayerErrorKey;

extern const char* const BVPlayerAttributeLastErrorKey;
extern const char* const BVPlayerAttributeDurationKey;
extern const char* const BVPlayerAttributeCopyrightKey;
extern const char* const BVPlayerAttributeYearKey;
extern const char* const BVPlayerAttributeGenreKey;
extern const char* const BVPlayerAttributeCommentKey;
extern const char* const BVPlayerAttributeTrackNumberKey;
extern const char* const BVPlayerAttributeAlbumKey;
extern const char* const BVPlayerAttributeArtistKey;
extern const char* const BVPlayerAttributeStreamTitleKey;
extern const char* const BVPlayerAttributeTrackTitleKey;

// Marks errors the host must not report to the RadioTime directory.
extern const char* const BVDoNotReportToRadioTimeErrorKey;  // "RTDoNotReportToRadioTimeErrorKey"
