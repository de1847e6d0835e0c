// The duration of a movie file. Reading it takes a media engine that can open
// arbitrary movie files; the general media engine provides that and fills
// this in. Until then every file answers "unknown".
#include <belvane/BVURLAdditions.h>

double bvMovieFileDuration(const BVURL& url) { return -1.0; }
