// The bounds of the thumbnails' cache.
#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr std::size_t kMostThumbnails = 4000;                       // files
inline constexpr std::uint64_t kMostThumbnailBytes = 64ULL * 1024 * 1024;  // of all files
inline constexpr std::size_t kMostQueuedThumbnails = 96;                   // that wait; beyond it the oldest is dropped
inline constexpr std::size_t kMostRefusedThumbnails = 1000;                // that are remembered as impossible
inline constexpr std::uint32_t kWidestThumbnail = 1920;                    // pixels
inline constexpr std::uint32_t kHighestThumbnail = 1080;
