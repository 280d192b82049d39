// What the functions of the TV API share: they find the player, check how far it is, and refuse.
#pragma once

#include <mutex>
#include <string>

#include "core/reply.h"
#include "rooms/media_player/parts.h"

inline constexpr const char* kNoPlayer = "there is no such player";

// Prints why the function fails. Returns the code.
INT32 refuse_player(INT32 code, const char* function, const std::string& why);

// How far a player has to be for a call.
enum class Needs {
  kPlayer,  // it exists
  kFile,    // its file was opened, and has not failed
  kPlaying  // the file is open: playing or paused
};

// The caller holds the session's lock.
INT32 check_stage(const Session& session, Needs needs, const char* function);

// Runs the action on the player under its lock, and wakes its thread. The action returns the result.
template <typename Action>
INT32 with_player(UINT32 handle, Needs needs, const char* function, Action action) {
  const SessionHandle session = session_find(handle);
  if (session == nullptr) return refuse_player(IVEX_PB_ERROR_CODE_INV_HANDLE, function, kNoPlayer);
  const std::lock_guard guard(session->lock);
  const INT32 ready = check_stage(*session, needs, function);
  if (ready != IVEX_PB_ERROR_CODE_OK) return ready;
  const INT32 result = action(*session);
  session->woken = true;
  session->wake.notify_one();
  return result;
}

std::int64_t size_of_file(const Session& session);  // bytes; 0: unknown
