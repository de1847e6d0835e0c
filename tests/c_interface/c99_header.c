/* belvane.h as a C99 host sees it: compiled with -std=c99 -pedantic and
 * every warning an error, using each declaration once. */
#include <belvane/belvane.h>

#include <stdio.h>

static void on_state(bv_player *player, bv_state from, bv_state to, const bv_player_error *error, void *userdata) {
  (void)player;
  (void)userdata;
  printf("%d -> %d %s\n", (int)from, (int)to, error ? error->description : "");
}

static void on_attributes(bv_player *player, const char *const *keys, const char *const *values, size_t count,
                          void *userdata) {
  size_t i;
  (void)player;
  (void)userdata;
  for (i = 0; i < count; ++i) printf("%s = %s\n", keys[i], values[i]);
}

static void on_log(const char *message, void *userdata) {
  (void)userdata;
  puts(message);
}

static void on_position(bv_player *player, double position, void *userdata) {
  (void)player;
  (void)userdata;
  printf("%f\n", position);
}

int main(void) {
  bv_play_options options = BV_PLAY_OPTIONS_INIT;
  bv_player *player;
  char *text;
  if (bv_version() < BELVANE_MAKE_VERSION(0, 1, 0)) return 1;
  player = bv_player_create();
  bv_player_set_state_callback(player, on_state, NULL);
  bv_player_set_attribute_callback(player, on_attributes, NULL);
  bv_player_set_position_callback(player, on_position, NULL);
  options.mime_type = "audio/mpeg";
  if (bv_player_set_audio_output(player, "null") != BV_OK) puts(bv_error_string(BV_ERROR_INVALID_AUDIO_OUTPUT));
  bv_player_set_volume(player, 0.5);
  bv_player_set_mute(player, 0);
  bv_player_play(player, "http://localhost/", "title");
  bv_player_play_with_options(player, "/tmp/a.mp3", &options);
  printf("%d %f %f %lu %f %d\n", (int)bv_player_get_state(player), bv_player_get_position(player),
         bv_player_get_elapsed_time(player), (unsigned long)bv_player_get_frames_written(player),
         bv_player_get_volume(player), bv_player_get_mute(player));
  text = bv_player_get_attribute(player, BV_ATTRIBUTE_STREAM_TITLE);
  bv_free(text);
  text = bv_player_get_audio_output_name(player);
  bv_free(text);
  printf("%d %d %d %d %d %d %d\n", bv_player_has_position(player), bv_player_pause(player), bv_player_resume(player),
         bv_player_is_paused(player), bv_player_set_position(player, 0.5), bv_player_seek(player, 1.0),
         bv_player_publish_mpris(player, 0));
  bv_set_log_callback(on_log, NULL);
  printf("%d %s\n", bv_error_is_retryable(BV_ERROR_DOMAIN_SHOUTSTREAMER, BV_SHOUTSTREAMER_TIMED_OUT),
         BV_ATTRIBUTE_COMMENT);
  bv_player_stop(player);
  bv_player_destroy(player);
  return 0;
}
