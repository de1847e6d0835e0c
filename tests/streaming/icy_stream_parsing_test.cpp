// The byte-level pieces of a stream: ICY reply heads, metadata
// demultiplexing, StreamTitle, frame sync, and the pipeline's placing of
// titles in the decoded audio.
#include "streaming/icy_metadata.h"
#include "streaming/mpeg_audio_header.h"
#include "streaming/shoutstreamer.h"
#include "streaming/shoutstreamer_pipeline.h"
#include "support/mp3_test_data.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

using namespace belvane::detail;
using belvane::test::Mp3Data;

namespace {

std::span<const uint8_t> bytes(const std::string& s) { return {reinterpret_cast<const uint8_t*>(s.data()), s.size()}; }

struct RecordingDemux : IcyDemuxer::Handler {
  std::string audioBytes;
  std::vector<std::pair<std::string, uint64_t>> blocks;
  bool audio(std::span<const uint8_t> b, uint64_t offset) override {
    EXPECT_EQ(offset, audioBytes.size());
    audioBytes.append(reinterpret_cast<const char*>(b.data()), b.size());
    return true;
  }
  void metadata(std::span<const uint8_t> block, uint64_t offset) override {
    blocks.push_back({std::string(reinterpret_cast<const char*>(block.data()), block.size()), offset});
  }
};

std::string metaBlock(const std::string& text) {
  std::string padded = text;
  padded.resize((text.size() + 15) / 16 * 16, '\0');
  return char(padded.size() / 16) + padded;
}

}  // namespace

TEST(IcyReply, ReadsStatusAndFieldsWhateverTheChunksAndLineEnds) {
  const std::string reply = "ICY 200 OK\r\nicy-name: Radio\r\nIcy-MetaInt:8192\r\ncontent-type: audio/mpeg\r\n\r\nAUDIO";
  for (size_t split : {size_t(1), size_t(2), size_t(20), reply.find("\r\n\r\n") + 3}) {
    IcyReplyParser parser;
    EXPECT_EQ(parser.feed(bytes(reply.substr(0, split))), IcyReplyParser::Result::NeedMore);
    ASSERT_EQ(parser.feed(bytes(reply.substr(split))), IcyReplyParser::Result::Head);
    EXPECT_EQ(parser.head().status, 200);
    EXPECT_EQ(*parser.head().field("icy-metaint"), "8192");
    EXPECT_EQ(*parser.head().field("content-type"), "audio/mpeg");
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(parser.pending().data()), parser.pending().size()), "AUDIO");
  }
  IcyReplyParser bareLF;
  ASSERT_EQ(bareLF.feed(bytes("ICY 404 Resource Not Available\nicy-notice1: x\n\n")), IcyReplyParser::Result::Head);
  EXPECT_EQ(bareLF.head().status, 404);
  EXPECT_EQ(bareLF.head().reason, "Resource Not Available");

  IcyReplyParser raw;
  EXPECT_EQ(raw.feed(bytes("\xFF\xFB\x90")), IcyReplyParser::Result::NotIcy);
  EXPECT_EQ(raw.pending().size(), 3u);
  IcyReplyParser broken;
  EXPECT_EQ(broken.feed(bytes("ICY two hundred\r\n\r\n")), IcyReplyParser::Result::Malformed);
  IcyReplyParser endless;
  EXPECT_EQ(endless.feed(bytes("ICY 200 OK\r\n" + std::string(IcyReplyParser::kMaxHeadBytes, 'a'))),
            IcyReplyParser::Result::Malformed);
}

TEST(IcyDemuxer, SplitsMetadataAtEveryIntervalAcrossChunkBoundaries) {
  std::string audio1(100, 'a'), audio2(100, 'b'), audio3(40, 'c');
  // After audio2 an empty block; after audio3 a length byte of 255 with no
  // block: what follows is audio, and the next interval counts from there.
  std::string audio4 = "\xFF\xFB" + std::string(98, 'd');
  std::string stream = audio1 + metaBlock("StreamTitle='One';") + audio2 + std::string(1, '\0') + audio1 + "\xFF" +
                       audio4 + metaBlock("StreamTitle='Two';") + audio3;
  for (size_t chunk : {size_t(1), size_t(7), size_t(101), stream.size()}) {
    IcyDemuxer demuxer(100);
    RecordingDemux handler;
    for (size_t at = 0; at < stream.size(); at += chunk) demuxer.feed(bytes(stream.substr(at, chunk)), handler);
    EXPECT_EQ(handler.audioBytes, audio1 + audio2 + audio1 + audio4 + audio3) << chunk;
    ASSERT_EQ(handler.blocks.size(), 2u);  // the empty block is no metadata
    EXPECT_EQ(handler.blocks[0].second, 100u);
    EXPECT_EQ(streamTitleFromMetadata(bytes(handler.blocks[0].first)), "One");
    EXPECT_EQ(handler.blocks[1].second, 400u);
    EXPECT_EQ(streamTitleFromMetadata(bytes(handler.blocks[1].first)), "Two");
  }
  IcyDemuxer none(0);
  RecordingDemux handler;
  none.feed(bytes(stream), handler);
  EXPECT_EQ(handler.audioBytes, stream);
}

TEST(IcyDemuxer, ReadsStreamTitlesAndTheirAddresses) {
  auto title = [](const std::string& s) { return streamTitleFromMetadata(bytes(s)); };
  EXPECT_EQ(title("StreamTitle='Guns N' Roses - Patience';StreamUrl='http://x/';"), "Guns N' Roses - Patience");
  EXPECT_EQ(title(std::string("StreamTitle='It's';") + std::string(5, '\0')), "It's");
  EXPECT_EQ(title("StreamTitle='';"), "");
  EXPECT_EQ(title("StreamTitle='Cut off"), "Cut off");
  EXPECT_EQ(title("StreamUrl='http://x/';"), std::nullopt);
  // The address sent with a title: its key in any case, only where a key
  // can start, none when empty.
  auto url = [](const std::string& s) { return streamURLFromMetadata(bytes(s)); };
  EXPECT_EQ(url("StreamTitle='A';StreamURL='http://x/a.jpg';"), "http://x/a.jpg");
  EXPECT_EQ(url("StreamTitle='Not StreamUrl='here';StreamUrl='';"), std::nullopt);
}

TEST(AudioSync, FindsMpegAfterJunkAndTellsAacAndNoiseApart) {
  BELVANE_SKIP_WITHOUT_LAME();
  const Mp3Data* mp3 = belvane::test::stereoTone44k();
  ASSERT_TRUE(mp3);
  auto header = parseMpegFrameHeader(bytes(mp3->bytes));
  ASSERT_TRUE(header);
  EXPECT_EQ(header->sampleRate, 44100);
  EXPECT_EQ(header->layer, 3);
  EXPECT_EQ(size_t(header->frameBytes), mp3->frames[0].size);
  auto mono = parseMpegFrameHeader(bytes(belvane::test::monoTone22k()->bytes));
  ASSERT_TRUE(mono);
  EXPECT_EQ(mono->samplesPerFrame, 576);
  EXPECT_EQ(mono->channels, 1);

  std::string junk = "\xFF\xFB junk \xFF";
  AudioSync sync = findAudioSync(bytes(junk + mp3->bytes.substr(0, 2000)));
  EXPECT_EQ(sync.kind, AudioSyncKind::Mpeg);
  EXPECT_EQ(sync.offset, junk.size());
  EXPECT_EQ(findAudioSync(bytes("xx" + belvane::test::adtsFrames(3))).kind, AudioSyncKind::Adts);
  AudioSync noise = findAudioSync(bytes(belvane::test::noiseBytes(5000)));
  EXPECT_EQ(noise.kind, AudioSyncKind::None);
  EXPECT_EQ(noise.offset, 5000u);
  // A chain cut short by the end of the bytes waits for more.
  AudioSync partial = findAudioSync(bytes("abc" + mp3->bytes.substr(0, 500)));
  EXPECT_EQ(partial.kind, AudioSyncKind::None);
  EXPECT_EQ(partial.offset, 3u);
}

namespace {

struct RecordingSink : PipelineSink {
  uint64_t frames = 0;
  std::vector<std::pair<std::string, uint64_t>> titles;
  std::vector<long> rates;
  void title(StreamTitle t) override { titles.push_back({std::move(t.title), frames}); }
  bool audio(const float*, size_t n, long rate) override {
    if (rates.empty() || rates.back() != rate) rates.push_back(rate);
    frames += n;
    return true;
  }
};

}  // namespace

TEST(StreamPipeline, PlacesEachTitleBeforeTheFirstFrameAfterItsBlock) {
  BELVANE_SKIP_WITHOUT_LAME();
  const Mp3Data* stereo = belvane::test::stereoTone44k();
  const Mp3Data* mono = belvane::test::monoTone22k();
  ASSERT_TRUE(stereo && mono);
  // Stereo 44.1 kHz then mono 22.05 kHz frames, a title block every 3000
  // audio bytes, the expected position being the samples of every frame that
  // starts before the block.
  std::vector<std::pair<size_t, int>> frames;  // start offset, samples
  std::string audio;
  for (const Mp3Data* data : {stereo, mono}) {
    for (auto& f : data->frames) frames.push_back({audio.size() + f.offset, f.samples});
    audio += data->bytes;
  }
  const size_t metaint = 3000;
  std::string stream;
  std::vector<std::pair<std::string, uint64_t>> expected;
  for (size_t at = 0; at < audio.size(); at += metaint) {
    stream += audio.substr(at, metaint);
    if (at + metaint > audio.size()) break;
    std::string title = "T" + std::to_string(at + metaint);
    stream += metaBlock("StreamTitle='" + title + "';");
    uint64_t samples = 0;
    for (auto& [start, n] : frames) {
      if (start < at + metaint) samples += uint64_t(n);
    }
    expected.push_back({title, samples});
  }
  RecordingSink sink;
  StreamPipeline pipeline(metaint, sink);
  std::srand(7);
  for (size_t at = 0; at < stream.size();) {
    size_t n = std::min(stream.size() - at, size_t(1 + std::rand() % 3000));
    ASSERT_EQ(pipeline.feed(bytes(stream.substr(at, n))), StreamPipeline::Status::Ok);
    at += n;
  }
  pipeline.finish();
  EXPECT_EQ(sink.frames, stereo->totalSamples() + mono->totalSamples());
  EXPECT_EQ(sink.rates, (std::vector<long>{44100, 22050}));
  EXPECT_EQ(sink.titles, expected);
}

TEST(StreamPipeline, RejectsAacAndNoiseAndReportsLostSync) {
  BELVANE_SKIP_WITHOUT_LAME();
  auto run = [](const std::string& stream) {
    RecordingSink sink;
    StreamPipeline pipeline(0, sink, 16 * 1024);
    StreamPipeline::Status status = StreamPipeline::Status::Ok;
    for (size_t at = 0; at < stream.size() && status == StreamPipeline::Status::Ok; at += 4096)
      status = pipeline.feed(bytes(stream.substr(at, 4096)));
    return status == StreamPipeline::Status::Failed ? pipeline.error() : 0;
  };
  EXPECT_EQ(run(belvane::test::adtsFrames(100)), SHOUTSTREAMER_ERROR_AAC);
  EXPECT_EQ(run(belvane::test::noiseBytes(40000)), SHOUTSTREAMER_ERROR_NOT_MPEG);
  const std::string& mp3 = belvane::test::stereoTone44k()->bytes;
  EXPECT_EQ(run(mp3.substr(0, 20000) + belvane::test::noiseBytes(40000)), SHOUTSTREAMER_ERROR_LOST_SYNC);
  // A patch of damage is skipped.
  EXPECT_EQ(run(mp3.substr(0, 20000) + belvane::test::noiseBytes(3000) + mp3), 0);
}

TEST(ShoutstreamerErrors, EveryCodeHasAListenerText) {
  for (int32_t code : {SHOUTSTREAMER_ERROR_AAC, SHOUTSTREAMER_ERROR_CONNECTION_REFUSED,
                       SHOUTSTREAMER_ERROR_HOST_NOT_FOUND, SHOUTSTREAMER_ERROR_NOT_FOUND,
                       SHOUTSTREAMER_ERROR_HTTP_STATUS(503), SHOUTSTREAMER_ERROR_HTTP_STATUS(403),
                       SHOUTSTREAMER_ERROR_TIMED_OUT, SHOUTSTREAMER_ERROR_NOT_MPEG, SHOUTSTREAMER_ERROR_LOST_SYNC,
                       SHOUTSTREAMER_ERROR_CONNECTION_LOST, SHOUTSTREAMER_ERROR_NO_AUDIO, SHOUTSTREAMER_ERROR_WEB_PAGE,
                       SHOUTSTREAMER_ERROR_BAD_REPLY, SHOUTSTREAMER_ERROR_SECURE_CONNECTION,
                       SHOUTSTREAMER_ERROR_BAD_URL, SHOUTSTREAMER_ERROR_ALREADY_STARTED,
                       SHOUTSTREAMER_ERROR_INTERNAL}) {
    char* text = shoutstreamer_error_as_string(code);
    ASSERT_NE(text, nullptr) << code;
    EXPECT_GT(std::strlen(text), 20u);
    std::free(text);
  }
  char* unavailable = shoutstreamer_error_as_string(SHOUTSTREAMER_ERROR_HTTP_STATUS(503));
  EXPECT_NE(std::string(unavailable).find("503"), std::string::npos);
  std::free(unavailable);
  EXPECT_EQ(shoutstreamer_error_as_string(0), nullptr);
  EXPECT_EQ(shoutstreamer_error_as_string(12345), nullptr);
}
