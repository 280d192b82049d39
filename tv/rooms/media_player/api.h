// Helpers of this room's functions of the TV API: they find the player, check its stage, and report refusals.
#pragma once

#include <mutex>
#include <string>

#include "core/reply.h"
#include "rooms/media_player/parts.h"

inline constexpr const char* kNoPlayer = "there is no such player";

// Prints on stderr why the function fails. Returns `code`, an IVEX_PB_ERROR_CODE_T.
INT32 refuse_player(INT32 code, const char* function, const std::string& why);

// The stage that a call requires of its player.
enum class Needs {
  kPlayer,  // it exists
  kFile,    // its file was opened, and has not failed
  kPlaying  // the file is open: playing or paused
};

// The caller holds the session's lock.
INT32 check_stage(const Session& session, Needs needs, const char* function);  // 0, or the code of the refusal

// Finds the player, and checks its stage. Then runs the action on it under the session's lock, and wakes its thread.
// Returns the action's result, or the code of the refusal.
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
