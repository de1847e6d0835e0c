// BVAudioOutputs: the sound server's sinks, through libpulse on a private
// main loop run on the calling thread (bounded by a deadline), and ALSA's
// playback devices from its name hints.
#include <belvane/BVAudioOutputs.h>

#include <alsa/asoundlib.h>
#include <pulse/pulseaudio.h>

#include <chrono>

namespace {

using Clock = std::chrono::steady_clock;
// The longest a listing waits for the sound server.
constexpr auto kServerPatience = std::chrono::seconds(2);

struct SinkQuery {
  std::vector<BVAudioOutput> sinks;
  std::string defaultSink;
  int pending = 0;  // answers still to come
};

void serverInfo(pa_context*, const pa_server_info* info, void* data) {
  auto* query = static_cast<SinkQuery*>(data);
  if (info && info->default_sink_name) query->defaultSink = info->default_sink_name;
  --query->pending;
}

void sinkInfo(pa_context*, const pa_sink_info* info, int eol, void* data) {
  auto* query = static_cast<SinkQuery*>(data);
  if (eol) {
    --query->pending;
    return;
  }
  if (info) query->sinks.push_back({std::string("pulse:") + info->name, info->description ? info->description : "", false});
}

std::vector<BVAudioOutput> pulseSinks() {
  SinkQuery query;
  pa_mainloop* loop = pa_mainloop_new();
  if (!loop) return {};
  pa_context* context = pa_context_new(pa_mainloop_get_api(loop), "Belvane");
  bool asked = false;
  if (context && pa_context_connect(context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) >= 0) {
    const auto deadline = Clock::now() + kServerPatience;
    while (Clock::now() < deadline) {
      pa_context_state_t state = pa_context_get_state(context);
      if (!PA_CONTEXT_IS_GOOD(state)) break;
      if (state == PA_CONTEXT_READY && !asked) {
        asked = true;
        query.pending = 2;
        if (pa_operation* op = pa_context_get_server_info(context, serverInfo, &query)) pa_operation_unref(op);
        else --query.pending;
        if (pa_operation* op = pa_context_get_sink_info_list(context, sinkInfo, &query)) pa_operation_unref(op);
        else --query.pending;
      }
      if (asked && query.pending <= 0) break;
      // Short steps, so that the deadline holds against a silent server.
      if (pa_mainloop_prepare(loop, 50 * 1000) < 0 || pa_mainloop_poll(loop) < 0 || pa_mainloop_dispatch(loop) < 0)
        break;
    }
  }
  if (context) {
    pa_context_disconnect(context);
    pa_context_unref(context);
  }
  pa_mainloop_free(loop);
  if (!asked || query.pending > 0) return {};
  for (auto& sink : query.sinks) sink.isDefault = sink.name == "pulse:" + query.defaultSink;
  return query.sinks;
}

// ALSA's hints, playback devices only; "null" and the like are listed too,
// as ALSA's own configuration defines them.
std::vector<BVAudioOutput> alsaDevices() {
  std::vector<BVAudioOutput> devices;
  void** hints = nullptr;
  if (snd_device_name_hint(-1, "pcm", &hints) < 0 || !hints) return devices;
  for (void** hint = hints; *hint; ++hint) {
    char* name = snd_device_name_get_hint(*hint, "NAME");
    char* description = snd_device_name_get_hint(*hint, "DESC");
    char* direction = snd_device_name_get_hint(*hint, "IOID");  // NULL: both ways
    if (name && (!direction || std::string(direction) == "Output")) {
      std::string text = description ? description : "";
      text = text.substr(0, text.find('\n'));
      devices.push_back({std::string("alsa:") + name, text, std::string(name) == "default"});
    }
    free(name);
    free(description);
    free(direction);
  }
  snd_device_name_free_hint(hints);
  return devices;
}

}  // namespace

std::vector<BVAudioOutput> BVAudioOutputs() {
  std::vector<BVAudioOutput> outputs = pulseSinks();
  std::vector<BVAudioOutput> alsa = alsaDevices();
  outputs.insert(outputs.end(), alsa.begin(), alsa.end());
  return outputs;
}
