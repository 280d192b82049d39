// What the remote control does to applications.
#pragma once

void apps_end();         // ends all that are running
bool apps_leave_menu();  // ends the set's own application; false: none is running
bool apps_have_keys();   // an application is running that takes the keys which the set itself has no use for
