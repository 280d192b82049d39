// The pictures that applications open by the TV API.
#pragma once

#include "core/contract.h"

INT32 application_effect();         // that is started; 0: none. Its caller may hold the room's lock
void application_forget();          // a viewer shows another picture
void application_look_at_sticks();  // forgets the picture of a stick that is gone
void application_clear();
