/* The virtual television's own interface: what a viewer, or the world, does to a set. Its library also defines every
 * function of the TV API; the plugin cannot tell it from a set. */
#ifndef DTV_TV_H
#define DTV_TV_H

#include <stdint.h>

#define DTV_TV_EXPORT __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

/* Switches the set on. state_folder: an existing folder that keeps its state (SQLite, survives kill -9).
 * Returns 0, or -1 with ret_error, which the caller frees with free(). Call it before any function of the TV API. */
DTV_TV_EXPORT int32_t dtv_tv_start(const char* state_folder, char** ret_error);

/* Stops the set's threads and closes its state; callbacks have ended when it returns. */
DTV_TV_EXPORT void dtv_tv_stop(void);

/* Does one thing to the set. command: a JSON array of words, for example ["volume","up"]; ["help"] lists them all.
 * Returns a JSON object that the caller frees with free(): what the command reports, or {"error": text}. */
DTV_TV_EXPORT char* dtv_tv_control(const char* command);

/* Types one character into the set's command device. A line end carries the line out before the function returns;
 * "ir.rx.send 0x8f000", for example, is the key POWER as it comes from the infrared receiver. What is no command does
 * nothing, and so does any character while the set is off. From any thread, one command at a time; it never waits for
 * a callback. */
DTV_TV_EXPORT void dtv_tv_command(char character);

#ifdef __cplusplus
}
#endif

#endif
