#include "qastore/settings_catalogue.h"

#include <array>
#include <string_view>

#include "base/setting_names.h"
#include "base/settings.h"

namespace qaaisp::qastore {
namespace {

using namespace settings;  // NOLINT: the table names every value

constexpr SettingEntry Dword(const char* key, const char* name, uint32_t def, const char* meaning) {
  return {key, name, false, def, "", meaning};
}
constexpr SettingEntry Text(const char* key, const char* name, const char* meaning) {
  return {key, name, true, 0, "", meaning};
}

constexpr std::array kCatalogue = {
    Text(kMapiKey, kMailRootDirectory, "mail root, first choice"),
    Text(kProductKey, kMailRoot, "mail root, second choice"),
    Text(kProductKey, kDataDirectory, "mail root is <this>\\POSTOFFICES when both are absent"),
    Text(kProductKey, kApplicationDirectory, "where the provider libraries are"),
    Text(kProductKey, kBadMailDirectory, "bad mail directory"),
    Dword(kProductKey, kAllowCustomPostofficePaths, 0, "1: postoffices may name their own root"),
    Dword(kProductKey, kStoreEventNotificationMode, 0, "4: opening an index notifies"),
    Dword(kProductKey, kPreventMessageDuplicates, 0,
          "deliveries test Message-ID (1 delete, 2 rename to .DUP, other: leave)"),
    Dword(kProductKey, kMailboxSizeCalcMode, 0, "1: mailbox sizes sum the folder indexes"),
    Dword(kProductKey, kUseBufferAppendMode, 1, "text replacement builds a new string"),
    Dword(kProductKey, kPublicFoldersEnabled, 1, "the \"Public\" folder form is on"),
    Dword(kProvidersKey, kIndexUnblockMode, 0, "an orphaned _index.blk is deleted at once"),
    Dword(kProductKey, kIndexUsesLocalProperties, 1, "rows of an index use its own name table"),
    Dword(kProductKey, kIndexGarbageCollectionThreshold, 500,
          "dead rows in an index file before it is rewritten whole"),
    Dword(kProductKey, kBackupIndex, 0, "keep _index.xml.bak"),
    Dword(kProductKey, kBackupIndexInterval, 370, "minutes between backups"),
    Dword(kProductKey, kUseXmlStreamIndexDeserialisation, 0, "1: the stream reader loads indexes"),
    Dword(kProductKey, kUseXmlStreamIndexSerialisation, 0, "1: the stream writer saves indexes"),
    Dword(kProductKey, kCalendarReIndexMode, 0, "calendar loads re-read item files"),
    Dword(kProductKey, kIndexReadCacheSize, 32768, "read buffer of the stream reader, bytes"),
    Dword(kImapServiceKey, kTimestampFile, 0, "1: saves touch _index.dat"),
    Dword(kProductKey, kOffsetIndex, 0, "1: saves keep the offset table _index.bin"),
    Dword(kProductKey, kMsxmlIndexSerialisationProducesOldFormat, 1,
          "the document writer writes the older form"),
    Dword(kProductKey, kIndexWriteCacheSize, 32768, "write buffer of the stream writer, bytes"),
    Dword(kProductKey, kDebugIndexSaves, 0, "saves report their parameters"),
    Dword(kProductKey, kIndexRequiresValidUtf8, 1,
          "ill-formed UTF-8 in values becomes spaces on save"),
    Dword(kStoreProviderKey, kMessagePartAllocationUnit, 131072,
          "allocation unit of message sections, bytes"),
    Dword(kProductKey, kNewIndexing, 1, "0: the line reader indexes messages"),
    Dword(kProductKey, kIndexingParsesMultipartAlternative, 0,
          "multipart/alternative counts as an attachment (line reader)"),
    Dword(kProductKey, kUidBrandingEnabled, 0, "UIDs are written into message files"),
    Dword(kProductKey, kMaximumIndexRows, 1000000, "most files one re-scan takes in"),
};

}  // namespace

std::span<const SettingEntry> SettingCatalogue() { return kCatalogue; }

EffectiveSetting ReadEffective(const SettingEntry& entry) {
  EffectiveSetting out;
  if (entry.is_text) {
    std::string value;
    out.from_file = ReadStringSetting(entry.key, entry.name, &value, /*key_as_is=*/true) != 0;
    out.value = out.from_file ? value : entry.default_text;
    out.differs = out.from_file && value != entry.default_text;
    return out;
  }
  uint32_t value = 0;
  out.from_file = ReadDwordSetting(entry.key, entry.name, &value) != 0;
  if (!out.from_file) value = entry.default_number;
  out.value = std::to_string(value);
  out.differs = out.from_file && value != entry.default_number;
  return out;
}

std::string ShortKey(const char* key) {
  const std::string_view product = kProductKey;
  const std::string_view k = key;
  if (k == product) return "(main)";
  if (k.size() > product.size() + 1 && k.substr(0, product.size()) == product) {
    return std::string(k.substr(product.size() + 1));
  }
  return std::string(k);
}

}  // namespace qaaisp::qastore
