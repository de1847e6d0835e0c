// What a movie's pipeline decodes, read off its audio decoder: the codec
// (by the decoder's input caps, in the short names of the player attributes:
// "MP3", "AAC", "HE-AAC", "Vorbis", "Opus", "FLAC", ...), and the sample
// rate and channels it decodes to (its output caps). Any thread; pads' caps
// are read under their own locks.
#pragma once

#include <belvane/BVValue.h>

typedef struct _GstElement GstElement;
typedef struct _GstTagList GstTagList;

namespace belvane::detail {

// The BVPlayerAttributeCodecKey, ...SampleRateKey and ...ChannelsKey of the
// first audio decoder in bin that has negotiated; empty before one has.
// tags (may be null): the pipeline's tags, whose audio codec names a codec
// the caps do not.
BVDictionary decodedFormatOf(GstElement* bin, const GstTagList* tags);

}  // namespace belvane::detail
