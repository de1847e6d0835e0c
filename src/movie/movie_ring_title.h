// Titles a movie's ring feed puts in-band: the tags of a stream title that
// starts exactly at the frame they precede. They are global tags (parsers
// and decoders pass them on in order with the audio rather than merging
// them into their own) and carry a mark, so the audio tap announces them
// right before the next audio instead of after it, as it must for a title
// cut out of the middle of a frame. Any thread.
#pragma once

#include "streaming/stream_title.h"

typedef struct _GstTagList GstTagList;

namespace belvane::detail {

// A new tag list (the caller owns it): the title, its address as the home page, the mark.
GstTagList* ringTitleTags(const StreamTitle& title);
bool isRingTitle(const GstTagList* tags);

}  // namespace belvane::detail
