// Recording live stations title by title, on both engines: an ICY MP3
// station (the MP3 streamer) and an ICY AAC station (the general engine)
// with scripted titles give one file per title, each the station's own bytes
// from its title's first frame to the next title's, tagged and named from
// the title, the first and last marked incomplete, each decoding on its own;
// the current title recorded from its start out of the ring; a folder that
// takes no files and a full disk end with a worded error and a readable file;
// a chained Ogg station cut at its chains; a station recorded without
// listening through its playlist.
#include <belvane/BVConstants.h>
#include <belvane/BVMasterPlayer.h>
#include <belvane/BVStationRecorder.h>

#include "quicktime_test_support.h"
#include "streaming/station_tap.h"
#include "support/icy_test_server.h"
#include "support/mp3_test_data.h"
#include "support/temp_dir.h"

#include <gst/gst.h>
#include <gtest/gtest.h>
#include <taglib/id3v2tag.h>
#include <taglib/mpegfile.h>
#include <taglib/vorbisfile.h>

#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>

using namespace belvane::test;
using belvane::detail::RecordedFile;
using belvane::detail::RecordingProblem;
using belvane::detail::StationTap;

namespace {

struct FileEvent {
  std::string path, title;
  bool complete;
};

class RecordingFilesOwner : public RecordingOwner {
 public:
  std::vector<FileEvent> files;
  std::vector<BVErrorRef> stops;
  void playerRecordedFile(BVBasePlayer&, const std::string& path, const std::string& title, bool complete) override {
    files.push_back({path, title, complete});
  }
  void playerRecordingStopped(BVBasePlayer&, const BVErrorRef& error) override { stops.push_back(error); }
};

// Titles every fourth metadata block, named "Artist n - Song n".
std::string songForBlock(int block) {
  return block % 4 == 0 ? "Artist " + std::to_string(block / 4) + " - Song " + std::to_string(block / 4) : "";
}

// Where the first frame at or after offset starts in a station that sends
// data's frames round and round.
uint64_t frameAtOrAfter(const Mp3Data& data, uint64_t offset) {
  const uint64_t cycle = data.bytes.size();
  const uint64_t base = offset / cycle * cycle;
  for (const auto& frame : data.frames)
    if (base + frame.offset >= offset) return base + frame.offset;
  return base + cycle;
}

std::string stationBytes(const Mp3Data& data, uint64_t from, uint64_t to) {
  std::string out;
  for (uint64_t at = from; at < to;) {
    uint64_t in = at % data.bytes.size();
    uint64_t n = std::min<uint64_t>(to - at, data.bytes.size() - in);
    out.append(data.bytes, in, n);
    at += n;
  }
  return out;
}

// The file's bytes after its ID3v2 tag.
std::string audioOf(const std::string& path) {
  std::string bytes = readWholeFile(path);
  if (bytes.size() < 10 || bytes.compare(0, 3, "ID3") != 0) return bytes;
  size_t size = 10;
  for (int i = 6; i < 10; ++i) size += size_t(uint8_t(bytes[i]) & 0x7F) << (7 * (9 - i));
  return bytes.substr(std::min(size, bytes.size()));
}

// Whether GStreamer decodes the file to its end without an error.
bool decodesOnItsOwn(const std::string& path) {
  gst_init(nullptr, nullptr);
  GError* error = nullptr;
  gchar* location = g_strescape(path.c_str(), nullptr);
  std::string description = std::string("filesrc location=\"") + location + "\" ! decodebin ! fakesink sync=false";
  g_free(location);
  GstElement* pipeline = gst_parse_launch(description.c_str(), &error);
  if (!pipeline || error) return false;
  gst_element_set_state(pipeline, GST_STATE_PLAYING);
  GstBus* bus = gst_element_get_bus(pipeline);
  GstMessage* message =
      gst_bus_timed_pop_filtered(bus, 10 * GST_SECOND, GstMessageType(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
  bool ok = message && GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS;
  if (message) gst_message_unref(message);
  gst_object_unref(bus);
  gst_element_set_state(pipeline, GST_STATE_NULL);
  gst_object_unref(pipeline);
  return ok;
}

struct Station {
  TempDir media;
  Mp3Data aac;
  const Mp3Data* data = nullptr;
  IcyTestServer server;
  explicit Station(bool isAAC, uint64_t audioBytes = 8192 * 4 * 40) {
    IcyStreamScript script;
    if (isAAC) {
      aac = splitAdtsFrames(readWholeFile(writeMediaFile(media.path() + "/tone.aac", MediaKind::ADTS, 3.0)));
      data = &aac;
      script.contentType = "audio/aacp";
    } else {
      data = stereoTone44k();
    }
    script.audio = {data};
    script.titleForBlock = songForBlock;
    script.audioBytes = audioBytes;
    server.serve("/live", {script});
  }
};

struct RecordingRun {
  std::shared_ptr<BVMasterPlayer> master = BVMasterPlayer::create();
  RecordingFilesOwner owner;
  RecordingRun() {
    master->setAudioOutput("null:fast");
    master->setOwner(&owner);
  }
  ~RecordingRun() { master->setOwner(nullptr); }
  bool runUntil(const std::function<bool()>& done, double seconds = 30.0) {
    return BVRunLoop::main().runUntil(done, seconds);
  }
};

}  // namespace

class StationRecording : public ::testing::TestWithParam<bool> {};

TEST_P(StationRecording, CutsOneFileOfTheStationsOwnFramesPerTitle) {
  const bool isAAC = GetParam();
  if (!isAAC) BELVANE_SKIP_WITHOUT_LAME();
  Station station(isAAC);
  ASSERT_FALSE(station.data->frames.empty());
  TempDir folder;
  RecordingRun run;
  run.master->playLink(linkTo(station.server.url("/live")));
  ASSERT_EQ(run.master->startRecording(folder.path()), nullptr);
  EXPECT_TRUE(run.master->isRecording());
  constexpr size_t kWholeTitles = 5;
  ASSERT_TRUE(run.runUntil([&] { return run.owner.files.size() >= kWholeTitles + 1; }));
  run.master->stopRecording();
  ASSERT_TRUE(run.runUntil([&] { return run.owner.files.size() >= kWholeTitles + 2; }, 5.0));
  EXPECT_FALSE(run.master->isRecording());

  const auto& files = run.owner.files;
  auto marks = station.server.titles();
  const int connection = marks.back().connection;
  std::erase_if(marks, [&](const IcyTitleMark& m) { return m.connection != connection; });
  ASSERT_GT(marks.size(), kWholeTitles);
  const char* extension = isAAC ? ".aac" : ".mp3";
  // The station's first frames come before its first title, which names
  // them: the first file is that title's, incomplete; so is the last.
  EXPECT_FALSE(files.front().complete);
  EXPECT_EQ(files.front().path, folder.path() + "/" + marks[0].title + " (incomplete)" + extension);
  EXPECT_FALSE(files.back().complete);
  EXPECT_NE(files.back().path.find(" (incomplete)"), std::string::npos) << files.back().path;
  for (size_t i = 1; i <= kWholeTitles; ++i) {
    const FileEvent& file = files[i];
    SCOPED_TRACE(file.path);
    EXPECT_TRUE(file.complete);
    EXPECT_EQ(file.title, marks[i].title);
    EXPECT_EQ(file.path, folder.path() + "/" + marks[i].title + extension);
    const uint64_t from = frameAtOrAfter(*station.data, marks[i].audioOffset);
    const uint64_t to = frameAtOrAfter(*station.data, marks[i + 1].audioOffset);
    const std::string audio = audioOf(file.path);
    EXPECT_EQ(audio.size(), to - from);
    EXPECT_TRUE(audio == stationBytes(*station.data, from, to)) << "the file's audio is not the station's bytes";
    TagLib::MPEG::File tagged(file.path.c_str());
    ASSERT_NE(tagged.ID3v2Tag(), nullptr);
    EXPECT_EQ(tagged.ID3v2Tag()->artist().to8Bit(true), "Artist " + std::to_string(i));
    EXPECT_EQ(tagged.ID3v2Tag()->title().to8Bit(true), "Song " + std::to_string(i));
  }
  EXPECT_TRUE(decodesOnItsOwn(files[1].path));
  EXPECT_TRUE(decodesOnItsOwn(files.back().path));
}

INSTANTIATE_TEST_SUITE_P(Codecs, StationRecording, ::testing::Values(false, true),
                         [](const auto& info) { return info.param ? "AAC" : "MP3"; });

// The title that plays is recorded from its first frame, which the ring
// still holds; a second recording of it gets a name of its own.
TEST(StationRecordingFromTheRing, TheCurrentTitleStartsAtItsFirstFrame) {
  BELVANE_SKIP_WITHOUT_LAME();
  Station station(false);
  TempDir folder;
  RecordingRun run;
  run.master->playLink(linkTo(station.server.url("/live")));
  EXPECT_EQ(run.master->recordCurrentTitleFromItsStart(folder.path())->code(), BVRecordingErrorNothing);
  ASSERT_TRUE(run.runUntil([&] { return run.owner.titles.size() >= 3; }));
  ASSERT_EQ(run.master->recordCurrentTitleFromItsStart(folder.path()), nullptr);
  ASSERT_TRUE(run.runUntil([&] { return !run.owner.files.empty(); }));
  run.master->stopRecording();
  const FileEvent file = run.owner.files.front();
  EXPECT_TRUE(file.complete) << file.path;
  auto marks = station.server.titles();
  auto mark = std::find_if(marks.begin(), marks.end(), [&](auto& m) { return m.title == file.title; });
  ASSERT_NE(mark, marks.end());
  ASSERT_NE(mark + 1, marks.end());
  const uint64_t from = frameAtOrAfter(*station.data, mark->audioOffset);
  const uint64_t to = frameAtOrAfter(*station.data, (mark + 1)->audioOffset);
  EXPECT_TRUE(audioOf(file.path) == stationBytes(*station.data, from, to));
  EXPECT_GT(run.master->timeShiftSecondsHeld(), 1.0);
}

// A folder that takes no files is refused at once; a full disk (a file
// size limit, here) stops the recording with a worded error, and the file
// cut short ends on a whole frame and decodes.
TEST(StationRecordingFailures, AnUnwritableFolderAndAFullDiskEndWithAWordedError) {
  BELVANE_SKIP_WITHOUT_LAME();
  Station station(false);
  TempDir folder;
  RecordingRun run;
  run.master->playLink(linkTo(station.server.url("/live")));
  std::string notAFolder = folder.write("file", "x");
  for (const std::string& bad : {notAFolder, notAFolder + "/below", folder.path() + "/missing"}) {
    BVErrorRef error = run.master->startRecording(bad);
    ASSERT_NE(error, nullptr) << bad;
    EXPECT_EQ(error->code(), BVRecordingErrorFolder);
    EXPECT_NE(error->localizedDescription().find(bad), std::string::npos) << error->localizedDescription();
  }
  EXPECT_FALSE(run.master->isRecording());

  constexpr rlim_t kLimit = 20000;
  struct rlimit old {};
  getrlimit(RLIMIT_FSIZE, &old);
  auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
  struct rlimit limit = old;
  limit.rlim_cur = kLimit;
  setrlimit(RLIMIT_FSIZE, &limit);
  ASSERT_EQ(run.master->startRecording(folder.path()), nullptr);
  bool stopped = run.runUntil([&] { return !run.owner.stops.empty(); });
  setrlimit(RLIMIT_FSIZE, &old);
  std::signal(SIGXFSZ, oldHandler);
  ASSERT_TRUE(stopped);
  ASSERT_NE(run.owner.stops.front(), nullptr);
  EXPECT_EQ(run.owner.stops.front()->code(), BVRecordingErrorDiskFull);
  EXPECT_NE(run.owner.stops.front()->localizedDescription().find("full"), std::string::npos);
  EXPECT_FALSE(run.master->isRecording());
  ASSERT_FALSE(run.owner.files.empty());
  const FileEvent& cut = run.owner.files.back();
  EXPECT_FALSE(cut.complete);
  struct stat info {};
  ASSERT_EQ(stat(cut.path.c_str(), &info), 0);
  EXPECT_LE(info.st_size, off_t(kLimit));
  EXPECT_TRUE(decodesOnItsOwn(cut.path)) << cut.path;
}

// Recording without listening, given the station's playlist: the playlist
// is read once and its first entry recorded title by title, one request
// each; a playlist that names no station ends the recording with that said.
TEST(StationRecorderWithoutListening, FollowsAPlaylistToItsStation) {
  BELVANE_SKIP_WITHOUT_LAME();
  Station station(false);
  station.server.http().route("/station.pls", belvane::test::Response::ok(
      "audio/x-scpls", "[playlist]\nNumberOfEntries=2\nFile1=/live\nFile2=/mirror\n"));
  station.server.http().route("/empty.m3u", belvane::test::Response::ok("audio/x-mpegurl", "#EXTM3U\n"));
  struct Owner : BVStationRecorderOwner {
    std::vector<std::string> titles;
    std::vector<BVErrorRef> stops;
    void recorderRecordedFile(BVStationRecorder&, const std::string&, const std::string& title, bool) override {
      titles.push_back(title);
    }
    void recorderStopped(BVStationRecorder&, const BVErrorRef& error) override { stops.push_back(error); }
  } owner, emptyOwner;
  TempDir folder;
  auto recorder = BVStationRecorder::create();
  recorder->setOwner(&owner);
  ASSERT_EQ(recorder->startRecording(station.server.url("/station.pls"), folder.path()), nullptr);
  auto empty = BVStationRecorder::create();
  empty->setOwner(&emptyOwner);
  ASSERT_EQ(empty->startRecording(station.server.url("/empty.m3u"), folder.path()), nullptr);
  ASSERT_TRUE(BVRunLoop::main().runUntil([&] { return owner.titles.size() >= 3 && !emptyOwner.stops.empty(); }, 30));
  EXPECT_EQ(owner.titles[0], "Artist 0 - Song 0");
  EXPECT_EQ(station.server.http().requestCount("/station.pls"), 1);
  EXPECT_EQ(station.server.connections("/live"), 1);
  ASSERT_NE(emptyOwner.stops.front(), nullptr);
  EXPECT_EQ(emptyOwner.stops.front()->code(), BVRecordingErrorNothing);
  EXPECT_NE(emptyOwner.stops.front()->localizedDescription().find("names no station"), std::string::npos);
  recorder->setOwner(nullptr);
  empty->setOwner(nullptr);
}

// A chained Ogg Vorbis station (a chain per song, as Icecast's Ogg mounts
// send them), fed to the station's tap as it arrives: a recording started in
// the middle of the first song gives a file that begins with that chain's
// headers and decodes; each following chain is a file of exactly the
// chain's bytes, named from its own comment header; a title sent by ICY
// inside a chain cuts there and is written into the new file's comment.
TEST(StationRecordingOgg, CutsAtEachChainAndStartsMidChainFilesWithTheirHeaders) {
  TempDir media, folder;
  std::vector<std::string> chains;
  for (int i = 0; i < 3; ++i) {
    std::string n = std::to_string(i);
    chains.push_back(readWholeFile(writeMediaFile(media.path() + "/" + n + ".ogg", MediaKind::OggVorbis, 3.0,
                                                  {{"artist", "Artist " + n}, {"title", "Song " + n}})));
  }
  std::vector<RecordedFile> files;
  StationTap tap;
  tap.setHandlers([&](const RecordedFile& file) { files.push_back(file); }, nullptr);
  tap.connectionStarted();
  auto feed = [&](const std::string& bytes) {
    tap.audio({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()});
  };
  // The recording starts once the first song's audio has begun.
  size_t fed = 0;
  for (; fed < chains[0].size() && tap.reading().endFrame < 5; fed += 512) feed(chains[0].substr(fed, 512));
  ASSERT_LT(fed, chains[0].size());
  ASSERT_EQ(tap.startRecording(folder.path(), false, nullptr), RecordingProblem::None);
  feed(chains[0].substr(fed));
  feed(chains[1]);
  const size_t third = chains[2].size() / 3;
  feed(chains[2].substr(0, third));
  tap.title({"Station ID", ""});
  feed(chains[2].substr(third));
  tap.stopRecording();

  ASSERT_EQ(files.size(), 4u);
  EXPECT_FALSE(files[0].complete);
  EXPECT_EQ(files[0].title, "Artist 0 - Song 0");
  EXPECT_TRUE(decodesOnItsOwn(files[0].path)) << files[0].path;
  EXPECT_TRUE(files[1].complete);
  EXPECT_EQ(files[1].path, folder.path() + "/Artist 1 - Song 1.ogg");
  EXPECT_TRUE(readWholeFile(files[1].path) == chains[1]) << "the file is not the chain's own bytes";
  EXPECT_EQ(files[3].title, "Station ID");
  EXPECT_TRUE(decodesOnItsOwn(files[3].path)) << files[3].path;
  TagLib::Ogg::Vorbis::File tagged(files[3].path.c_str());
  ASSERT_TRUE(tagged.tag());
  EXPECT_EQ(tagged.tag()->title().to8Bit(true), "Station ID");
}
