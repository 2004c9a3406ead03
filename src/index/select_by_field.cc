#include "index/select_by_field.h"

#include <string>

#include "index/phone_numbers.h"
#include "index/store_index_lock.h"
#include "platform/path_case.h"

namespace qaaisp {

int SelectItemByField(StoreIndex* index, const char* name, const char* value, int case_sensitive,
                      IndexItem* item) {
  if (!index || !name || !item) return 0;
  StoreIndexMutexLock lock(index);
  std::string_view field(name);
  bool phone = field == kPhoneNumberField;
  std::string wanted = value ? value : "";
  if (phone) wanted = NormalizePhoneNumber(wanted);

  RowList rows;
  index->table.Snapshot(&rows, false);
  PropertyKey key = LookupProperty(field, index->table.local_map());
  std::string text;
  for (IndexItemPropertyContainer* row : rows.rows) {
    if (!row->HasValueAt(key)) continue;
    row->GetTextAt(key, &text);
    bool equal = phone            ? ComparePhoneNumbers(wanted, text) == 0
                 : case_sensitive ? text == wanted
                                  : platform::EqualsNoCase(text, wanted);
    if (equal) {
      item->Attach(row, false);
      return 1;
    }
  }
  return 0;
}

}  // namespace qaaisp
