#include "rooms/home_network/upnp/fetch.h"

#include <libsoup/soup.h>

#include <algorithm>
#include <map>
#include <memory>
#include <utility>

#include "core/text.h"
#include "rooms/home_network/upnp/thread.h"

namespace {

constexpr std::size_t kLongestReason = 200;
constexpr const char* kTooSlow = "the server did not answer in time";
constexpr const char* kCancelled = "cancelled";

template <typename Object>
struct Unref {
  void operator()(Object* object) const { g_object_unref(object); }
};
template <typename Object>
using Ref = std::unique_ptr<Object, Unref<Object>>;

struct Running {
  Fetch fetch;
  Ref<SoupMessage> message = {};
  Ref<GInputStream> stream = {};
  Ref<GCancellable> cancellable = {};
  GSource* deadline = nullptr;
  std::size_t received = 0;
  std::string why = {};  // why it was cancelled; empty: it was not
};

struct State {
  SoupSession* session = nullptr;
  std::map<std::uint64_t, Running> running;
};

State& state = *new State;

gpointer number(std::uint64_t call) { return std::make_unique<std::uint64_t>(call).release(); }

// The number of the call in a callback's data.
std::uint64_t take_number(gpointer data) {
  const std::unique_ptr<std::uint64_t> owned(static_cast<std::uint64_t*>(data));
  return *owned;
}

void end(std::uint64_t call, const std::string& why) {
  auto node = state.running.extract(call);
  if (node.empty()) return;
  Running& running = node.mapped();
  if (running.deadline != nullptr) {
    g_source_destroy(running.deadline);
    g_source_unref(running.deadline);
  }
  running.stream.reset();  // closes the connection, unless the whole answer has been read
  running.fetch.done(why);
}

// libsoup does not end a request that waits for a connection when it is cancelled, so it is ended here.
void cancel(std::uint64_t call, Running& running, const char* why) {
  if (running.why.empty()) running.why = why;
  g_cancellable_cancel(running.cancellable.get());
  if (running.stream == nullptr) end(call, why);
}

std::string reason(const Running& running, GError* error) {
  std::string why = running.why;
  if (why.empty()) why = g_error_matches(error, G_IO_ERROR, G_IO_ERROR_TIMED_OUT) != FALSE ? kTooSlow : error->message;
  g_error_free(error);
  return clean_text(why, kLongestReason);
}

void read_on(std::uint64_t call, Running& running);

void on_read(GObject* source, GAsyncResult* result, gpointer data) {
  const std::uint64_t call = take_number(data);
  GError* error = nullptr;
  GBytes* bytes = g_input_stream_read_bytes_finish(G_INPUT_STREAM(source), result, &error);
  const auto found = state.running.find(call);
  if (found == state.running.end()) {
    g_clear_error(&error);
    g_clear_pointer(&bytes, g_bytes_unref);
    return;
  }
  Running& running = found->second;
  if (bytes == nullptr) return end(call, reason(running, error));
  gsize size = 0;
  const auto* const text = static_cast<const char*>(g_bytes_get_data(bytes, &size));
  running.received += size;
  std::string why;
  if (running.received > running.fetch.most) {
    why = "the server's answer is longer than " + std::to_string(running.fetch.most) + " bytes";
  } else if (size != 0 && running.fetch.chunk && !running.fetch.chunk({text, size})) {
    why = "its bytes could not be taken";
  }
  g_bytes_unref(bytes);
  if (!running.why.empty()) why = running.why;
  if (!why.empty() || size == 0) return end(call, why);
  read_on(call, running);
}

void read_on(std::uint64_t call, Running& running) {
  g_input_stream_read_bytes_async(running.stream.get(), kFetchChunk, G_PRIORITY_DEFAULT, running.cancellable.get(),
                                  on_read, number(call));
}

FetchHead head_of(SoupMessage* message) {
  SoupMessageHeaders* const headers = soup_message_get_response_headers(message);
  FetchHead head;
  const char* const type = soup_message_headers_get_content_type(headers, nullptr);
  if (type != nullptr) head.type = clean_text(type, kLongestReason);
  std::ranges::transform(head.type, head.type.begin(), [](char c) { return g_ascii_tolower(c); });
  if (soup_message_headers_get_encoding(headers) == SOUP_ENCODING_CONTENT_LENGTH)
    head.size = soup_message_headers_get_content_length(headers);
  return head;
}

void on_head(GObject* source, GAsyncResult* result, gpointer data) {
  const std::uint64_t call = take_number(data);
  GError* error = nullptr;
  Ref<GInputStream> stream(soup_session_send_finish(SOUP_SESSION(source), result, &error));
  const auto found = state.running.find(call);
  if (found == state.running.end()) return g_clear_error(&error);
  Running& running = found->second;
  if (stream == nullptr) return end(call, reason(running, error));
  running.stream = std::move(stream);
  const unsigned status = soup_message_get_status(running.message.get());
  if (status != SOUP_STATUS_OK && !(running.fetch.faults && status == SOUP_STATUS_INTERNAL_SERVER_ERROR))
    return end(call, "the server answers with status " + std::to_string(status));
  const FetchHead head = head_of(running.message.get());
  if (head.size > 0 && static_cast<std::uint64_t>(head.size) > running.fetch.most)
    return end(call, "the server's answer is longer than " + std::to_string(running.fetch.most) + " bytes");
  if (running.fetch.head && !running.fetch.head(head)) return end(call, "the server sends something else");
  read_on(call, running);
}

void cancel_all() {
  for (auto each = state.running.begin(); each != state.running.end();) {
    const auto current = each++;
    cancel(current->first, current->second, kCancelled);
  }
  if (state.session == nullptr) return;
  soup_session_abort(state.session);
  g_object_unref(std::exchange(state.session, nullptr));
}

SoupSession* session() {
  if (state.session != nullptr) return state.session;
  // clang-format off
  state.session = soup_session_new_with_options("proxy-resolver", nullptr, "timeout", static_cast<guint>(kFetchSilence),
                                                "idle-timeout", 5U, "max-conns", kMostFetches,
                                                "max-conns-per-host", kMostFetches,
                                                "user-agent", "dtv_tv UPnP/1.0", nullptr);
  // clang-format on
  // Compressed answers are not accepted, since one could expand to a thousand times the bytes that the server sent.
  soup_session_remove_feature_by_type(state.session, SOUP_TYPE_CONTENT_DECODER);
  upnp_at_end(cancel_all);
  return state.session;
}

// Reports a fetch that did not start.
void refuse(std::function<void(const std::string&)> done, std::string why) {
  upnp_thread_post([done = std::move(done), why = std::move(why)] { done(why); });
}

}  // namespace

void fetch_start(std::uint64_t call, Fetch fetch) {
  if (!upnp_is_near(fetch.address)) {
    return refuse(std::move(fetch.done),
                  "the address is not one of this network: " + clean_text(fetch.address, kLongestReason / 2));
  }
  if (state.running.size() >= kMostFetches) return refuse(std::move(fetch.done), "too many requests run");
  SoupMessage* const message = soup_message_new(fetch.action.empty() ? "GET" : "POST", fetch.address.c_str());
  if (message == nullptr) return refuse(std::move(fetch.done), "the address cannot be read");
  soup_message_set_flags(message, SOUP_MESSAGE_NO_REDIRECT);
  if (!fetch.action.empty()) {
    soup_message_headers_append(soup_message_get_request_headers(message), "SOAPAction", fetch.action.c_str());
    GBytes* const body = g_bytes_new(fetch.body.data(), fetch.body.size());
    soup_message_set_request_body_from_bytes(message, "text/xml; charset=\"utf-8\"", body);
    g_bytes_unref(body);
  }
  Running& running = state.running[call];
  running = {.fetch = std::move(fetch)};
  running.message.reset(message);
  running.cancellable.reset(g_cancellable_new());
  if (running.fetch.millis != 0) {
    running.deadline = g_timeout_source_new(running.fetch.millis);
    g_source_set_callback(
        running.deadline,
        [](gpointer data) -> gboolean {
          const auto found = state.running.find(*static_cast<std::uint64_t*>(data));
          if (found != state.running.end()) cancel(found->first, found->second, kTooSlow);
          return G_SOURCE_REMOVE;
        },
        number(call), [](gpointer data) { take_number(data); });
    g_source_attach(running.deadline, g_main_context_get_thread_default());
  }
  soup_session_send_async(session(), message, G_PRIORITY_DEFAULT, running.cancellable.get(), on_head, number(call));
}

void fetch_cancel(std::uint64_t call) {
  const auto found = state.running.find(call);
  if (found != state.running.end()) cancel(call, found->second, kCancelled);
}
