#include "folders.h"

#include <algorithm>
#include <filesystem>

#include "core/store.h"
#include "root.h"

namespace fs = std::filesystem;

bool usb_folders_in(const std::string& folder, UsbFolders& ret_folders) {
  UsbFolders found;
  std::error_code failed;
  int left = kMostFoldersRead;
  fs::directory_iterator entry(folder, failed);
  for (; !failed && entry != fs::directory_iterator() && left > 0; entry.increment(failed), --left) {
    const std::string path = entry->path().string();
    if (entry->path().filename().native().starts_with('.') || !store_is_text(path)) continue;
    const UsbPlace place = usb_place(path);  // a link may lead out of the root
    std::error_code none;
    if (place.inside && !place.failed && fs::is_directory(place.folder, none)) found.paths.push_back(path);
  }
  if (failed) return false;
  std::ranges::sort(found.paths);
  found.more = entry != fs::directory_iterator() || found.paths.size() > kMostFoldersNamed;
  if (found.paths.size() > kMostFoldersNamed) found.paths.resize(kMostFoldersNamed);
  ret_folders = std::move(found);
  return true;
}
