// StationRecorder: a file per title, tagged, cut on frame boundaries.
#include "streaming/station_recorder.h"

#include "streaming/QLDebug.h"
#include "streaming/recording_names.h"

#include <taglib/id3v2tag.h>
#include <taglib/opusfile.h>
#include <taglib/tstring.h>
#include <taglib/vorbisfile.h>
#include <taglib/xiphcomment.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace belvane::detail {

namespace {

constexpr const char* kIncomplete = " (incomplete)";

// Writes all of data; false when the disk refused some of it (errno says
// why), with *done bytes written before that.
bool writeAll(int fd, const uint8_t* data, size_t size, size_t* done) {
  *done = 0;
  while (*done < size) {
    ssize_t n = ::write(fd, data + *done, size - *done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      if (n == 0) errno = ENOSPC;
      return false;
    }
    *done += size_t(n);
  }
  return true;
}

// Whether bytes are the first page of an Ogg chain (its beginning-of-stream flag).
bool isChainStart(std::span<const uint8_t> bytes) {
  return bytes.size() > 5 && std::memcmp(bytes.data(), "OggS", 4) == 0 && (bytes[5] & 0x02) != 0;
}

std::string renderTag(const std::string& text) {
  TagLib::ID3v2::Tag tag;
  TitleParts parts = splitStreamTitle(text);
  tag.setTitle(TagLib::String(parts.title, TagLib::String::UTF8));
  if (!parts.artist.empty()) tag.setArtist(TagLib::String(parts.artist, TagLib::String::UTF8));
  TagLib::ByteVector bytes = tag.render();
  return std::string(bytes.data(), bytes.size());
}

}  // namespace

std::string StationRecorder::checkFolder(const std::string& folder) {
  struct stat info {};
  if (folder.empty()) return "No folder was given to record into.";
  if (stat(folder.c_str(), &info) != 0)
    return "The folder " + folder + " cannot be recorded into: " + std::strerror(errno) + ".";
  if (!S_ISDIR(info.st_mode)) return "The folder " + folder + " cannot be recorded into: it is not a folder.";
  // A file made and removed at once tells more than the permission bits (a
  // read-only mount, an administrator's folder).
  std::string probe = folder + "/.belvane-recording-XXXXXX";
  int fd = mkstemp(probe.data());
  if (fd < 0) return "The folder " + folder + " cannot be recorded into: " + std::strerror(errno) + ".";
  ::close(fd);
  unlink(probe.c_str());
  return {};
}

StationRecorder::StationRecorder(std::string folder, StreamTitle title, bool startsComplete, FileHandler onFile)
    : folder_(std::move(folder)),
      onFile_(std::move(onFile)),
      title_(std::move(title)),
      startsComplete_(startsComplete) {}

StationRecorder::~StationRecorder() { stop(); }

void StationRecorder::titleStarts(StreamTitle title) {
  if (stopped_) return;
  if (fd_ >= 0 && title_.title.empty() && !startsComplete_ && written_ == 0 && !title.title.empty()) {
    // The station's first title names the audio heard before it (a station
    // sends it with its first metadata block, after the first seconds):
    // the opening file takes it, while nothing of it is on disk yet.
    adoptTitle(std::move(title));
    return;
  }
  close(startsComplete_);
  title_ = std::move(title);
  startsComplete_ = true;
}

void StationRecorder::adoptTitle(StreamTitle title) {
  title_ = std::move(title);
  if (extension_ != ".ogg" && extension_ != ".opus" && !pendingEnds_.empty()) {
    std::string tag = renderTag(title_.title);
    const size_t old = pendingEnds_.front();
    pending_.erase(pending_.begin(), pending_.begin() + ptrdiff_t(old));
    pending_.insert(pending_.begin(), tag.begin(), tag.end());
    for (size_t& end : pendingEnds_) end = end - old + tag.size();
  }
  std::optional<std::string> stem = recordingFileStem(title_.title);
  if (!stem) return;
  const std::string base = folder_ + "/" + *stem + kIncomplete;
  for (int n = 1; n < 1000; ++n) {
    std::string renamed = base + (n > 1 ? " (" + std::to_string(n) + ")" : "") + extension_;
    if (access(renamed.c_str(), F_OK) != 0 && rename(path_.c_str(), renamed.c_str()) == 0) {
      path_ = renamed;
      stem_ = *stem;
      return;
    }
  }
}

void StationRecorder::oggChain(std::span<const uint8_t> headers, std::string extension, std::string chainTitle) {
  oggHeaders_.assign(headers.begin(), headers.end());
  oggExtension_ = std::move(extension);
  oggChainTitle_ = std::move(chainTitle);
}

bool StationRecorder::open(AudioSyncKind kind) {
  extension_ = kind == AudioSyncKind::Ogg ? oggExtension_ : kind == AudioSyncKind::Adts ? ".aac" : ".mp3";
  // A title that names no file (empty, or nothing but dots and control
  // characters) is recorded as "Untitled".
  stem_ = recordingFileStem(title_.title).value_or("Untitled");
  const std::string base = folder_ + "/" + stem_ + (startsComplete_ ? "" : kIncomplete);
  for (int n = 1; n < 1000 && fd_ < 0; ++n) {
    path_ = base + (n > 1 ? " (" + std::to_string(n) + ")" : "") + extension_;
    fd_ = ::open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd_ < 0 && errno != EEXIST) break;
  }
  if (fd_ < 0) {
    problem_ = RecordingProblem::Folder;
    problemText_ = "The recording stopped: no file could be made for \"" + title_.title + "\" in " + folder_ + ": " +
                   std::strerror(errno) + ".";
    stopped_ = true;
    return false;
  }
  // An Ogg file's tag is its comment header: the chain's, fixed on closing.
  std::string tag = kind == AudioSyncKind::Ogg ? std::string() : renderTag(title_.title);
  written_ = 0;
  pending_.assign(tag.begin(), tag.end());
  pendingEnds_.assign(1, pending_.size());
  return true;
}

bool StationRecorder::frame(std::span<const uint8_t> bytes, AudioSyncKind kind) {
  if (stopped_) return false;
  if (fd_ < 0) {
    if (!open(kind)) return false;
    if (kind == AudioSyncKind::Ogg) {
      // A file that starts inside a chain needs the chain's headers first.
      fileChainTitle_ = oggChainTitle_;
      if (!isChainStart(bytes)) {
        pending_.insert(pending_.end(), oggHeaders_.begin(), oggHeaders_.end());
        pendingEnds_.push_back(pending_.size());
      }
    }
  }
  pending_.insert(pending_.end(), bytes.begin(), bytes.end());
  pendingEnds_.push_back(pending_.size());
  if (pending_.size() >= kWriteBlock && !writePending()) {
    close(false);
    return false;
  }
  return true;
}

bool StationRecorder::writePending() {
  if (pending_.empty()) return true;
  size_t done = 0;
  const bool written = writeAll(fd_, pending_.data(), pending_.size(), &done);
  const int error = errno;
  const size_t block = pending_.size();
  pending_.clear();
  if (written) {
    written_ += block;
    pendingEnds_.clear();
    return true;
  }
  // The frame cut short goes: the file ends on the last whole frame the
  // disk took.
  size_t whole = 0;
  for (size_t end : pendingEnds_)
    if (end <= done) whole = end;
  pendingEnds_.clear();
  written_ += whole;
  const bool full = error == ENOSPC || error == EFBIG || error == EDQUOT;
  problem_ = full ? RecordingProblem::DiskFull : RecordingProblem::Write;
  if (ftruncate(fd_, off_t(written_)) != 0)
    QLDebugLog(QL_LOG_WARNING, "recording: could not cut %s back", path_.c_str());
  problemText_ = std::string("The recording stopped: ") +
                 (full ? "the disk is full or the file is as large as this system allows"
                       : "the recording could not be written") +
                 " (" + std::strerror(error) + "). " + path_ + " keeps what was recorded.";
  stopped_ = true;
  return false;
}

void StationRecorder::retagOgg() {
  TitleParts parts = splitStreamTitle(title_.title);
  auto retag = [&](TagLib::File& file, TagLib::Ogg::XiphComment* comment) {
    if (!file.isValid() || !comment) return false;
    comment->setTitle(TagLib::String(parts.title, TagLib::String::UTF8));
    comment->setArtist(TagLib::String(parts.artist, TagLib::String::UTF8));
    return file.save();
  };
  bool saved = false;
  if (extension_ == ".opus") {
    TagLib::Ogg::Opus::File file(path_.c_str());
    saved = retag(file, file.tag());
  } else {
    TagLib::Ogg::Vorbis::File file(path_.c_str());
    saved = retag(file, file.tag());
  }
  if (!saved) QLDebugLog(QL_LOG_WARNING, "recording: could not write the title into %s", path_.c_str());
}

void StationRecorder::close(bool complete) {
  if (fd_ < 0) return;
  if (!writePending()) complete = false;
  ::close(fd_);
  fd_ = -1;
  if ((extension_ == ".ogg" || extension_ == ".opus") && !title_.title.empty() && title_.title != fileChainTitle_)
    retagOgg();
  if (!complete && startsComplete_) {
    // The name says what the file lacks.
    std::string renamed;
    const std::string base = folder_ + "/" + stem_ + kIncomplete;
    for (int n = 1; n < 1000; ++n) {
      renamed = base + (n > 1 ? " (" + std::to_string(n) + ")" : "") + extension_;
      if (access(renamed.c_str(), F_OK) != 0 && rename(path_.c_str(), renamed.c_str()) == 0) {
        path_ = renamed;
        break;
      }
    }
  }
  ++filesFinished_;
  if (onFile_) onFile_({path_, title_.title, complete && startsComplete_});
}

void StationRecorder::stop() {
  if (stopped_) return;
  close(false);
  stopped_ = true;
}

void StationRecorder::discardOpenFile() {
  pending_.clear();
  pendingEnds_.clear();
  if (fd_ < 0) return;
  ::close(fd_);
  fd_ = -1;
  unlink(path_.c_str());
}

}  // namespace belvane::detail
