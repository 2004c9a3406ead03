// The settings of index persistence, each read once per process and kept.
#pragma once

#include <cstdint>

namespace qaaisp::persist {

uint32_t BackupIndexSetting();                      // "Backup Index", default 0
uint32_t BackupIndexIntervalMinutes();              // "Backup Index Interval", default 370
uint32_t UseStreamDeserialisationSetting();         // 1 selects the stream reader
uint32_t UseStreamSerialisationSetting();           // 1 selects the stream writer
uint32_t CalendarReIndexModeSetting();              // not 0: calendar loads re-read item files
uint32_t IndexReadCacheSizeSetting();               // bytes of read buffer, default 32768
uint32_t IndexGarbageCollectionThresholdSetting();  // tombstones, default 500
uint32_t TimestampFileSetting();                    // 1 creates _index.dat (IMAP key)
uint32_t OffsetIndexSetting();                      // 1 keeps the offset table
uint32_t MsxmlOldFormatSetting();                   // 1: the document writer's old form

// Forgets every kept value, so that a test's registry is read afresh.
void ResetPersistSettingsForTesting();

}  // namespace qaaisp::persist
