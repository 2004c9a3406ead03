/* Compiles the public header as C. */
#include "qaaisp/qaaisp.h"

_Static_assert(sizeof(StoreFolderRecord) == 2576, "StoreFolderRecord");
_Static_assert(sizeof(CommandMessageRecord) == 26176, "CommandMessageRecord");

int QaaispHeaderCompiledAsC(void) {
  return (int)(sizeof(FolderDetails) + sizeof(MessageSummaryRecord) + sizeof(StoreFolderRecord) +
               sizeof(MailboxSizeRecord) + sizeof(BLOBRecord) + sizeof(CommandMessageRecord) +
               sizeof(FolderRecord) + sizeof(MessageItemBLOBRecord) + sizeof(MessageListRecord) +
               sizeof(MessageItemRecord) + sizeof(MessageFileRecord) + sizeof(AppointmentRecord));
}
