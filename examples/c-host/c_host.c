/* A minimal C host: plays one link, prints each change of state and each
 * title, and stops after a given time or when the playback ends.
 *
 *   cc -std=c99 c_host.c -o c-host $(pkg-config --cflags --libs belvane-c glib-2.0)
 *   ./c-host URL [SECONDS]
 */
#include <belvane/belvane.h>

#include <glib.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static const char *state_name(bv_state state) {
  static const char *const names[] = {"idle", "connecting", "playing", "stopped", "error"};
  return state <= BV_STATE_ERROR ? names[state] : "?";
}

/* Callbacks arrive on GLib's default main context, which main() runs. */
static void on_state(bv_player *player, bv_state from, bv_state to, const bv_player_error *error, void *loop) {
  (void)player;
  printf("state: %s -> %s\n", state_name(from), state_name(to));
  if (error) printf("error: %s\n", error->description);
  if (to == BV_STATE_STOPPED || to == BV_STATE_ERROR) g_main_loop_quit(loop);
}

static void on_attributes(bv_player *player, const char *const *keys, const char *const *values, size_t count,
                          void *userdata) {
  static char last[512];
  size_t i;
  (void)player;
  (void)userdata;
  for (i = 0; i < count; i++) {
    if (strcmp(keys[i], BV_ATTRIBUTE_STREAM_TITLE) == 0 && strcmp(values[i], last) != 0) {
      snprintf(last, sizeof last, "%s", values[i]);
      printf("title: %s\n", values[i]);
    }
  }
}

static gboolean time_is_up(void *loop) {
  g_main_loop_quit(loop);
  return G_SOURCE_REMOVE;
}

int main(int argc, char **argv) {
  GMainLoop *loop;
  bv_player *player;
  int failed, status;

  if (argc < 2) {
    fprintf(stderr, "usage: c-host URL [SECONDS]\n");
    return 2;
  }
  loop = g_main_loop_new(NULL, FALSE);
  player = bv_player_create();
  bv_player_set_state_callback(player, on_state, loop);
  bv_player_set_attribute_callback(player, on_attributes, NULL);

  status = bv_player_play(player, argv[1], NULL);
  if (status != BV_OK) {
    fprintf(stderr, "c-host: %s: %s\n", argv[1], bv_error_string(status));
    return 2;
  }
  g_timeout_add((guint)(1000 * (argc > 2 ? atof(argv[2]) : 10.0)), time_is_up, loop);
  g_main_loop_run(loop);

  failed = bv_player_get_state(player) == BV_STATE_ERROR;
  bv_player_stop(player);
  bv_player_destroy(player);
  g_main_loop_unref(loop);
  return failed ? 1 : 0;
}
