// Takes one service out of a multiplex: a transport stream with one program, for the player and for recordings. When
// the playout begins again, PCR, PTS, DTS and the continuity counters go on, so that the stream is endless.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "broadcast/playout.h"
#include "broadcast/tables.h"

struct ServiceStream;

struct ServiceStreamEnd {
  void operator()(ServiceStream* stream) const;
};
using ServiceStreamHandle = std::unique_ptr<ServiceStream, ServiceStreamEnd>;

ServiceStreamHandle service_stream_start(std::uint16_t service);

// Appends the packets of the service in the chunk, with a PAT and a PMT of its own before the first and with each new
// PMT of the multiplex. Packets before the service's PMT are not passed on.
void service_stream_take(ServiceStream& stream, const PlayoutChunk& chunk, std::vector<std::uint8_t>& ret_packets);

// The newest PMT of the service; null: none has arrived. Valid until the next service_stream_take.
const Pmt* service_stream_pmt(const ServiceStream& stream);

// Whether packets of the service's video or audio came scrambled (transport_scrambling_control).
bool service_stream_scrambled(const ServiceStream& stream);
