// The applications, for the remote control.
#pragma once

void apps_end();         // all that run
void apps_leave_menu();  // the set's own application
