// StreamBuffer: decoded audio comes out planar and in order across the end
// of the ring, and a blocked writer and a waiting reader are let go as soon
// as their wait can end.
#include "streaming/shoutstreamer_buffer.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <vector>

namespace {

using belvane::detail::StreamBuffer;
using Phase = StreamBuffer::Phase;
using Event = StreamBuffer::Event;

// Appends `frames` frames numbered from `first` (right = -left) in blocks.
void appendNumbered(StreamBuffer& buffer, int first, int frames, int block) {
  std::vector<float> interleaved(2 * size_t(block));
  for (int done = 0; done < frames; done += block) {
    int n = std::min(block, frames - done);
    for (int i = 0; i < n; ++i) {
      interleaved[2 * size_t(i)] = float(first + done + i);
      interleaved[2 * size_t(i) + 1] = -float(first + done + i);
    }
    if (!buffer.appendAudio(interleaved.data(), size_t(n), 44100)) return;
  }
}

// Reads until the end, checking the numbering; returns the frames read.
int readNumbered(StreamBuffer& buffer, size_t maxChunk) {
  Phase phase = Phase::Buffering;
  int next = 0;
  for (;;) {
    Event event = buffer.next(phase);
    switch (event.kind) {
      case Event::StartPlaying: phase = Phase::Playing; break;
      case Event::Underrun: phase = Phase::Buffering; break;
      case Event::Audio:
        EXPECT_LE(event.frames, maxChunk);
        for (size_t i = 0; i < event.frames; ++i, ++next) {
          if (event.channels[0][i] != float(next) || event.channels[1][i] != -float(next)) {
            ADD_FAILURE() << "frame " << next;
            return next;
          }
        }
        buffer.consumed(event.frames);
        break;
      case Event::Finished:
      case Event::Closed: return next;
      default: break;
    }
  }
}

TEST(StreamBuffer, DeliversEveryFrameInOrderAcrossTheRingEnd) {
  // A small ring (the least it allows) against blocks that do not divide
  // it, so copies split at its end and both sides block on each other.
  StreamBuffer buffer(4608, 0.02, 1000);
  auto reader = std::async(std::launch::async, [&] { return readNumbered(buffer, 1000); });
  appendNumbered(buffer, 0, 100000, 1152);
  appendNumbered(buffer, 100000, 5000, 3001);
  buffer.finish(0);
  ASSERT_EQ(std::future_status::ready, reader.wait_for(std::chrono::seconds(30)));
  EXPECT_EQ(105000, reader.get());
}

TEST(StreamBuffer, ReaderAndWriterWaitsEndOnceTheyCan) {
  StreamBuffer buffer(4608, 0.05, 4096);  // prebuffer 2205 frames at 44.1 kHz
  std::future<Event::Kind> starts;
  std::future<void> writer;
  struct CloseFirst {  // so that a failed wait does not leave a thread blocked
    StreamBuffer& buffer;
    ~CloseFirst() { buffer.close(); }
  } closeFirst{buffer};
  starts = std::async(std::launch::async, [&] { return buffer.next(Phase::Buffering).kind; });
  appendNumbered(buffer, 0, 2000, 1000);
  EXPECT_EQ(std::future_status::timeout, starts.wait_for(std::chrono::milliseconds(50)));
  appendNumbered(buffer, 2000, 1000, 1000);
  ASSERT_EQ(std::future_status::ready, starts.wait_for(std::chrono::seconds(10)));
  EXPECT_EQ(Event::StartPlaying, starts.get());

  // 3000 of 4608 frames are in: a block of 2304 has to wait for room.
  writer = std::async(std::launch::async, [&] { appendNumbered(buffer, 3000, 2304, 2304); });
  EXPECT_EQ(std::future_status::timeout, writer.wait_for(std::chrono::milliseconds(50)));
  Event audio = buffer.next(Phase::Playing);
  ASSERT_EQ(Event::Audio, audio.kind);
  buffer.consumed(audio.frames);
  ASSERT_EQ(std::future_status::ready, writer.wait_for(std::chrono::seconds(10)));
}

}  // namespace
