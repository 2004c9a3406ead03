#include "persist/persist_settings.h"

#include "base/setting_names.h"
#include "base/settings.h"

namespace qaaisp::persist {
namespace {

using namespace settings;

LazySetting backup_index(kProductKey, kBackupIndex, 0);
LazySetting backup_interval(kProductKey, kBackupIndexInterval, 370);
LazySetting stream_deserialisation(kProductKey, kUseXmlStreamIndexDeserialisation, 0);
LazySetting stream_serialisation(kProductKey, kUseXmlStreamIndexSerialisation, 0);
LazySetting calendar_reindex(kProductKey, kCalendarReIndexMode, 0);
LazySetting read_cache(kProductKey, kIndexReadCacheSize, 32768);
LazySetting garbage_threshold(kProductKey, kIndexGarbageCollectionThreshold, 500);
LazySetting timestamp_file(kImapServiceKey, kTimestampFile, 0);
LazySetting offset_index(kProductKey, kOffsetIndex, 0);
LazySetting msxml_old_format(kProductKey, kMsxmlIndexSerialisationProducesOldFormat, 1);

}  // namespace

uint32_t BackupIndexSetting() { return backup_index.Get(); }
uint32_t BackupIndexIntervalMinutes() { return backup_interval.Get(); }
uint32_t UseStreamDeserialisationSetting() { return stream_deserialisation.Get(); }
uint32_t UseStreamSerialisationSetting() { return stream_serialisation.Get(); }
uint32_t CalendarReIndexModeSetting() { return calendar_reindex.Get(); }
uint32_t IndexReadCacheSizeSetting() { return read_cache.Get(); }
uint32_t IndexGarbageCollectionThresholdSetting() { return garbage_threshold.Get(); }
uint32_t TimestampFileSetting() { return timestamp_file.Get(); }
uint32_t OffsetIndexSetting() { return offset_index.Get(); }
uint32_t MsxmlOldFormatSetting() { return msxml_old_format.Get(); }

void ResetPersistSettingsForTesting() {
  for (LazySetting* s : {&backup_index, &backup_interval, &stream_deserialisation,
                         &stream_serialisation, &calendar_reindex, &read_cache, &garbage_threshold,
                         &timestamp_file, &offset_index, &msxml_old_format}) {
    s->Reset();
  }
}

}  // namespace qaaisp::persist
