// Selecting the first row, in UID order, whose field has a given value.
#pragma once

#include <cstdint>

#include "index/store_index.h"

namespace qaaisp {

// The field name that is compared as a phone number.
inline constexpr const char* kPhoneNumberField = "TEL_CELL_VOICE";

// Attaches the first matching row to item (not owned). Values compare
// exactly when case_sensitive is not 0, else without regard to ASCII case;
// "TEL_CELL_VOICE" compares as phone numbers. A null value is the empty
// text. Runs under the index's lock. 1 if a row was found, 0 otherwise.
int SelectItemByField(StoreIndex* index, const char* name, const char* value, int case_sensitive,
                      IndexItem* item);

}  // namespace qaaisp
