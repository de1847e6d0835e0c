// The general engine's own audio path (the tap bin MovieAudioTap gives
// playbin, an AudioDelivery writing our output, as the engine's player
// wires them) fed by pipelines other than the engine's playbin, so that a
// benchmark can show what a different pipeline would cost with the same code
// at its end:
//  - Uridecodebin: uridecodebin on the URI straight into the tap bin,
//    without playbin's sink half (playsink) and the queue it puts before
//    every audio sink, which hands each decoded frame to a second thread;
//  - PlaybinWithoutSoftVolume: playbin without its soft-volume flag. The
//    volume element it adds for that flag takes interleaved samples only, so
//    the decoder's planar float is interleaved before it and made planar
//    again in the tap; our output applies the gain itself.
// The delivery announces titles on the run loop of the thread that made
// the EngineTap, which must run that loop while it plays.
#pragma once

#include <gst/gst.h>

#include <memory>
#include <string>

#include "movie/movie_audio_sink.h"
#include "movie/movie_audio_tap.h"
#include "players/audio_delivery.h"

namespace belvane::bench {

enum class TapFeed { Uridecodebin, PlaybinWithoutSoftVolume };

class EngineTap {
 public:
  // Starts playing uri into `output` ("null", "null:fast", ...).
  EngineTap(TapFeed feed, const std::string& uri, const std::string& output) {
    audio_ = detail::AudioDelivery::create();
    audio_->setOutput(output);
    audio_->start();
    tap_ = std::make_unique<detail::MovieAudioTap>(std::make_shared<DeliverySink>(audio_));
    GstElement* sinkBin = tap_->makeSinkBin();
    if (feed == TapFeed::PlaybinWithoutSoftVolume) {
      pipeline_ = gst_element_factory_make("playbin", nullptr);
      guint flags = 0;
      g_object_get(pipeline_, "flags", &flags, nullptr);
      flags &= ~guint(0x10);  // GST_PLAY_FLAG_SOFT_VOLUME
      g_object_set(pipeline_, "uri", uri.c_str(), "flags", flags, "audio-sink", sinkBin, "video-sink",
                   gst_element_factory_make("fakesink", nullptr), nullptr);
    } else {
      pipeline_ = gst_pipeline_new(nullptr);
      GstElement* source = gst_element_factory_make("uridecodebin", nullptr);
      g_object_set(source, "uri", uri.c_str(), nullptr);
      gst_bin_add_many(GST_BIN(pipeline_), source, sinkBin, nullptr);
      g_signal_connect(source, "pad-added", G_CALLBACK(linkAudioPad), sinkBin);
    }
    gst_object_ref_sink(pipeline_);
    gst_element_set_state(pipeline_, GST_STATE_PLAYING);
  }
  ~EngineTap() {
    audio_->interrupt();  // releases a streaming thread blocked in the output
    gst_element_set_state(pipeline_, GST_STATE_NULL);
    gst_object_unref(pipeline_);
    tap_.reset();  // only once no streaming thread can call it
  }
  EngineTap(const EngineTap&) = delete;
  EngineTap& operator=(const EngineTap&) = delete;

  uint64_t framesWritten() const { return audio_->framesWritten(); }

 private:
  class DeliverySink final : public detail::MovieAudioSink {
   public:
    explicit DeliverySink(std::shared_ptr<detail::AudioDelivery> audio) : audio_(std::move(audio)) {}
    void movieAudio(float sampleRate, float** channels, int32_t frames) override {
      audio_->write(sampleRate, channels, frames);
    }
    void movieStreamTitle(const detail::StreamTitle& title) override { audio_->title(title, 0); }
    void movieAudioDiscontinuity() override { audio_->forgetPendingTitles(); }
    void movieAudioEnded() override { audio_->playOut(); }

   private:
    std::shared_ptr<detail::AudioDelivery> audio_;
  };

  // uridecodebin's first audio pad goes to the tap bin.
  static void linkAudioPad(GstElement*, GstPad* pad, gpointer sinkBin) {
    GstPad* sinkPad = gst_element_get_static_pad(GST_ELEMENT(sinkBin), "sink");
    GstCaps* caps = gst_pad_get_current_caps(pad);
    if (!caps) caps = gst_pad_query_caps(pad, nullptr);
    const char* name = gst_structure_get_name(gst_caps_get_structure(caps, 0));
    if (g_str_has_prefix(name, "audio/") && !gst_pad_is_linked(sinkPad)) gst_pad_link(pad, sinkPad);
    gst_caps_unref(caps);
    gst_object_unref(sinkPad);
  }

  std::shared_ptr<detail::AudioDelivery> audio_;
  std::unique_ptr<detail::MovieAudioTap> tap_;
  GstElement* pipeline_ = nullptr;
};

}  // namespace belvane::bench
