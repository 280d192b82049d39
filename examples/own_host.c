/* A host of your own: sets the volume of a virtual television, and prints the notification and the new volume.
 *
 *   cc own_host.c -o own_host $(pkg-config --cflags --libs dtv_js_plugin dtv_tap dtv_tv)
 *   ./own_host STATE_FOLDER 23
 *
 * Where the libraries are not in a folder that the loader searches, LD_LIBRARY_PATH names it.
 *
 * The plugin calls the functions of the TV API by name, and both the tap and the virtual television define them. The
 * loader takes the first definition in the order of the command line: the tap's, which forwards each call to the next
 * definition, the television's. Link dtv_tv without dtv_tap, and the plugin calls the television directly; nobody then
 * reports when a notification is pending, so the host polls for it. */
#define _POSIX_C_SOURCE 200809L /* clock_gettime */
#include <dtv_js_plugin.h>
#include <dtv_tap.h>
#include <dtv_tv.h>
#include <semaphore.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

static const char volume_uri[] = "/tv/cast/volume/volume";
static const char notify_uri[] = "/tv/ws/notify/volume_ctrl";

static sem_t event; /* posted once per callback of the platform */

/* Runs on the platform's thread, so it only wakes the main thread up. */
static void on_event(void* context) { sem_post(context); }

static int fail(const char* what) {
  fprintf(stderr, "own_host: %s\n", what);
  return 1;
}

static int set_volume(int volume) {
  char parameter[80];
  snprintf(parameter, sizeof parameter, "{\"PARAMETER\":{\"REQUEST\":\"MODIFY\",\"VALUE\":%d}}", volume);
  return a_dtv_jsp_set(volume_uri, parameter);
}

static int print_volume(void) {
  /* The plugin writes no terminator: the buffer is cleared beforehand and has room for one. */
  char response[DTV_JSP_RESPONSE_MAX + 1] = {0};
  const int ret = a_dtv_jsp_get(volume_uri, NULL, response);
  puts(response);
  return ret;
}

/* Waits for the next notification and prints it. Returns 0, or -1 when none came in five seconds. */
static int print_notification(void) {
  static char text[65536];
  struct timespec end;
  clock_gettime(CLOCK_REALTIME, &end);
  end.tv_sec += 5;
  while (sem_timedwait(&event, &end) == 0) {
    /* The callback may have been about something else: then nothing is pending for this URI. */
    memset(text, 0, sizeof text);
    a_dtv_jsp_get_listener_buffer(notify_uri, text, sizeof text - 1);
    if (*text) return puts(text) < 0 ? -1 : 0;
  }
  return -1;
}

static int use(int volume) {
  a_dtv_jsp_add_listener_buffer(notify_uri);
  if (set_volume(volume) != 0) return fail("the volume cannot be set");
  if (print_notification() != 0)
    fputs("own_host: no notification came; the volume may have been this before\n", stderr);
  if (print_volume() != 0) return fail("the volume cannot be read");
  a_dtv_jsp_remove_listener_buffer(notify_uri);
  return 0;
}

int main(int count, char** arguments) {
  if (count != 3) return fail("usage: own_host STATE_FOLDER VOLUME");
  char* end = NULL;
  const int volume = (int)strtol(arguments[2], &end, 10);
  if (*arguments[2] == '\0' || *end != '\0') return fail("the volume is not a number");
  char* error = NULL;
  if (dtv_tv_start(arguments[1], &error) != 0) {
    fail(error);
    free(error);
    return 1;
  }
  sem_init(&event, 0, 0);
  dtv_tap_on_event(on_event, &event);
  a_dtv_jsp_init_res();
  a_dtv_jsp_init();
  const int result = use(volume);
  dtv_tap_on_event(NULL, NULL);
  dtv_tv_stop(); /* afterwards no callback runs */
  return result;
}
