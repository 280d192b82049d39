// The image viewer's state, shared by the room's files.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "core/contract.h"
#include "rooms/photos/decoder.h"
#include "rooms/photos/photos.h"
#include "rooms/photos/view.h"

// A picture that has been decoded.
struct Photo {
  std::string path = {};
  bool application = false;  // an application opened it
  INT32 mode = VEXTVAPI_IMAGE_MODE_FLAT;
  DecodedPhoto decoded = {};
  PhotoView view = {};
};

// What is displayed; a copy. Nothing: no picture is.
std::optional<Photo> photo_shown();

bool photo_slides();  // the slide show runs

// Displays the picture, in place of the one before. Forgets an application's open one unless it is this one.
void photo_display(const Photo& photo);

// Changes how the displayed picture lies, by the function. False: none is displayed.
bool photo_change_view(void (*change)(PhotoView& view, int number), int number);

// Ends the display; the slide show with it.
void photo_close();

// Decodes and displays a viewer's file. Empty: done. Waits, at most kDecodeTime.
std::string photo_show(const std::string& path);

// The next or previous photo of the folder of the displayed one; nothing: there is no other. Takes the library's locks.
std::optional<std::string> photo_neighbour(int step);

// Begins or ends the slide show of what is displayed; seconds: between two photos. Empty: done.
inline constexpr int kLeastSlide = 2, kUsualSlide = 5, kMostSlide = 3600;
std::string photo_slide_show(bool runs, int seconds);
