#include "rooms/home_network/upnp/thread.h"

#include <libgupnp/gupnp.h>
#include <pthread.h>

#include <atomic>
#include <cstdio>
#include <future>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

#include "core/text.h"
#include "rooms/home_network/near.h"

namespace {

constexpr int kMostLines = 100;  // from GLib, GUPnP and libsoup that are printed
constexpr std::size_t kLongestLine = 300;
constexpr int kOpenAttempts = 8;  // to open a context

struct Thread {
  std::mutex lock;                  // guards context and runs
  GMainContext* context = nullptr;  // owned by the thread; null while it does not run
  std::thread thread;
  // Used on the thread only.
  GMainLoop* loop = nullptr;
  std::vector<std::string> interfaces;
  std::vector<GUPnPContext*> contexts;
  std::vector<std::function<void()>> at_end;
};

// Never destroyed: the thread may outlive main.
Thread& self = *new Thread;

// Prints a message of these libraries on stderr, on one line, at most kMostLines times: the network decides how many
// come.
void print_line(const gchar* domain, GLogLevelFlags, const gchar* message, gpointer) {
  static std::atomic<int> lines = 0;
  const int number = ++lines;
  if (number > kMostLines) return;
  std::fprintf(stderr, "dtv_tv: home network: %s: %s%s\n", domain == nullptr ? "" : domain,
               clean_text(message == nullptr ? "" : message, kLongestLine).c_str(),
               number == kMostLines ? " (no further lines of this kind)" : "");
}

void take_over_messages() {
  constexpr auto kLevels =
      static_cast<GLogLevelFlags>(G_LOG_LEVEL_CRITICAL | G_LOG_LEVEL_WARNING | G_LOG_LEVEL_MESSAGE);
  for (const char* const domain :
       {"gssdp", "gssdp-client", "gssdp-socket-source", "gssdp-resource-browser", "gssdp-resource-group", "gupnp",
        "gupnp-context", "gupnp-control-point", "gupnp-service", "gupnp-device", "gupnp-av", "libsoup"})
    g_log_set_handler(domain, kLevels, print_line, nullptr);
}

GUPnPContext* open_context(const std::string& interface, std::string& ret_error) {
  GError* error = nullptr;
  GUPnPContext* context = nullptr;
  // GUPnP chooses a port at random, which another program may use already.
  for (int attempt = 0; context == nullptr && attempt < kOpenAttempts; ++attempt) {
    g_clear_error(&error);
    context = static_cast<GUPnPContext*>(g_initable_new(GUPNP_TYPE_CONTEXT, nullptr, &error, "interface",
                                                        interface.c_str(), "address-family", G_SOCKET_FAMILY_IPV4,
                                                        "uda-version", GSSDP_UDA_VERSION_1_0, nullptr));
  }
  if (context == nullptr) {
    ret_error = "the network interface \"" + clean_text(interface, kLongestLine) +
                "\" cannot be used: " + clean_text(error == nullptr ? "unknown" : error->message, kLongestLine);
    g_clear_error(&error);
  }
  return context;
}

// Opens a context for each interface that can be used. False with ret_error: none can be used.
bool open_contexts(const std::vector<std::string>& interfaces, std::string& ret_error) {
  for (const std::string& interface : interfaces) {
    std::string error;
    GUPnPContext* const context = open_context(interface, error);
    if (context == nullptr) {
      std::fprintf(stderr, "dtv_tv: home network: %s\n", error.c_str());
      if (ret_error.empty()) ret_error = std::move(error);
      continue;
    }
    self.interfaces.push_back(interface);
    self.contexts.push_back(context);
  }
  return !self.contexts.empty();
}

void run(const std::vector<std::string>& interfaces, std::promise<std::string> started) {
  pthread_setname_np(pthread_self(), "dtv_tv-home");
  GMainContext* const context = g_main_context_new();
  g_main_context_push_thread_default(context);
  take_over_messages();
  self.loop = g_main_loop_new(context, FALSE);
  std::string error;
  const bool opened = open_contexts(interfaces, error);
  if (opened) {
    const std::lock_guard guard(self.lock);
    self.context = context;
  }
  started.set_value(opened ? std::string() : error);
  if (opened) g_main_loop_run(self.loop);
  for (const auto& action : std::exchange(self.at_end, {})) action();
  for (GUPnPContext* const each : std::exchange(self.contexts, {})) g_object_unref(each);
  self.interfaces.clear();
  // Lets the callbacks of cancelled operations run.
  while (g_main_context_iteration(context, FALSE) != FALSE) {
  }
  g_main_loop_unref(std::exchange(self.loop, nullptr));
  g_main_context_pop_thread_default(context);
  g_main_context_unref(context);
}

using Action = std::function<void()>;

// The caller holds the lock.
void post(std::function<void()> action) {
  if (self.context == nullptr) return;
  GSource* const source = g_idle_source_new();
  g_source_set_priority(source, G_PRIORITY_DEFAULT);
  g_source_set_callback(
      source,
      [](gpointer data) -> gboolean {
        // GLib hands the action over safely, but the thread sanitizer does not see how. It sees this.
        { const std::lock_guard posted(self.lock); }
        (*static_cast<Action*>(data))();
        return G_SOURCE_REMOVE;
      },
      std::make_unique<Action>(std::move(action)).release(), [](gpointer data) { delete static_cast<Action*>(data); });
  g_source_attach(source, self.context);
  g_source_unref(source);
}

}  // namespace

bool upnp_thread_start(const std::vector<std::string>& interfaces, std::string& ret_error) {
  {
    const std::lock_guard guard(self.lock);
    if (self.context != nullptr) return true;
  }
  std::promise<std::string> started;
  std::future<std::string> outcome = started.get_future();
  try {
    self.thread = std::thread(run, interfaces, std::move(started));
  } catch (const std::system_error&) {
    ret_error = "the system has no thread left for the home network";
    return false;
  }
  std::string error = outcome.get();
  if (error.empty()) return true;
  self.thread.join();
  ret_error = std::move(error);
  return false;
}

void upnp_thread_stop() {
  {
    const std::lock_guard guard(self.lock);
    post([] { g_main_loop_quit(self.loop); });
    self.context = nullptr;
  }
  if (self.thread.joinable()) self.thread.join();
}

void upnp_thread_post(std::function<void()> action) {
  const std::lock_guard guard(self.lock);
  post(std::move(action));
}

std::span<_GUPnPContext* const> upnp_contexts() { return self.contexts; }

const std::vector<std::string>& upnp_interfaces() { return self.interfaces; }

void upnp_at_end(std::function<void()> action) { self.at_end.push_back(std::move(action)); }

bool upnp_is_near(std::string_view address) {
  HttpAddress read;
  return read_http_address(address, read) && is_near(read.host, self.interfaces);
}
