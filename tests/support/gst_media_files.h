// Media files for tests, written by GStreamer's own encoders and muxers: a
// sine tone of a given length in AAC (MP4/M4A, QuickTime), Ogg Vorbis, Ogg
// Opus, FLAC, MP3 with an ID3v2 tag, ASF/WMA, raw ADTS AAC (to serve as a live
// stream) and an HLS folder (MPEG-TS segments and a playlist). Tags are given
// by GStreamer tag name ("title", "artist", "album", "genre", "comment",
// "track-number", ...) with their values as text.
#pragma once

#include <map>
#include <string>

namespace belvane::test {

enum class MediaKind {
  M4A,         // AAC in an MP4 container (mp4mux)
  QuickTime,   // AAC in a QuickTime .mov (qtmux)
  OggVorbis,
  OggOpus,
  FLAC,
  WAV,
  MP3,         // with a Xing header (so its length is known at once) and an ID3v2 tag
  WMA,         // WMA v2 in ASF
  ADTS,        // raw AAC frames with ADTS headers
  HLS,         // path is a folder: playlist.m3u8 and segmentNNNNN.ts in it
  MP4Video,    // AAC and an H.264 test picture in MP4
  VideoOnly,   // an H.264 test picture in MP4, no sound
};

// Writes `seconds` of a tone to path and returns the path of the file to
// open (for HLS: <path>/playlist.m3u8). Fails the calling test (ADD_FAILURE)
// and returns "" when GStreamer could not make it.
std::string writeMediaFile(const std::string& path, MediaKind kind, double seconds,
                           const std::map<std::string, std::string>& tags = {});

// The usual file extension of a kind ("m4a", "mov", "ogg", "opus", "flac", "wav",
// "mp3", "wma", "aac", "m3u8", "mp4").
const char* mediaKindExtension(MediaKind kind);

// The whole contents of a file ("" when unreadable).
std::string readWholeFile(const std::string& path);

}  // namespace belvane::test
