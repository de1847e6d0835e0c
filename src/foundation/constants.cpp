// Exported string constants.
#include <belvane/BVConstants.h>

const char* const BVBelvaneErrorDomain = "BVBelvaneErrorDomain";
const char* const BVHelixErrorDomain = "BVHelixErrorDomain";
const char* const BVShoutstreamerErrorDomain = "com.brambleside.shoutstreamer.ErrorDomain";
const char* const BVBasePlayerErrorKey = "BVBasePlayerErrorKey";

const char* const BVPlayerAttributeLastErrorKey = "BVPlayerAttributeLastErrorKey";
const char* const BVPlayerAttributeDurationKey = "BVPlayerAttributeDurationKey";
const char* const BVPlayerAttributeCopyrightKey = "BVPlayerAttributeCopyrightKey";
const char* const BVPlayerAttributeYearKey = "BVPlayerAttributeYearKey";
const char* const BVPlayerAttributeGenreKey = "BVPlayerAttributeGenreKey";
const char* const BVPlayerAttributeCommentKey = "BVPlayerAttributeCommentKey";
const char* const BVPlayerAttributeTrackNumberKey = "BVPlayerAttributeTrackNumberKey";
const char* const BVPlayerAttributeAlbumKey = "BVPlayerAttributeAlbumKey";
const char* const BVPlayerAttributeArtistKey = "BVPlayerAttributeArtistKey";
const char* const BVPlayerAttributeStreamTitleKey = "BVPlayerAttributeStreamTitleKey";
const char* const BVPlayerAttributeTrackTitleKey = "BVPlayerAttributeTrackTitleKey";
const char* const BVPlayerAttributeStationNameKey = "BVPlayerAttributeStationNameKey";
const char* const BVPlayerAttributeStationGenreKey = "BVPlayerAttributeStationGenreKey";
const char* const BVPlayerAttributeStationHomePageKey = "BVPlayerAttributeStationHomePageKey";
const char* const BVPlayerAttributeStationBitRateKey = "BVPlayerAttributeStationBitRateKey";
const char* const BVPlayerAttributeCodecKey = "BVPlayerAttributeCodecKey";
const char* const BVPlayerAttributeSampleRateKey = "BVPlayerAttributeSampleRateKey";
const char* const BVPlayerAttributeChannelsKey = "BVPlayerAttributeChannelsKey";
const char* const BVPlayerAttributeStreamURLKey = "BVPlayerAttributeStreamURLKey";
const char* const BVPlayerAttributePlaylistEntryTitleKey = "BVPlayerAttributePlaylistEntryTitleKey";
const char* const BVPlayerAttributePlaylistEntryIndexKey = "BVPlayerAttributePlaylistEntryIndexKey";

const char* const BVDoNotReportToRadioTimeErrorKey = "RTDoNotReportToRadioTimeErrorKey";
