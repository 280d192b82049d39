/* The virtual television's own interface: actions of a viewer, and of the outside world, on the set. Its library also
 * defines every function of the TV API, as a real set's does. */
#ifndef DTV_TV_H
#define DTV_TV_H

#include <stdint.h>

#define DTV_TV_EXPORT __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

/* Sets the stick root: only folders inside it can become USB sticks. folder: absolute, or relative to the working
 * directory. By default, and with null, it is $HOME; if HOME is not set, no folder can become a stick. Call it before
 * dtv_tv_start. */
DTV_TV_EXPORT void dtv_tv_stick_root(const char* folder);

/* Connects the antenna to a folder of transport streams, in place of the one that the set has stored. folder: absolute,
 * or relative to the working directory; any folder, also outside the stick root, to which the command "antenna" is
 * confined. By default, and with null, the antenna is connected as stored. Call it before dtv_tv_start. */
DTV_TV_EXPORT void dtv_tv_antenna(const char* folder);

/* Names the network interfaces through which the set uses the home network, for example "eth0" or "lo,eth0". The
 * default, also for null, is "lo": the set neither searches for other machines nor answers them. The set sends nothing
 * before a viewer or an application uses the home network. Call it before dtv_tv_start. */
DTV_TV_EXPORT void dtv_tv_home_interfaces(const char* names);

/* Switches the set on. state_folder: an existing folder of this user's, in which the set stores its state (SQLite,
 * survives kill -9). The set removes other users' access to the folder, and locks it against other processes until
 * dtv_tv_stop. If the folder or its database is deleted, renamed or replaced meanwhile, the set refuses every change.
 * Returns 0, or -1 with ret_error, which the caller frees with free(). Call it before any function of the TV API. */
DTV_TV_EXPORT int32_t dtv_tv_start(const char* state_folder, char** ret_error);

/* Reports that all changes up to and including number `change` are on the disk, or have failed. Every change has a
 * number; a process's first is 1. failure: 0, or an errno if the sync failed (EIO, 5, if the cause is not known). After
 * a failed sync the set refuses every change until it is started again. If the folder or a file is no longer in its
 * place, failure is ENOENT, 2, and the set refuses changes until it is back. The set calls it on its sync thread, with
 * no lock held; it must not call dtv_tv_on_kept. */
typedef void (*dtv_tv_kept_fct)(void* context, uint64_t change, int32_t failure);

/* By default, and with null, a change is on the disk when the call that makes it returns. With a function, that call
 * returns when the change is written to the operating system: it survives the end of the process, but not yet a power
 * cut. The set's sync thread then syncs it, together with all changes written meanwhile, and calls fct. fct is also
 * called once for the changes made before its registration. dtv_tv_on_kept returns when the function registered before
 * is no longer running. dtv_tv_stop syncs all changes and calls fct for them. */
DTV_TV_EXPORT void dtv_tv_on_kept(dtv_tv_kept_fct fct, void* context);

/* Returns the number of the latest change that this process has written; 0: none. Cheap, from any thread. To
 * acknowledge a call, read the number after the call and wait until it has been reported. Do so even if the call
 * changed nothing: the value that the call found may not be on the disk yet. */
DTV_TV_EXPORT uint64_t dtv_tv_last_change(void);

/* Switches the set off: stops its threads and closes its state. No callback is running when it returns. */
DTV_TV_EXPORT void dtv_tv_stop(void);

/* Runs a control command. command: a JSON array of words, for example ["volume","up"]; ["help"] lists all commands.
 * Returns a JSON object that the caller frees with free(): the command's reply, or {"error": text}. */
DTV_TV_EXPORT char* dtv_tv_control(const char* command);

/* Gives the newest frame of the set's screen, a JPEG of 640x360 pixels, if its number is greater than `after`: then
 * *ret_jpeg are its *ret_size bytes, which the caller frees with free(), else both are untouched. Returns the newest
 * frame's number, which grows, also from one start to the next; 0: the set is off, has no memory, or was built without
 * a picture. Asking counts as looking for 2 seconds: while nobody looks, the picture is not decoded, and the newest
 * frame is an empty one. Cheap and without waiting, from any thread. For a picture, the process's LC_NUMERIC must be
 * "C", as it is unless the process calls setlocale. */
DTV_TV_EXPORT uint64_t dtv_tv_screen(uint64_t after, uint8_t** ret_jpeg, uint32_t* ret_size);

/* Types one character into the set's command device. A line feed runs the line's command before the function returns:
 * "ir.rx.send 0x8f000", for example, is the key POWER as the infrared receiver sends it. A line that is not a command
 * has no effect, and characters typed while the set is off are ignored. From any thread, but lines must not overlap. It
 * never waits for a callback. */
DTV_TV_EXPORT void dtv_tv_command(char character);

/* For tests. manual 1: all timers of the set and its time of day use a clock that only dtv_tv_advance moves: the sleep
 * timer, the end of a channel number, the pace of HDMI-CEC, the wait for another process at the start. It begins at the
 * machine's time. 0: they use the machine's clocks again. Call it before dtv_tv_start. */
DTV_TV_EXPORT void dtv_tv_manual_clock(int32_t manual);

/* Advances the manual clock. Timers that become due run on the calling thread, in order, each at its time. Their
 * callbacks run on the set's event thread as usual, and have returned when this function returns. Without a manual
 * clock it does nothing. From any thread, with no lock held; not from a callback. */
DTV_TV_EXPORT void dtv_tv_advance(uint32_t milliseconds);

#ifdef __cplusplus
}
#endif

#endif
