#include "rooms/home_network/loop.h"

#include <dlfcn.h>

#include <filesystem>
#include <mutex>
#include <system_error>
#include <vector>

#include "dtv_tv.h"
#include "rooms/home_network/near.h"
#include "rooms/home_network/upnp/library.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* kName = "libdtv_upnp.so";

struct Loop {
  std::mutex changing;  // held while the thread is started or stopped; taken before lock
  std::mutex lock;      // guards all members below
  std::vector<std::string> interfaces = {"lo"};
  const UpnpLibrary* running = nullptr;  // while the thread runs
};

// Never destroyed: other threads may still use it when the process exits.
Loop& loop = *new Loop;

struct Loaded {
  const UpnpLibrary* library = nullptr;
  std::string trouble = {};
};

// libdtv_upnp.so is in the same folder as libdtv_tv.so. A test program that links these objects finds it in the build's
// folder of libraries.
std::string place() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(&home_loop_start), &info) == 0 || info.dli_fname == nullptr) return kName;
  std::error_code none;
  const fs::path folder = fs::canonical(info.dli_fname, none).parent_path();
  const fs::path beside = folder / kName;
  return fs::exists(beside, none) ? beside : folder / "../lib" / kName;
}

Loaded load() {
  void* const handle = dlopen(place().c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
  if (handle == nullptr) return {.trouble = std::string("the home network needs ") + kName + ": " + dlerror()};
  const auto function = reinterpret_cast<decltype(&dtv_upnp_library)>(dlsym(handle, "dtv_upnp_library"));
  if (function == nullptr) return {.trouble = std::string(kName) + " is another library of that name"};
  return {.library = function()};
}

}  // namespace

const UpnpLibrary* upnp_library(std::string& ret_error) {
  static const Loaded& loaded = *new Loaded(load());
  if (loaded.library == nullptr) ret_error = loaded.trouble;
  return loaded.library;
}

void dtv_tv_home_interfaces(const char* names) {
  const bool given = names != nullptr && *names != '\0';
  const std::lock_guard guard(loop.lock);
  loop.interfaces = given ? interfaces_of(names) : std::vector<std::string>{"lo"};
}

bool home_loop_start(std::string& ret_error) {
  const std::lock_guard changing(loop.changing);
  {
    const std::lock_guard guard(loop.lock);
    if (loop.running != nullptr) return true;
  }
  const UpnpLibrary* const library = upnp_library(ret_error);
  if (library == nullptr || !library->upnp_thread_start(home_interfaces(), ret_error)) return false;
  const std::lock_guard guard(loop.lock);
  loop.running = library;
  return true;
}

void home_loop_stop() {
  const std::lock_guard changing(loop.changing);
  const UpnpLibrary* library = nullptr;
  {
    const std::lock_guard guard(loop.lock);
    library = loop.running;
    loop.running = nullptr;
  }
  if (library != nullptr) library->upnp_thread_stop();
}

void home_loop_post(std::function<void()> action) {
  const UpnpLibrary* library = nullptr;
  {
    const std::lock_guard guard(loop.lock);
    library = loop.running;
  }
  if (library != nullptr) library->upnp_thread_post(std::move(action));
}

bool home_is_near(const std::string& address) {
  HttpAddress read;
  return read_http_address(address, read) && is_near(read.host, home_interfaces());
}

std::vector<std::string> home_interfaces() {
  const std::lock_guard guard(loop.lock);
  return loop.interfaces;
}
