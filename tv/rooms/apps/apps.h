// What the remote control does to applications.
#pragma once

void apps_end();         // ends all that are running
void apps_leave_menu();  // ends the set's own application
