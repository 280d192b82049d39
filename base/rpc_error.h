// The codes of the host's JSON-RPC errors. docs/errors.md says when each is sent.
#pragma once

enum class RpcError {
  kNone = 0,
  kParse = -32700,
  kInvalidRequest = -32600,
  kUnknownMethod = -32601,
  kInvalidParams = -32602,
  kUnknownUri = -32001,
  kBrokenText = -32002,
  kLimit = -32003,
  kPlatform = -32004,
  kBusy = -32005,
  kForbidden = -32006,
};
