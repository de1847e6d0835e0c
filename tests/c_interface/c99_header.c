/* belvane.h as a C99 host sees it: compiled with -std=c99 -pedantic and
 * every warning an error. Its declarations are checked as they are parsed;
 * the macros, checked only where they are expanded, and the callback types
 * are used here. */
#include <belvane/belvane.h>

#include <stdio.h>

static void on_state(bv_player *player, bv_state from, bv_state to, const bv_player_error *error, void *userdata) {
  (void)player;
  (void)userdata;
  printf("%d -> %d %s\n", (int)from, (int)to, error ? error->description : "");
}

static void on_attributes(bv_player *player, const char *const *keys, const char *const *values, size_t count,
                          void *userdata) {
  (void)player;
  (void)userdata;
  if (count > 0) printf("%s = %s\n", keys[0], values[0]);
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
  bv_player *player = bv_player_create();
  if (bv_version() < BELVANE_MAKE_VERSION(0, 1, 0)) return 1;
  bv_player_set_state_callback(player, on_state, NULL);
  bv_player_set_attribute_callback(player, on_attributes, NULL);
  bv_player_set_position_callback(player, on_position, NULL);
  bv_set_log_callback(on_log, NULL);
  options.mime_type = "audio/mpeg";
  if (bv_player_play_with_options(player, "/tmp/a.mp3", &options) != BV_OK)
    puts(bv_error_string(BV_ERROR_INVALID_AUDIO_OUTPUT));
  printf("%d %s %s\n", bv_error_is_retryable(BV_ERROR_DOMAIN_SHOUTSTREAMER, BV_SHOUTSTREAMER_TIMED_OUT),
         BV_ATTRIBUTE_COMMENT, BV_ATTRIBUTE_STREAM_TITLE);
  bv_player_destroy(player);
  return 0;
}
