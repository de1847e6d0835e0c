// StationRing: frames in chunks, in memory and beyond its bound on disk.
#include "streaming/station_ring.h"

#include <glib.h>
#include <glib/gstdio.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace belvane::detail {

std::string stationRingCacheFolder() {
  return std::string(g_get_user_cache_dir()) + "/com.brambleside.ettd/rings";
}

StationRing::StationRing(StationRingSettings settings) : settings_(std::move(settings)) {}

StationRing::~StationRing() {
  if (diskFd_ >= 0) close(diskFd_);
}

uint64_t StationRing::firstFrame() const { return chunks_.empty() ? nextFrame_ : chunks_.front().firstFrame; }

double StationRing::secondsHeld() const { return seconds_; }

uint64_t StationRing::memoryUsed() const {
  uint64_t used = sizeof(*this) + bytesInMemory_;
  for (const auto& chunk : chunks_) {
    used += sizeof(Chunk) + (chunk.frameBytes.capacity() + chunk.frameSamples.capacity()) * sizeof(uint16_t);
    if (chunk.data && &chunk == &chunks_.back()) used += kChunkBytes - chunk.bytes;  // the open chunk's room
  }
  for (const auto& title : titles_)
    used += sizeof(RingTitle) + title.title.title.capacity() + title.title.url.capacity();
  return used;
}

uint64_t StationRing::appendFrame(std::span<const uint8_t> bytes, uint32_t samples, uint32_t sampleRate,
                                  bool discontinuity) {
  const uint64_t number = nextFrame_++;
  if (sampleRate > 0) appended_ += double(samples) / sampleRate;
  if (settings_.minutes <= 0 || bytes.empty() || bytes.size() > kChunkBytes || bytes.size() > UINT16_MAX) return number;
  Chunk* open = chunks_.empty() || !chunks_.back().data ? nullptr : &chunks_.back();
  if (open && (open->bytes + bytes.size() > kChunkBytes || open->sampleRate != sampleRate || discontinuity ||
               open->firstFrame + open->frameBytes.size() != number)) {
    // Sealed: its buffer shrinks to what it holds, its index to its frames.
    auto exact = std::make_unique<uint8_t[]>(open->bytes);
    std::memcpy(exact.get(), open->data.get(), open->bytes);
    open->data = std::move(exact);
    open->frameBytes.shrink_to_fit();
    open->frameSamples.shrink_to_fit();
    open = nullptr;
  }
  if (!open) {
    Chunk chunk;
    chunk.firstFrame = number;
    chunk.sampleRate = sampleRate;
    chunk.discontinuity = discontinuity;
    chunk.data = std::make_unique<uint8_t[]>(kChunkBytes);
    chunks_.push_back(std::move(chunk));
    ++chunksInMemory_;
    open = &chunks_.back();
  }
  std::memcpy(open->data.get() + open->bytes, bytes.data(), bytes.size());
  open->bytes += uint32_t(bytes.size());
  open->samples += samples;
  open->frameBytes.push_back(uint16_t(bytes.size()));
  open->frameSamples.push_back(uint16_t(samples));
  bytesHeld_ += bytes.size();
  bytesInMemory_ += bytes.size();
  if (sampleRate > 0) seconds_ += double(samples) / sampleRate;
  trim();
  spill();
  return number;
}

void StationRing::addTitle(uint64_t frame, StreamTitle title) {
  if (settings_.minutes <= 0) return;
  titles_.push_back({frame, std::move(title)});
}

void StationRing::release(Chunk& chunk) {
  bytesHeld_ -= chunk.bytes;
  if (chunk.data) {
    bytesInMemory_ -= chunk.bytes;
    --chunksInMemory_;
  }
  if (chunk.diskSlot >= 0) freeSlots_.push_back(chunk.diskSlot);
  if (chunk.sampleRate > 0) seconds_ -= double(chunk.samples) / chunk.sampleRate;
}

// The oldest chunk goes while the others still cover the minutes; titles
// before the first frame go too, but for the one the first frame belongs to.
void StationRing::trim() {
  const double keep = settings_.minutes * 60.0;
  while (chunks_.size() > 1) {
    Chunk& oldest = chunks_.front();
    double oldestSeconds = oldest.sampleRate ? double(oldest.samples) / oldest.sampleRate : 0;
    if (seconds_ - oldestSeconds < keep) break;
    release(oldest);
    chunks_.pop_front();
  }
  const uint64_t first = firstFrame();
  while (titles_.size() > 1 && titles_[1].frame <= first) titles_.pop_front();
}

// Sealed chunks beyond the memory bound move to the disk, oldest first.
// Without a disk to spare the ring holds less rather than more memory.
void StationRing::spill() {
  while (bytesInMemory_ > settings_.memoryBytes && chunksInMemory_ > 1) {
    Chunk* target = nullptr;
    for (auto& chunk : chunks_)
      if (chunk.data) {
        target = &chunk;
        break;
      }
    if (!target || target == &chunks_.back()) break;
    if (!openDisk() || !moveToDisk(*target)) {
      release(chunks_.front());
      chunks_.pop_front();
    }
  }
  const uint64_t first = firstFrame();
  while (titles_.size() > 1 && titles_[1].frame <= first) titles_.pop_front();
}

bool StationRing::moveToDisk(Chunk& chunk) {
  int64_t slot;
  if (!freeSlots_.empty()) {
    slot = freeSlots_.back();
    freeSlots_.pop_back();
  } else {
    slot = slots_++;
  }
  if (pwrite(diskFd_, chunk.data.get(), chunk.bytes, off_t(slot) * off_t(kChunkBytes)) != ssize_t(chunk.bytes)) {
    diskProblem_ = std::string("The time-shift file could not be written: ") + std::strerror(errno);
    freeSlots_.push_back(slot);
    return false;
  }
  chunk.diskSlot = slot;
  chunk.data.reset();
  bytesInMemory_ -= chunk.bytes;
  --chunksInMemory_;
  return true;
}

bool StationRing::openDisk() {
  if (diskFd_ >= 0) return true;
  if (!diskProblem_.empty()) return false;  // tried once, in vain
  std::string folder = settings_.diskFolder.empty() ? stationRingCacheFolder() : settings_.diskFolder;
  if (g_mkdir_with_parents(folder.c_str(), 0700) != 0) {
    diskProblem_ = "The time-shift folder " + folder + " could not be made: " + std::strerror(errno);
    return false;
  }
  std::string pattern = folder + "/ring-XXXXXX";
  diskFd_ = g_mkstemp_full(pattern.data(), O_RDWR | O_CLOEXEC, 0600);
  if (diskFd_ < 0) {
    diskProblem_ = "The time-shift file could not be made in " + folder + ": " + std::strerror(errno);
    return false;
  }
  unlink(pattern.c_str());
  return true;
}

std::optional<RingTitle> StationRing::titleAt(uint64_t frame) const {
  for (auto it = titles_.rbegin(); it != titles_.rend(); ++it)
    if (it->frame <= frame) return *it;
  return std::nullopt;
}

bool StationRing::readFrame(uint64_t frame, std::vector<uint8_t>& out) const {
  if (frame < firstFrame() || frame >= endFrame()) return false;
  // Chunks are in frame order: the last one that starts at or before frame.
  auto it = std::upper_bound(chunks_.begin(), chunks_.end(), frame,
                             [](uint64_t f, const Chunk& chunk) { return f < chunk.firstFrame; });
  if (it == chunks_.begin()) return false;
  const Chunk& chunk = *std::prev(it);
  const uint64_t index = frame - chunk.firstFrame;
  if (index >= chunk.frameBytes.size()) return false;  // a frame the ring did not keep
  size_t offset = 0;
  for (uint64_t i = 0; i < index; ++i) offset += chunk.frameBytes[i];
  const size_t length = chunk.frameBytes[index];
  out.resize(length);
  if (chunk.data) {
    std::memcpy(out.data(), chunk.data.get() + offset, length);
    return true;
  }
  return pread(diskFd_, out.data(), length, off_t(chunk.diskSlot) * off_t(kChunkBytes) + off_t(offset)) ==
         ssize_t(length);
}

double StationRing::secondsFrom(uint64_t frame) const {
  double seconds = 0;
  for (auto it = chunks_.rbegin(); it != chunks_.rend(); ++it) {
    const Chunk& chunk = *it;
    if (chunk.sampleRate == 0) continue;
    if (chunk.firstFrame >= frame) {
      seconds += double(chunk.samples) / chunk.sampleRate;
      continue;
    }
    for (uint64_t i = frame - chunk.firstFrame; i < chunk.frameSamples.size(); ++i)
      seconds += double(chunk.frameSamples[i]) / chunk.sampleRate;
    break;
  }
  return seconds;
}

uint64_t StationRing::frameSecondsBeforeEnd(double seconds) const {
  double behind = 0;
  for (auto it = chunks_.rbegin(); it != chunks_.rend(); ++it) {
    const Chunk& chunk = *it;
    for (size_t i = chunk.frameSamples.size(); i-- > 0;) {
      const double length = chunk.sampleRate ? double(chunk.frameSamples[i]) / chunk.sampleRate : 0;
      if (behind + length >= seconds)
        return chunk.firstFrame + i + (seconds - behind < behind + length - seconds ? 1 : 0);
      behind += length;
    }
  }
  return firstFrame();
}

bool StationRing::readFrames(uint64_t from,
                             const std::function<void(std::span<const uint8_t>, uint64_t frame)>& onFrame) const {
  std::vector<uint8_t> buffer;
  for (const auto& chunk : chunks_) {
    const uint64_t end = chunk.firstFrame + chunk.frameBytes.size();
    if (end <= from) continue;
    const uint8_t* data = chunk.data.get();
    if (!data) {
      buffer.resize(chunk.bytes);
      if (pread(diskFd_, buffer.data(), chunk.bytes, off_t(chunk.diskSlot) * off_t(kChunkBytes)) !=
          ssize_t(chunk.bytes))
        return false;
      data = buffer.data();
    }
    size_t offset = 0;
    for (size_t i = 0; i < chunk.frameBytes.size(); ++i) {
      const uint64_t frame = chunk.firstFrame + i;
      if (frame >= from) onFrame({data + offset, chunk.frameBytes[i]}, frame);
      offset += chunk.frameBytes[i];
    }
  }
  return true;
}

}  // namespace belvane::detail
