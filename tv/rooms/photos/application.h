// The pictures that applications open by the TV API.
#pragma once

#include "core/contract.h"

INT32 application_effect();         // the started effect (VEXTVAPI_IMAGE_EFFECT_...); 0: none. Takes no lock
void application_forget();          // closes the open picture, since a viewer shows another one
void application_look_at_sticks();  // closes the open picture if its stick was removed
void application_clear();           // closes the picture, ends the effect, and releases the image player
