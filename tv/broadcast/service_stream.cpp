#include "broadcast/service_stream.h"

struct ServiceStream {};
void ServiceStreamEnd::operator()(ServiceStream* stream) const { delete stream; }
ServiceStreamHandle service_stream_start(std::uint16_t) { return nullptr; }
void service_stream_take(ServiceStream&, const PlayoutChunk&, std::vector<std::uint8_t>&) {}
const Pmt* service_stream_pmt(const ServiceStream&) { return nullptr; }
bool service_stream_scrambled(const ServiceStream&) { return false; }
