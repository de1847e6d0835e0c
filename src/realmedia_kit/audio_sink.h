// The audio sink the kit plays into, as the host chose it through the ABI
// (HXClientAudioOutput): a clock-synchronised fake sink ("null"), one that
// runs as fast as the data comes ("null:fast"), PulseAudio's or ALSA's sink
// on the device named, or a WAV file; not told (kind 0), or an output whose
// element is missing, is GStreamer's automatic choice.
#pragma once

#include <cstdint>
#include <string>

typedef struct _GstElement GstElement;

namespace belvane::detail {

struct KitAudioOutput {
  int32_t kind = 0;  // an HXAudioOutput... kind; 0: not told
  std::string device;
};

// A new floating element.
GstElement* makeKitAudioSink(const KitAudioOutput& output);
// A video sink that shows nothing: the kit never opens a window.
GstElement* makeKitVideoSink();

}  // namespace belvane::detail
