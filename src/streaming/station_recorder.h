// StationRecorder: one recording of a live station into a folder, one file
// per title, each file the station's own frames (no re-encoding) behind an
// ID3v2 tag with the title (and the artist where the title reads "Artist -
// Title"), rendered by TagLib. MPEG audio goes into .mp3; AAC stays in its
// ADTS framing, in .aac: its bytes are then exactly the station's, every
// byte written is playable at once (an .m4a would need its index written
// at the end, so a recording cut short by a full disk or a crash would be
// unreadable), and GStreamer, mpg123-based and most desktop players read an
// ID3v2 tag before ADTS frames.
//
// An Ogg station's files are Ogg files (.ogg for Vorbis, .opus for Opus) cut
// on page boundaries: a chained stream's chain is one song, which its own
// headers (comment header included) begin and tag; a file that starts
// inside a chain (a title sent by ICY, or a recording started mid-song)
// begins with the chain's header pages, and a title that differs from the
// chain's own is written into the comment header by TagLib when the file is
// closed (which renumbers the file's pages, so only their sequence numbers
// and checksums differ from the station's).
//
// A file starts on a frame boundary: the first frame at or after the title
// change. The audio a station sends before its first title (which comes
// with its first metadata block) belongs to that title: the opening file
// takes its name and tag instead of being "Untitled". A file that does not hold its whole title (the first, which began
// mid-title, and the last, which the stop cut off) has " (incomplete)" at the
// end of its name. A full disk stops the recording: the file is cut back to
// its last whole frame, so what was written stays readable. Frames are
// written in blocks of kWriteBlock bytes, and the rest when a file closes.
//
// Not thread-safe: StationTap guards it with its own mutex and calls it on
// the thread that reads the station.
#pragma once

#include "streaming/mpeg_audio_header.h"
#include "streaming/stream_title.h"

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

namespace belvane::detail {

struct RecordedFile {
  std::string path;
  std::string title;
  bool complete = false;  // the file holds its title from its first frame to its last
};

// Why a recording stopped early, or could not start.
enum class RecordingProblem { None, Folder, DiskFull, Write, NoAudio, NoTitleStart };

class StationRecorder {
 public:
  using FileHandler = std::function<void(const RecordedFile&)>;

  // Empty when folder is a directory that takes new files; else why not.
  static std::string checkFolder(const std::string& folder);

  // title: what plays now; startsComplete: the next frame is its first.
  StationRecorder(std::string folder, StreamTitle title, bool startsComplete, FileHandler onFile);
  ~StationRecorder();
  StationRecorder(const StationRecorder&) = delete;
  StationRecorder& operator=(const StationRecorder&) = delete;

  // The next frame starts a new title: the current file is complete.
  void titleStarts(StreamTitle title);
  // The next frame's bytes; false when the recording has stopped (problem()).
  bool frame(std::span<const uint8_t> bytes, AudioSyncKind kind);
  // Ogg: the chain now playing, whose header pages a file begins with when
  // it starts inside the chain, and its extension and own title.
  void oggChain(std::span<const uint8_t> headers, std::string extension, std::string chainTitle);
  // Ends the recording: the open file is cut off, so incomplete.
  void stop();
  // Drops the open file (deleted, not reported): a recording from the
  // title's start writes it afresh.
  void discardOpenFile();

  RecordingProblem problem() const { return problem_; }
  const std::string& problemText() const { return problemText_; }
  uint64_t filesFinished() const { return filesFinished_; }

 private:
  bool open(AudioSyncKind kind);
  void close(bool complete);
  // Writes the frames held back; false (the recording stopped, the file cut
  // back to its last whole frame on disk) when the disk refused them.
  bool writePending();
  void retagOgg();
  // The opening file, begun before the station named any title, takes the
  // first one (its tag and its name).
  void adoptTitle(StreamTitle title);

  const std::string folder_;
  FileHandler onFile_;
  StreamTitle title_;
  bool startsComplete_;
  int fd_ = -1;
  std::string path_;
  std::string stem_;
  std::string extension_;
  std::vector<uint8_t> oggHeaders_;
  std::string oggExtension_ = ".ogg";
  std::string oggChainTitle_;
  std::string fileChainTitle_;  // the title in the open Ogg file's own comment header
  uint64_t written_ = 0;  // bytes in the open file, up to its last whole frame
  // Frames are written in blocks (a write a frame would cost more than the
  // rest of recording), about two seconds of a 128 kbit/s station.
  static constexpr size_t kWriteBlock = 32 * 1024;
  std::vector<uint8_t> pending_;
  std::vector<size_t> pendingEnds_;  // where each frame held back ends in pending_
  bool stopped_ = false;
  RecordingProblem problem_ = RecordingProblem::None;
  std::string problemText_;
  uint64_t filesFinished_ = 0;
};

}  // namespace belvane::detail
