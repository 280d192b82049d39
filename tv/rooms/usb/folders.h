// The folders of the machine that a viewer may choose a USB stick from.
#pragma once

#include <string>
#include <vector>

// Limits of one answer, which docs/limits.md states.
constexpr int kMostFoldersRead = 10'000;  // names of any kind
constexpr std::size_t kMostFoldersNamed = 200;

struct UsbFolders {
  std::vector<std::string> paths;  // absolute, sorted
  bool more = false;               // a limit has left some out
};

// Lists the folders directly in a folder: those that can become a stick, without hidden ones and those whose names are
// not in UTF-8. folder: canonical, in the root (root.h) or the root. Returns false if it cannot be read.
bool usb_folders_in(const std::string& folder, UsbFolders& ret_folders);
