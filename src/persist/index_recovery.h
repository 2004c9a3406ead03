// The backup of a folder's index file and the moves that recover from a bad
// one. All work on "_index.xml" by name, for groups too: groups are never
// backed up under their own name.
#pragma once

#include <cstdint>
#include <string>

namespace qaaisp::persist {

// Copies _index.xml over _index.xml.bak and sets all three times of the
// copy to now, so that its age counts from the backup, not the last save.
void BackupIndexFile(const std::string& folder);
// Moves _index.xml aside to .bad and copies the backup in its place, with
// fresh times. False without a backup, or when the copy failed.
bool RestoreIndexBackup(const std::string& folder);
// Copies _index.xml over _index.xml.bad and deletes it, trying 10 times a
// second apart while the file is held. True once it is gone from its place.
bool QuarantineIndexFile(const std::string& folder);
bool IndexBackupExists(const std::string& folder);
// Minutes since the backup was written; 0 when there is none.
uint32_t IndexBackupAgeMinutes(const std::string& folder);
// One attempt; the result is of no interest.
void DeleteIndexBackup(const std::string& folder);

// Turns an elapsed time (FILETIME ticks) into minutes the way backup ages
// have always been counted: by calendar fields of the elapsed time read as a
// date after 1601, with months of 30 days and years of 365.
uint32_t ElapsedMinutesByCalendarFields(uint64_t ticks);

}  // namespace qaaisp::persist
