// The description of item types.
#pragma once

#include "tv_ctrl_api/item_types.h"

// Writes one object: the members that a query reads ("query"), the word and members of a set ("set"), the members of a
// response's item ("response"), those beside "ITEMS" where there are any ("root"), and the notification ("notify"). A
// use that the type does not have is null.
void tvc_describe_type(JsonText& json, const ItemType& item);
