// Every registry key and value name the library reads, spelled once.
#pragma once

namespace qaaisp::settings {

// Keys below HKEY_LOCAL_MACHINE.
inline constexpr const char* kProductKey = "SOFTWARE\\Wow6432Node\\Quill Arbor\\Quill Arbor";
inline constexpr const char* kMapiKey =
    "SOFTWARE\\Wow6432Node\\Quill Arbor\\Quill Arbor\\Services\\MAPI";

// Library frame.
inline constexpr const char* kStoreEventNotificationMode = "Store Event Notification Mode";
inline constexpr const char* kPreventMessageDuplicates = "Prevent Message Duplicates";
inline constexpr const char* kMailboxSizeCalcMode = "Mailbox Size Calc Mode";
inline constexpr const char* kMailRootDirectory = "Mail Root Directory";
inline constexpr const char* kMailRoot = "Mail Root";
inline constexpr const char* kDataDirectory = "Data Directory";
inline constexpr const char* kAllowCustomPostofficePaths = "Allow Custom Postoffice Paths";
inline constexpr const char* kBadMailDirectory = "Bad Mail Directory";
inline constexpr const char* kApplicationDirectory = "Application Directory";
inline constexpr const char* kUseBufferAppendMode = "UseBufferAppendMode";

// Store paths.
inline constexpr const char* kPublicFoldersEnabled = "Public Folders Enabled";

// Index block files.
inline constexpr const char* kProvidersKey =
    "SOFTWARE\\Wow6432Node\\Quill Arbor\\Quill Arbor\\Providers";
inline constexpr const char* kIndexUnblockMode = "Index Unblock Mode";

// Rows and the sorted index.
inline constexpr const char* kIndexUsesLocalProperties = "Index Uses Local Properties";
inline constexpr const char* kIndexGarbageCollectionThreshold =
    "Index Garbage Collection Threshold";

// Index persistence.
inline constexpr const char* kImapServiceKey =
    "SOFTWARE\\Wow6432Node\\Quill Arbor\\Quill Arbor\\SERVICES\\IMAP";
inline constexpr const char* kBackupIndex = "Backup Index";
inline constexpr const char* kBackupIndexInterval = "Backup Index Interval";
inline constexpr const char* kUseXmlStreamIndexDeserialisation =
    "Use XML Stream Index Deserialisation";
inline constexpr const char* kUseXmlStreamIndexSerialisation = "Use XML Stream Index Serialisation";
inline constexpr const char* kCalendarReIndexMode = "Calendar ReIndex Mode";
inline constexpr const char* kIndexReadCacheSize = "Index Read Cache Size";
inline constexpr const char* kTimestampFile = "Timestamp file";
inline constexpr const char* kOffsetIndex = "Offset Index";
inline constexpr const char* kMsxmlIndexSerialisationProducesOldFormat =
    "MSXML Index Serialisation Produces Old Format";
inline constexpr const char* kIndexWriteCacheSize = "Index Write Cache Size";
inline constexpr const char* kDebugIndexSaves = "Debug Index Saves";
inline constexpr const char* kIndexRequiresValidUtf8 = "Index Requires Valid UTF8";

// MIME section reader.
inline constexpr const char* kStoreProviderKey =
    "SOFTWARE\\Wow6432Node\\Quill Arbor\\Quill Arbor\\Providers\\Store";
inline constexpr const char* kMessagePartAllocationUnit = "Message Part Allocation Unit";

// Message header indexing and UID branding.
inline constexpr const char* kNewIndexing = "New Indexing";
inline constexpr const char* kIndexingParsesMultipartAlternative =
    "Indexing Parses Multipart Alternative For Attachments";
inline constexpr const char* kUidBrandingEnabled = "UID Branding Enabled";

// Folder re-scan.
inline constexpr const char* kMaximumIndexRows = "Maximum Index Rows";

}  // namespace qaaisp::settings
