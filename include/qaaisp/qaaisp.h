/*
 * qaaisp: the mail-store library's C boundary.
 *
 * Conventions
 * - Results: 1 success, 0 failure, 2 cached or shared, -1 no value.
 * - Texts are NUL-terminated char strings; names fit 1023 bytes.
 * - A value handed out through char** is a malloc block that the caller
 *   frees with StoreItem_FreeProperty or Memory_Free, never with its own
 *   allocator.
 * - Records below are byte-exact wire formats (little-endian, packed as
 *   declared; every field is naturally aligned already).
 * - Nothing is thrown across this boundary.
 */
#ifndef QAAISP_QAAISP_H_
#define QAAISP_QAAISP_H_

#include <stdint.h>

#if defined(_WIN32)
#define QAAISP_API __declspec(dllexport)
#else
#define QAAISP_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef void *QA_HANDLE; /* a block-file handle; 0 means none */
typedef struct QA_FILETIME {
  uint32_t dwLowDateTime, dwHighDateTime;
} QA_FILETIME;
typedef struct StoreIndex StoreIndex;     /* opaque */
typedef struct IndexItem IndexItem;       /* opaque */
typedef struct FolderHandle FolderHandle; /* opaque */
typedef struct TLSFolderList {
  uint32_t reserved;
  void *map;
  void *position[2];
} TLSFolderList;

/* The 13-field status record of a folder, also the content of _FOLDER.DAT. */
typedef struct FolderDetails {
  int32_t Reserved0;
  int32_t Deleted;
  int32_t Reserved2;
  int32_t Answered;
  int32_t Flagged;
  int32_t FirstSeen;
  int32_t Total;
  int32_t Seen;
  int32_t Recent;
  int32_t RecentCount;
  int32_t RecentCount2;
  int32_t LastUID;
  int32_t Reserved12;
} FolderDetails;

typedef struct MessageSummaryRecord {
  int32_t UID, SEQ, IDX;
  char From[512];
  char Subject[1024];
  char Received[64];
  char MessageDate[64];
  int32_t Attachments, Importance;
  char FlagStatus[256];
} MessageSummaryRecord;

typedef struct StoreFolderRecord {
  char Mailbox[512];
  char Postoffice[512];
  char Folder[1024];
  char Name[512];
  uint32_t Size;
  uint8_t Reserved[12];
} StoreFolderRecord;

typedef struct MailboxSizeRecord {
  char PostofficeName[128];
  char MailboxName[288];
  char SecondName[288];
  int32_t Reserved704;
  int32_t QuotaEnabled;
  int32_t QuotaLimit;
  int32_t CurrentSize;
} MailboxSizeRecord;

typedef struct BLOBRecord {
  char Path[1024];
  uint8_t Data[8192];
  int32_t Size;
} BLOBRecord;

typedef struct CommandMessageRecord {
  char Directory[1024];
  char Server[256];
  char DomainName[256];
  char Recipients[24000];
  char Sender[512];
  int32_t TimeAcquired;
  int32_t NextSendTime;
  char MessageID[64];
  int32_t Retries;
  uint8_t Reserved[4];
  char Priority[32];
  char Status[16];
} CommandMessageRecord;

typedef struct FolderRecord {
  char Path[1024];
  char Name[512];
  uint8_t Reserved[4];
} FolderRecord;

typedef struct MessageItemBLOBRecord {
  char Postoffice[128];
  char Mailbox[128];
  char Folder[1024];
  char Filename[128];
  uint8_t Data[8192];
  int32_t DataLength;
} MessageItemBLOBRecord;

typedef struct MessageListRecord {
  char Folder[1024];
  char Postoffice[128];
  char Mailbox[128];
  uint8_t Carried[4100];
} MessageListRecord;

typedef struct MessageItemRecord {
  int32_t Flags;
  int32_t UID;
  char ID[128];
  char Xml[2048];
} MessageItemRecord;

typedef struct MessageFileRecord {
  char Directory[1024];
  int32_t Size;
  int32_t Time;
  char Name[128];
} MessageFileRecord;

/* Not exported: the wire form of the remote appointment calls. */
typedef struct AppointmentRecord {
  char mailbox[256];
  char postoffice[256];
  int32_t startTime;
  int32_t endTime;
  char id[64];
  char calendar[64];
} AppointmentRecord;

/* Library */
QAAISP_API int StoreLibrary_Init(void);
QAAISP_API int StoreLibrary_UnInit(void);
QAAISP_API int StoreLibrary_ThreadInit(void);
QAAISP_API int StoreLibrary_ThreadRelease(void);
QAAISP_API int StoreLibrary_SetAffinity(int mode);
QAAISP_API intptr_t SetLoggingFunction(void *a, void *b, void *c, void *d);
QAAISP_API void *Memory_Allocate(uint64_t size);
QAAISP_API int Memory_Free(void *p);

/* Index: store paths and block files */
QAAISP_API int StoreIndex_SetPaths(StoreIndex *ix);
QAAISP_API int WaitForAccessToIndexFileEx(const char *path, int keepHandle, QA_HANDLE *handle);
QAAISP_API int UnBlockIndexFileAccessEx(const char *path, int closeHandle, QA_HANDLE *handle);

/* Index: open, cache, update and commit */
QAAISP_API int StoreIndex_Init(StoreIndex *ix);
QAAISP_API int StoreIndex_Open(StoreIndex *ix, int mode);
QAAISP_API int StoreIndex_Get(StoreIndex *ix);
QAAISP_API int StoreIndex_Scan(StoreIndex *ix);
QAAISP_API int StoreIndex_Close(StoreIndex *ix);
QAAISP_API int StoreIndex_Release(StoreIndex *ix);
QAAISP_API int StoreIndex_Save(StoreIndex *ix);
QAAISP_API int StoreIndex_InsertItem(StoreIndex *ix, const char *fileName, int flag);
QAAISP_API int StoreIndex_RemoveItem(StoreIndex *ix, const char *identifiers);
QAAISP_API int GetStoreItemByMessageID(StoreIndex *ix, const char *id, int itemClass,
                                       MessageSummaryRecord *out);
QAAISP_API int Direct_StoreIndex_InsertItemEx(const char *po, const char *mbox, const char *folder,
                                              const char *fileNames, const char *flags);
QAAISP_API int Direct_StoreIndex_InsertItem(const char *po, const char *mbox, const char *folder,
                                            const char *fileNames);
QAAISP_API int Direct_StoreIndex_UpdateItem(const char *po, const char *mbox, const char *folder,
                                            const char *ids, const char *update);
QAAISP_API int Direct_StoreIndex_RemoveItem(const char *po, const char *mbox, const char *folder,
                                            const char *ids);
QAAISP_API void GetCachedStatus(const char *po, const char *mbox, const char *folder,
                                FolderDetails *out);
QAAISP_API void SetCachedStatus(const char *po, const char *mbox, const char *folder,
                                const FolderDetails *in);

/* Folder re-scan: rebuilds a message folder's index from its files */
QAAISP_API int ScanFolders(const char *folderPath);

/* Common: dates and the delimiter cutter */
QAAISP_API int UnixTimeToFileTime(int32_t seconds, QA_FILETIME *out);
QAAISP_API int64_t UnixTimeFromFileTime(QA_FILETIME ft);
QAAISP_API const char *GetXMLDataEx(const char *text, const char *start, const char *end,
                                    char *out, int outSize);

/* Helpers for C callers: make and destroy the library's objects, name an
 * index, and read the row count of its last open. */
QAAISP_API StoreIndex *StoreIndex_New(void);
QAAISP_API void StoreIndex_Delete(StoreIndex *ix);
QAAISP_API IndexItem *IndexItem_New(void);
QAAISP_API void IndexItem_Delete(IndexItem *item);
QAAISP_API int StoreIndex_SetNames(StoreIndex *ix, const char *po, const char *mbox,
                                   const char *folder, int itemClass);
QAAISP_API int StoreIndex_GetRowCount(StoreIndex *ix);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* QAAISP_QAAISP_H_ */
