// Ring titles' tags (see movie_ring_title.h).
#include "movie/movie_ring_title.h"

#include <gst/gst.h>

namespace belvane::detail {

namespace {
constexpr const char* kRingTitleTag = "belvane-ring-title";

void registerMark() {
  static const bool registered = [] {
    gst_tag_register(kRingTitleTag, GST_TAG_FLAG_META, G_TYPE_BOOLEAN, "ring title",
                     "a stream title placed at its frame", nullptr);
    return true;
  }();
  (void)registered;
}
}  // namespace

GstTagList* ringTitleTags(const StreamTitle& title) {
  registerMark();
  GstTagList* tags = gst_tag_list_new(GST_TAG_TITLE, title.title.c_str(), kRingTitleTag, TRUE, nullptr);
  if (!title.url.empty()) gst_tag_list_add(tags, GST_TAG_MERGE_REPLACE, GST_TAG_HOMEPAGE, title.url.c_str(), nullptr);
  gst_tag_list_set_scope(tags, GST_TAG_SCOPE_GLOBAL);
  return tags;
}

bool isRingTitle(const GstTagList* tags) {
  gboolean mark = FALSE;
  return gst_tag_list_get_scope(tags) == GST_TAG_SCOPE_GLOBAL && gst_tag_exists(kRingTitleTag) &&
         gst_tag_list_get_boolean(tags, kRingTitleTag, &mark) && mark;
}

}  // namespace belvane::detail
