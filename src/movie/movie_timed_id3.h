// Timed ID3 in MPEG-TS: the titles an HLS station carries as a metadata
// stream next to its audio, which GStreamer 1.22's tsdemux drops.
//
// Every tsdemux that a movie pipeline plugs (for HLS, after hlsdemux: the
// segments' bytes as they arrive) gets a probe on its sink pad that reads the
// same bytes with TransportStreamScanner: each ID3 tag of the metadata stream
// is parsed by libgsttag into a stream title, with its PTS; of each
// elementary stream it remembers the PTS and size of each PES packet. A
// probe on each of tsdemux's audio pads pairs the buffers it pushes (one per
// PES packet, the same size) with those packets: the buffer's timestamp less
// the packet's PTS is how tsdemux maps the stream's 90 kHz clock to the
// pipeline's time, whatever base and wrap it handled. Titles wait for that
// mapping and then go to the audio tap with the timestamp of the audio they
// belong to; the tap gives each before the first frame at or after it.
//
// The probes run on tsdemux's streaming thread; the tap takes titles from any
// thread. The tap must outlive the pipeline's streaming threads (as it does).
#pragma once

typedef struct _GstElement GstElement;

namespace belvane::detail {

class MovieAudioTap;

// Watches pipeline (any bin) for tsdemux elements added at any depth and
// reads their timed ID3 into tap's titles. Call before the pipeline starts.
void readTimedID3(GstElement* pipeline, MovieAudioTap* tap);

}  // namespace belvane::detail
