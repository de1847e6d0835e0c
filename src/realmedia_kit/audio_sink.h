// The audio sink the kit plays into, chosen by $BELVANE_AUDIO_OUTPUT:
// "null" (a clock-synchronised fake sink), "null:fast" (a fake sink that
// runs as fast as the data comes), "pulse", "alsa"; anything else, or an
// output whose element is missing, is GStreamer's automatic choice.
#pragma once

typedef struct _GstElement GstElement;

namespace belvane::detail {

// A new floating element.
GstElement* makeKitAudioSink();
// A video sink that shows nothing: the kit never opens a window.
GstElement* makeKitVideoSink();

}  // namespace belvane::detail
