// The web playlists' exported constants: track dictionary keys and the
// download error domain.
#include <belvane/BVWebPlaylist.h>

const char* const kPlaylistAttributeTrackURL = "kPlaylistAttributeTrackURL";
const char* const kPlaylistAttributeTrackTitle = "kPlaylistAttributeTrackTitle";
const char* const kPlaylistAttributeTrackDuration = "kPlaylistAttributeTrackDuration";
const char* const kPlaylistAttributeTrackNumber = "kPlaylistAttributeTrackNumber";
const char* const kPlaylistAttributeAlternateTrackURLs = "kPlaylistAttributeAlternateTrackURLs";

const char* const BVWebPlaylistErrorDomain = "BVWebPlaylist";
