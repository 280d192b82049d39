// The image viewer's state, shared by the room's files.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "core/contract.h"
#include "rooms/photos/decoder.h"
#include "rooms/photos/photos.h"
#include "rooms/photos/view.h"

// A picture, opened by an application or displayed.
struct Photo {
  std::string path = {};
  bool application = false;               // an application opened it
  INT32 mode = VEXTVAPI_IMAGE_MODE_FLAT;  // as passed by the application
  DecodedPhoto decoded = {};
  PhotoView view = {};
};

// A copy of the displayed picture; nothing: none is displayed.
std::optional<Photo> photo_shown();

bool photo_slides();  // the slide show runs

// Displays the picture, which must be decoded, in place of the one before. A viewer's picture closes the one that an
// application has open.
void photo_display(const Photo& photo);

// Calls `change` with the view of the displayed picture and the number, and draws it again. False: none is displayed.
bool photo_change_view(void (*change)(PhotoView& view, int number), int number);

// Ends the display and the slide show.
void photo_close();

// Decodes and displays a file for the viewer. Waits for at most kDecodeTime. Returns why it failed; empty: done.
std::string photo_show(const std::string& path);

// The path of the next (1) or previous (-1) photo of the displayed one's folder; after the last one comes the first.
// Nothing: there is none. Takes the library's locks.
std::optional<std::string> photo_neighbour(int step);

// Starts or ends the slide show of the displayed photo's folder. seconds: between two photos. Returns why it failed;
// empty: done.
inline constexpr int kLeastSlide = 2, kUsualSlide = 5, kMostSlide = 3600;
std::string photo_slide_show(bool runs, int seconds);
