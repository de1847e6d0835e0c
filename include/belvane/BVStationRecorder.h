// BVStationRecorder: records a live station without playing it: no
// decoding, no audio output. It reads the station's address through
// Belvane's connection (reconnecting as a player does), splits off the ICY
// titles and writes one file per title exactly as BVBasePlayer's
// startRecording does (the station's own frames, tagged, named from the
// title, the first and last file incomplete). Several recorders may run at
// once, one per station.
//
// The address is the stream itself, or a web playlist (M3U, PLS, ASX,
// XSPF) whose first station is recorded, its other entries tried in turn
// when that station breaks off (one playlist is followed, not a playlist
// in a playlist). Made,
// driven and destroyed on one thread whose run loop runs; the owner hears
// of each file and of the end there. Destroying the recorder ends its
// recording (the last file is incomplete and not announced).
#pragma once

#include <belvane/BVExport.h>

#include <belvane/BVError.h>
#include <belvane/BVObject.h>

#include <memory>
#include <string>

class BVStationRecorder;

class BV_EXPORT BVStationRecorderOwner {
 public:
  virtual ~BVStationRecorderOwner() = default;
  // A file is finished, as BVPlayerOwner::playerRecordedFile.
  virtual void recorderRecordedFile(BVStationRecorder& /*recorder*/, const std::string& /*path*/,
                                    const std::string& /*title*/, bool /*complete*/) {}
  // The recording ended by itself: the station could not be read any more
  // (error in BVShoutstreamerErrorDomain), a full disk (BVBelvaneErrorDomain,
  // BVRecordingErrorDiskFull), or null when the station ended its stream.
  virtual void recorderStopped(BVStationRecorder& /*recorder*/, const BVErrorRef& /*error*/) {}
};

class BV_EXPORT BVStationRecorder : public BVObject {
 public:
  static std::shared_ptr<BVStationRecorder> create();
  ~BVStationRecorder() override;

  // Not owned; clear it before the owner goes away.
  void setOwner(BVStationRecorderOwner* owner) { owner_ = owner; }
  // Starts recording the station at url into folder; null when it started
  // (the connection is made in the background), else why not:
  // BVRecordingErrorFolder, or BVRecordingErrorNothing for an address that
  // is not http(s) or icy, or when this recorder has been started already.
  // A playlist that names no station ends the recording at once
  // (recorderStopped with BVRecordingErrorNothing).
  BVErrorRef startRecording(const std::string& url, const std::string& folder);
  // Ends the recording: its last file is announced, incomplete.
  void stop();
  bool isRecording() const;
  // Compressed bytes of the station received so far.
  uint64_t bytesReceived() const;

  std::string className() const override { return "BVStationRecorder"; }

 private:
  BVStationRecorder() = default;
  struct Reading;
  BVStationRecorderOwner* owner_ = nullptr;
  std::shared_ptr<Reading> reading_;
};
