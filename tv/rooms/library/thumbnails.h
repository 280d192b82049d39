// Limits of the thumbnail cache.
#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr std::size_t kMostThumbnails = 4000;                       // files
inline constexpr std::uint64_t kMostThumbnailBytes = 64ULL * 1024 * 1024;  // of all files
inline constexpr std::size_t kMostQueuedThumbnails = 96;  // requests that wait; beyond that the oldest one is dropped
inline constexpr std::size_t kMostRefusedThumbnails = 1000;  // files that are remembered as having none
inline constexpr std::uint32_t kWidestThumbnail = 1920;      // pixels
inline constexpr std::uint32_t kHighestThumbnail = 1080;
