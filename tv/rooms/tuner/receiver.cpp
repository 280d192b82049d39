#include "rooms/tuner/receiver.h"

#include <mutex>
#include <utility>
#include <vector>

using std::chrono::microseconds;

struct Receiver {
  ServiceKey key;
  ReceiverUser user;
  std::mutex lock;  // guards the members up to held
  ReceiverFacts facts;
  ReceiverOutput output = ReceiverOutput::kOff;
  ServiceStreamHandle stream;
  std::vector<std::uint8_t> held;
  // The reception's thread alone uses these; times are those of the chunks.
  std::vector<std::uint8_t> taken;  // of one chunk
  std::vector<std::uint8_t> passing;
  bool has_news = false;
  microseconds next_news{0};
  microseconds clear_from{0};
  ReceptionHandle reception;  // set once, before anybody else sees the receiver
};

namespace {

// Copies what the stream says about the service. The caller holds the lock. Returns whether it is new.
bool note_facts(Receiver& receiver, microseconds now) {
  const Pmt* const pmt = service_stream_pmt(*receiver.stream);
  if (pmt == nullptr) return false;  // the stream has just been restarted
  if (service_stream_scrambled(*receiver.stream)) receiver.clear_from = now + kClearAfter;
  const bool scrambled = now < receiver.clear_from;
  const auto& known = receiver.facts.pmt;
  const bool new_pmt = !known || known->version != pmt->version;
  if (!new_pmt && scrambled == receiver.facts.scrambled) return false;
  if (new_pmt) receiver.facts.pmt = *pmt;
  receiver.facts.scrambled = scrambled;
  return true;
}

// Keeps the packets, or moves them to `passing`. The caller holds the lock.
void sort_packets(Receiver& receiver) {
  if (receiver.output == ReceiverOutput::kHold && receiver.held.size() + receiver.taken.size() > kMostHeldPackets) {
    receiver.stream = service_stream_start(receiver.key.service);  // sends its PAT and PMT again
    receiver.held.clear();
  } else if (receiver.output != ReceiverOutput::kOff) {
    receiver.held.insert(receiver.held.end(), receiver.taken.begin(), receiver.taken.end());
  }
  if (receiver.output == ReceiverOutput::kPass) receiver.passing.swap(receiver.held);
}

void take(void* context, const PlayoutChunk& chunk) {
  Receiver& receiver = *static_cast<Receiver*>(context);
  receiver.taken.clear();
  receiver.passing.clear();
  {
    const std::lock_guard guard(receiver.lock);
    service_stream_take(*receiver.stream, chunk, receiver.taken);
    receiver.has_news = note_facts(receiver, chunk.due) || receiver.has_news;
    sort_packets(receiver);
  }
  if (receiver.has_news && chunk.due >= receiver.next_news) {
    receiver.has_news = false;
    receiver.next_news = chunk.due + kNewsPause;
    receiver.user.news(receiver.user.context);
  }
  if (!receiver.passing.empty()) receiver.user.packets(receiver.user.context, receiver.passing);
}

void lose(void* context, const std::string& why) {
  Receiver& receiver = *static_cast<Receiver*>(context);
  {
    const std::lock_guard guard(receiver.lock);
    receiver.facts.lost = why.empty() ? "the signal was lost" : why;
  }
  receiver.user.news(receiver.user.context);
}

}  // namespace

void ReceiverEnd::operator()(Receiver* receiver) const {
  receiver->reception.reset();  // waits for a function that is running
  delete receiver;
}

ReceiverHandle receiver_start(const ServiceKey& key, const ReceiverUser& user, ReceiverOutput output,
                              decltype(&reception_start) start) {
  ReceiverHandle receiver(new Receiver);
  receiver->key = key;
  receiver->user = user;
  receiver->output = output;
  receiver->stream = service_stream_start(key.service);
  ReceptionRefusal refusal = ReceptionRefusal::kNone;
  receiver->reception = start(key, {.packets = take, .lost = lose, .context = receiver.get()}, refusal);
  if (receiver->reception == nullptr) receiver->facts.refusal = refusal;
  return receiver;
}

void receiver_set_output(Receiver& receiver, ReceiverOutput output) {
  const std::lock_guard guard(receiver.lock);
  if (output == receiver.output) return;
  // The player has not had the stream's PAT and PMT yet.
  if (receiver.output == ReceiverOutput::kOff) receiver.stream = service_stream_start(receiver.key.service);
  if (output == ReceiverOutput::kOff) std::vector<std::uint8_t>().swap(receiver.held);
  receiver.output = output;
}

ReceiverFacts receiver_facts(Receiver& receiver) {
  const std::lock_guard guard(receiver.lock);
  return receiver.facts;
}

const ServiceKey& receiver_key(const Receiver& receiver) { return receiver.key; }
