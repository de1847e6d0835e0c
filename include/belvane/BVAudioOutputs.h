// BVAudioOutputs: the machine's audio outputs a listener can choose from,
// for a host's output menu: the sinks of the PulseAudio (or PipeWire) server
// and the ALSA playback devices, each with the output setting that names it
// (BVBasePlayer::setAudioOutput) and a description for the listener.
//
// Any thread; each call asks the sound server and ALSA afresh (a fraction of
// a second at most; a server that does not answer is left out).
#pragma once

#include <belvane/BVExport.h>

#include <string>
#include <vector>

struct BVAudioOutput {
  // The output setting that plays to it: "pulse:SINK" or "alsa:DEVICE".
  std::string name;
  // What the listener reads: the sink's description ("Built-in Audio Analog
  // Stereo"), or ALSA's (its first line).
  std::string description;
  // The system default: the server's default sink; ALSA's "default".
  bool isDefault = false;
};

// The sound server's sinks first (in the server's order), then the ALSA
// playback devices; empty when the machine has none.
BV_EXPORT std::vector<BVAudioOutput> BVAudioOutputs();
