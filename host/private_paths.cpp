#include "private_paths.h"

#include <stdio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "sandbox/device.h"
#include "sandbox/sandbox.h"
#include "stack.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* kPluginLanguages = "/3rd/i18n";
constexpr const char* kPluginLogos = "/3rd_rw/ChLogo";
constexpr const char* kSetLogos = "/ChLogo";  // in the state folder; the virtual television fills it

void complain(const std::string& reason) {
  fprintf(stderr,
          "dtv-host: no language strings and no keys, since this machine allows no private paths (%s); "
          "--no-private-paths does without\n",
          reason.c_str());
}

// A failure half-way would leave this process unusable, so a child process tries first.
bool is_allowed(const WantedPaths& wanted) {
  const pid_t child = fork();
  if (child == 0) {
    std::string error;
    const bool entered = sandbox_enter(wanted, NewFolders::kReadOnly, error);
    if (!entered) complain(error);
    _exit(entered ? 0 : 1);
  }
  int status = 0;
  if (child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status)) return WEXITSTATUS(status) == 0;
  complain("no child process could try it");
  return false;
}

}  // namespace

PrivatePaths private_paths_enter(const std::string& state_folder) {
  WantedPaths wanted;
  std::string reported_later;  // the start of the set makes the folder again and reports the error
  if (!state_folder.empty()) stack_make_state_folder(state_folder, reported_later);
  std::error_code failure;
  const std::string language_folder =
      stack_beside_program("../" DTV_INSTALL_LIBDIR "/dtv_js_plugin/i18n", "../lib/i18n");
  if (!fs::exists(kPluginLanguages, failure)) {
    const fs::path folder = fs::canonical(language_folder, failure);
    if (failure)
      fprintf(stderr, "dtv-host: no language strings, since there is no folder %s\n", language_folder.c_str());
    else
      wanted[kPluginLanguages] = {.what = WantedPath::kBound, .content = folder};
  }
  if (!state_folder.empty() && !fs::exists(kPluginLogos, failure)) {
    fs::create_directory(state_folder + kSetLogos, failure);
    const fs::path folder = fs::canonical(state_folder + kSetLogos, failure);
    if (failure)
      fprintf(stderr, "dtv-host: no channel logos, since there is no folder %s%s\n", state_folder.c_str(), kSetLogos);
    else
      wanted[kPluginLogos] = {.what = WantedPath::kBound, .content = folder};
  }
  const bool device = !fs::exists(kDevicePath, failure);
  if (device) wanted[kDevicePath] = {.what = WantedPath::kDevice, .content = {}};
  if (wanted.empty() || !is_allowed(wanted)) return {};
  std::string error;
  if (sandbox_enter(wanted, NewFolders::kReadOnly, error)) return {.device = device};
  complain(error);  // half-way, although it worked in the child
  _exit(1);
}

void private_paths_connect(const PrivatePaths& paths, void (*tv_command)(char character)) {
  if (paths.device) device_listen(tv_command);
}
