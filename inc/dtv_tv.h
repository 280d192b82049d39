/* The virtual television's own interface: actions of a viewer, and of the outside world, on the set. Its library also
 * defines every function of the TV API; the plugin cannot tell it from a set. */
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

/* Switches the set on. state_folder: an existing folder of this user's that keeps its state (SQLite, survives kill -9);
 * other users have no access to it and its files, and it is locked against other processes until dtv_tv_stop.
 * When it or its database is deleted, renamed or replaced meanwhile, every change is refused.
 * Returns 0, or -1 with ret_error, which the caller frees with free(). Call it before any function of the TV API. */
DTV_TV_EXPORT int32_t dtv_tv_start(const char* state_folder, char** ret_error);

/* Reports that all changes up to and including number `change` are on the disk. Every change has a number; the first of
 * a process is 1. failure: 0, or an errno when the sync failed (EIO, 5, if the cause is not known). After a failed sync
 * the set refuses every change until it is started again. If the folder or a file is no longer in its place, failure is
 * ENOENT, 2, and the set refuses changes until it is back. Called on a thread of the set's own, with no lock held; it
 * must not call dtv_tv_on_kept. */
typedef void (*dtv_tv_kept_fct)(void* context, uint64_t change, int32_t failure);

/* By default, and with null, a change is on the disk when the call that makes it returns. With a function, that call
 * returns when the change is written to the operating system: it survives the end of the process, but not yet a power
 * cut. A thread of the set then syncs it, together with all that was written meanwhile, and calls fct. After this call
 * fct is also called once for the changes that were made before. Returns when the function that was registered before
 * is not running any more. dtv_tv_stop syncs all changes and calls fct for them. */
DTV_TV_EXPORT void dtv_tv_on_kept(dtv_tv_kept_fct fct, void* context);

/* The number of the latest change that this process has written; 0: none. Cheap, from any thread. To acknowledge a
 * call, read the number after the call and wait until it has been reported. Do so even if the call changed nothing: the
 * value that it found may not be on the disk yet. */
DTV_TV_EXPORT uint64_t dtv_tv_last_change(void);

/* Stops the set's threads and closes its state; callbacks have ended when it returns. */
DTV_TV_EXPORT void dtv_tv_stop(void);

/* Does one thing to the set. command: a JSON array of words, for example ["volume","up"]; ["help"] lists them all.
 * Returns a JSON object that the caller frees with free(): what the command reports, or {"error": text}. */
DTV_TV_EXPORT char* dtv_tv_control(const char* command);

/* Types one character into the set's command device. A line end carries the line out before the function returns;
 * "ir.rx.send 0x8f000", for example, is the key POWER as it comes from the infrared receiver. A line that is no command
 * has no effect, and neither has any character while the set is off. From any thread, one command at a time; it never
 * waits for a callback. */
DTV_TV_EXPORT void dtv_tv_command(char character);

/* For tests. manual 1: the set's timers follow a clock that only dtv_tv_advance moves: the sleep timer, the end of a
 * channel number, the pace of HDMI-CEC, the wait for another process at the start. 0: the machine's monotonic clock
 * again. The time of day is the machine's in any case. Call it before dtv_tv_start. */
DTV_TV_EXPORT void dtv_tv_manual_clock(int32_t manual);

/* Lets time pass on the manual clock. What is due by then happens on the calling thread, in its order and each at its
 * time; the callbacks for it come on the thread of the set's own as ever, and have ended when it returns. Without a
 * manual clock it does nothing. From any thread, with no lock held; not from a callback. */
DTV_TV_EXPORT void dtv_tv_advance(uint32_t milliseconds);

#ifdef __cplusplus
}
#endif

#endif
