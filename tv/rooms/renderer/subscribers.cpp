#include "rooms/renderer/subscribers.h"

#include <algorithm>
#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "base/text.h"
#include "core/timers.h"
#include "rooms/home_network/loop.h"
#include "rooms/home_network/near.h"
#include "rooms/renderer/http.h"
#include "rooms/renderer/identifier.h"
#include "rooms/renderer/server.h"
#include "rooms/renderer/services.h"

namespace {

constexpr std::size_t kMostCallbacks = 6;  // addresses of a request that are read; the first usable one gets the events
constexpr std::size_t kLongestCallback = 256;    // bytes
constexpr unsigned kLongestAnswerHeader = 8192;  // bytes of what a subscriber answers

struct Subscriber {
  std::string id = {};
  std::size_t service = 0;
  std::string host = {};
  int port = 0;
  std::string path = {};
  TimerTime end = {};
  std::uint32_t number = 0;  // of the next event
  Bits unsent = 0;           // variables whose change was not sent yet
  bool sending = false;
  int failures = 0;  // in a row
};

struct Delivery {
  beast::tcp_stream stream;
  std::string id;  // the subscriber's
  http::request<http::string_body> request = {};
  beast::flat_buffer buffer{kLongestAnswerHeader};
  http::response_parser<http::string_body> parser = {};
};

using DeliveryShare = std::shared_ptr<Delivery>;

// Used on the server's thread only, or while it does not run.
std::vector<Subscriber> subscribers;
std::map<std::string, std::string> told;  // values at the last call of look, by "SERVICE/VARIABLE"

std::atomic<std::size_t> count = 0;

std::mutex look_lock;  // guards the three below; taken after the model's
Timer look_timer;
bool look_waits = false;
TimerTime last_look = TimerTime::min();

void deliver(Subscriber& subscriber);

Subscriber* find(std::string_view id) {
  const auto found = std::ranges::find(subscribers, id, &Subscriber::id);
  return found == subscribers.end() ? nullptr : &*found;
}

void recount() { count = subscribers.size(); }

void drop_ended() {
  std::erase_if(subscribers, [now = timer_now()](const Subscriber& each) { return each.end <= now; });
  recount();
}

Bits told_variables(const RendererService& service) {
  Bits bits = 0;
  for (std::size_t i = 0; i < service.variables.size(); ++i)
    if (service.variables[i].told != Told::kNo && service.variables[i].read != nullptr) bits |= Bits{1} << i;
  return bits;
}

// Finds what has changed since the last look, and sends it.
void look() {
  Model shown;
  {
    const std::lock_guard guard(model_lock);
    shown = model;
  }
  drop_ended();
  for (std::size_t s = 0; s < services().size(); ++s) {
    const RendererService& service = services()[s];
    Bits changed = 0;
    for (std::size_t i = 0; i < service.variables.size(); ++i) {
      const Variable& variable = service.variables[i];
      if (variable.told == Told::kNo || variable.read == nullptr) continue;
      std::string value = variable.read(shown);
      std::string& before = told[std::string(service.name) + "/" + std::string(variable.name)];
      if (before == value) continue;
      before = std::move(value);
      changed |= Bits{1} << i;
    }
    for (Subscriber& each : subscribers)
      if (each.service == s) each.unsent |= changed;
  }
  subscribers_send();
}

// ---- Delivering ----

void delivered(const std::string& id, int status) {
  Subscriber* const subscriber = find(id);
  if (subscriber == nullptr) return;
  subscriber->sending = false;
  const bool taken = status >= 200 && status < 300;
  subscriber->failures = taken ? 0 : subscriber->failures + 1;
  if (status == static_cast<int>(http::status::precondition_failed) || subscriber->failures >= kMostFailures) {
    std::erase_if(subscribers, [&](const Subscriber& each) { return each.id == id; });
    return recount();
  }
  deliver(*subscriber);
}

void read_answer(const DeliveryShare& delivery) {
  delivery->parser.header_limit(kLongestAnswerHeader);
  http::async_read_header(
      delivery->stream, delivery->buffer, delivery->parser, [delivery](error_code failure, std::size_t) {
        delivered(delivery->id, failure ? 0 : static_cast<int>(delivery->parser.get().result_int()));
      });
}

void write_event_to(const DeliveryShare& delivery) {
  http::async_write(delivery->stream, delivery->request, [delivery](error_code failure, std::size_t) {
    if (failure) return delivered(delivery->id, 0);
    read_answer(delivery);
  });
}

// Sends the subscriber the changes that it lacks. While an event is on its way to it, they wait for the next one.
void deliver(Subscriber& subscriber) {
  if (subscriber.sending || subscriber.unsent == 0) return;
  const DeliveryShare delivery(new Delivery{.stream = beast::tcp_stream(server_context()), .id = subscriber.id});
  HttpRequest& request = delivery->request;
  request = HttpRequest(http::verb::notify, subscriber.path, 11);
  request.set(http::field::host, subscriber.host + ":" + std::to_string(subscriber.port));
  request.set(http::field::content_type, "text/xml; charset=\"utf-8\"");
  request.set("NT", "upnp:event");
  request.set("NTS", "upnp:propchange");
  request.set("SID", subscriber.id);
  request.set("SEQ", std::to_string(subscriber.number));
  {
    const std::lock_guard guard(model_lock);
    request.body() = write_event(services()[subscriber.service], model, subscriber.unsent);
  }
  request.keep_alive(false);
  request.prepare_payload();
  subscriber.number = subscriber.number == UINT32_MAX ? 1 : subscriber.number + 1;
  subscriber.unsent = 0;
  subscriber.sending = true;
  error_code failure;
  const tcp::endpoint to(asio::ip::make_address(subscriber.host, failure),
                         static_cast<asio::ip::port_type>(subscriber.port));
  delivery->stream.expires_after(std::chrono::seconds(kDeliverySeconds));
  delivery->stream.async_connect(to, [delivery](error_code refused) {
    if (refused) return delivered(delivery->id, 0);
    write_event_to(delivery);
  });
}

// ---- Subscribing ----

// Takes the first address of "<http://...><http://...>" that the set may send to.
bool read_callbacks(std::string_view list, Subscriber& ret_subscriber) {
  for (std::size_t i = 0; i < kMostCallbacks; ++i) {
    const std::size_t begin = list.find('<'), end = list.find('>', std::min(begin, list.size()));
    if (begin == std::string_view::npos || end == std::string_view::npos) return false;
    const std::string address(list.substr(begin + 1, end - begin - 1));
    list.remove_prefix(end + 1);
    HttpAddress read;
    if (address.size() > kLongestCallback || !read_http_address(address, read) || !home_is_near(address)) continue;
    const std::size_t path = address.find_first_of("/?", std::string_view("http://").size());
    ret_subscriber.host = read.host;
    ret_subscriber.port = read.port;
    ret_subscriber.path = path == std::string::npos ? "/" : address.substr(path, address.find('#') - path);
    if (ret_subscriber.path.front() != '/') ret_subscriber.path.insert(0, "/");
    return true;
  }
  return false;
}

int seconds_of(std::string_view timeout) {
  constexpr std::string_view kWord = "Second-";
  if (timeout.size() <= kWord.size() || !equal_ignoring_case(timeout.substr(0, kWord.size()), kWord))
    return kLongestSubscription;
  const auto seconds = parse_number<std::int64_t>(timeout.substr(kWord.size()));
  if (!seconds) return kLongestSubscription;  // "infinite"
  return static_cast<int>(std::clamp<std::int64_t>(*seconds, kShortestSubscription, kLongestSubscription));
}

HttpResponse accepted(Subscriber& subscriber, const HttpRequest& request) {
  const int seconds = seconds_of(request["TIMEOUT"]);
  subscriber.end = timer_now() + std::chrono::seconds(seconds);
  HttpResponse response = answer(http::status::ok);
  response.set("SID", subscriber.id);
  response.set("TIMEOUT", "Second-" + std::to_string(seconds));
  return response;
}

HttpResponse renew(const HttpRequest& request, std::size_t service) {
  if (request.count("CALLBACK") != 0 || request.count("NT") != 0) return answer(http::status::bad_request);
  Subscriber* const subscriber = find(request["SID"]);
  if (subscriber == nullptr || subscriber->service != service) return answer(http::status::precondition_failed);
  return accepted(*subscriber, request);
}

HttpResponse subscribe(const HttpRequest& request, std::size_t service) {
  Subscriber subscriber{.id = new_identifier(), .service = service};
  if (request["NT"] != "upnp:event" || !read_callbacks(request["CALLBACK"], subscriber))
    return answer(http::status::precondition_failed, "NT is upnp:event, CALLBACK an http address of this network\n");
  const auto of_host = std::ranges::count(subscribers, subscriber.host, &Subscriber::host);
  if (subscribers.size() >= kMostSubscribers || static_cast<std::size_t>(of_host) >= kMostSubscribersOfHost)
    return answer(http::status::service_unavailable, "there are too many subscriptions\n");
  subscriber.unsent = told_variables(services()[service]);
  HttpResponse response = accepted(subscriber, request);
  subscribers.push_back(std::move(subscriber));
  recount();
  return response;
}

HttpResponse unsubscribe(const HttpRequest& request, std::size_t service) {
  if (request.count("CALLBACK") != 0 || request.count("NT") != 0) return answer(http::status::bad_request);
  const Subscriber* const subscriber = find(request["SID"]);
  if (subscriber == nullptr || subscriber->service != service) return answer(http::status::precondition_failed);
  std::erase_if(subscribers, [&](const Subscriber& each) { return each.id == request["SID"]; });
  recount();
  return answer(http::status::ok);
}

void look_now() {
  {
    const std::lock_guard guard(look_lock);
    look_waits = false;
    last_look = timer_now();
  }
  server_post(look);
}

}  // namespace

HttpResponse subscribers_answer(const HttpRequest& request, std::size_t service) {
  drop_ended();
  if (request.method() == http::verb::unsubscribe) return unsubscribe(request, service);
  if (request.method() != http::verb::subscribe) return answer(http::status::method_not_allowed);
  return request.count("SID") != 0 ? renew(request, service) : subscribe(request, service);
}

void subscribers_begin() { look(); }

void subscribers_send() {
  for (Subscriber& each : subscribers) deliver(each);
}

void subscribers_forget() {
  subscribers.clear();
  told.clear();
  recount();
  const std::lock_guard guard(look_lock);
  look_waits = false;
  last_look = TimerTime::min();
}

std::size_t subscribers_count() { return count; }

void subscribers_look() {
  const std::lock_guard guard(look_lock);
  if (look_waits) return;
  constexpr auto kPause = std::chrono::milliseconds(kEventMillis);
  const bool recent = last_look != TimerTime::min() && timer_now() < last_look + kPause;
  look_waits = timer_set(look_timer, recent ? last_look + kPause : timer_now(), look_now);
}
