// The plugin's records, filled by their field tables.
#pragma once

#include <memory>
#include <string>

#include "bytes.h"
#include "tv_ctrl_api/item_types.h"

// A record exactly as large as its type's, so that the address sanitizer sees a read beyond it: one repeated byte, with
// some of the fields of this use set and some places written over. A word that a renderer of its own looks at may be an
// address, and becomes that of `text`, or null; `text` must live as long as the record.
std::unique_ptr<char[]> take_record(Bytes& bytes, UINT8 type, FieldUse use, const std::string& text);
