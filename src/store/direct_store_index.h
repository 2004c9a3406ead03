// The one-call transactions of delivery agents and protocol services, which
// hold no index of their own: each makes a private StoreIndex, locks and
// loads only what it needs, changes it, saves, and keeps the folder's status
// file and the mailbox's size file in step.
#pragma once

namespace qaaisp {

// Indexes the comma-separated item files of a folder. flags, if given, is a
// comma-separated list of flag texts, one per file ("$QAGROUP" makes the
// folder a groups folder). Positive for success; 0 or negative otherwise.
int Direct_StoreIndex_InsertItemEx(const char* postoffice, const char* mailbox, const char* folder,
                                   const char* file_names, const char* flags);
// Applies an update text ("+\Seen", "-\Deleted", "\Seen \Flagged",
// "SIZE=1234") to the rows of the comma-separated identifiers. Gives the
// save's result.
int Direct_StoreIndex_UpdateItem(const char* postoffice, const char* mailbox, const char* folder,
                                 const char* identifiers, const char* update);
// Removes the rows of the comma-separated identifiers. Gives the save's
// result.
int Direct_StoreIndex_RemoveItem(const char* postoffice, const char* mailbox, const char* folder,
                                 const char* identifiers);

}  // namespace qaaisp
