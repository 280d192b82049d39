#include "subscriptions.h"

#include <cstring>

#include "recorder.h"
#include "replayer.h"

namespace {

// Far longer than the longest pending text of any type: the limit of a queue and one more item.
constexpr std::size_t kLongestText = 256 * 1024;

// Subscribes to the URI at the plugin, or ends the subscription; a record and a replay take note of it.
void subscribe(Subscriptions& subscriptions, const char* uri, bool adds) {
  const WithoutCallbacks without(subscriptions.recorder);
  const Begun begun = recorder_begin(subscriptions.recorder);
  Replayed replayed =
      replayer_begin(subscriptions.replayer, adds ? StepKind::kSubscribe : StepKind::kUnsubscribe, uri, nullptr);
  const Stack& stack = *subscriptions.stack;
  const std::int32_t ret = adds ? stack.add_listener(uri) : stack.remove_listener(uri);
  replayer_end(subscriptions.replayer, replayed, ret, {}, {});
  recorder_subscription(subscriptions.recorder, begun, adds, uri, ret);
}

}  // namespace

void subscriptions_add(Subscriptions& subscriptions, const char* uri, std::uint64_t client) {
  std::vector<std::uint64_t>& clients = subscriptions.clients[uri];
  if (clients.empty()) subscribe(subscriptions, uri, true);
  clients.push_back(client);
}

void subscriptions_remove(Subscriptions& subscriptions, const char* uri, std::uint64_t client) {
  const auto found = subscriptions.clients.find(uri);
  if (found == subscriptions.clients.end() || std::erase(found->second, client) == 0 || !found->second.empty()) return;
  subscribe(subscriptions, uri, false);
  subscriptions.clients.erase(found);
}

void subscriptions_fetch(Subscriptions& subscriptions, SubscriptionsDeliver deliver, void* context) {
  // The plugin writes no terminator, so the buffer is cleared after each text. Its last byte is never written.
  static thread_local std::vector<char> buffer(kLongestText + 1);
  for (const auto& [uri, clients] : subscriptions.clients) {
    const WithoutCallbacks without(subscriptions.recorder);
    const Begun begun = recorder_begin(subscriptions.recorder);
    const std::int32_t ret = subscriptions.stack->fetch(uri, buffer.data(), kLongestText);
    const std::size_t length = strlen(buffer.data());
    if (length == 0) continue;
    recorder_fetch(subscriptions.recorder, begun, uri, ret, {buffer.data(), length});
    deliver(context, uri, clients, {buffer.data(), length});
    memset(buffer.data(), 0, length);
  }
}
