// The document member: reads and writes the whole index file through an XML
// document. Simple and slow: it always loads in full, always rewrites the
// whole file, and takes no part in backup. It can write the older form of
// the file, which the stream reader accepts and upgrades.
#pragma once

#include <map>
#include <string>

#include "persist/index_serialiser.h"

namespace pugi {
class xml_document;
class xml_node;
}  // namespace pugi

namespace qaaisp {

inline constexpr const char* kXmlNotCompatibleText =
    "Quillarbor Folder Indexing Library is not compatible with the version of XML installed on "
    "this computer";

class MSXMLStoreIndexSerialiser : public StoreIndexSerialiser {
 public:
  // Reads "MSXML Index Serialisation Produces Old Format".
  MSXMLStoreIndexSerialiser();

  void BackupSerialisation(const std::string& folder) override;
  bool RestoreSerialisationBackup(const std::string& folder) override;
  bool QuarantineSerialisation(const std::string& folder) override;
  int SerialiseHook(SORTEDSTOREINDEXTYPE* index, const std::string& folder,
                    int32_t item_class) override;
  int32_t DeserialiseHook(SORTEDSTOREINDEXTYPE* index, const LoadRequest& request) override;
  bool RequiresFullLoad() const override { return true; }
  // Deliberately false although the backup slots work: this member never
  // takes part in backup or recovery.
  bool SupportsBackup() const override { return false; }
  bool SupportsFieldFilter() const override { return false; }
  bool IndexXMLBackupExists(const std::string& folder) override;
  uint32_t BackupAgeMinutes(const std::string& folder) override;
  void IndexXMLDeleteBackupSerialisation(const std::string& folder) override;

  // Fills the index from a parsed document; 1 for success.
  int LoadFromDocument(SORTEDSTOREINDEXTYPE* index, const pugi::xml_document& document,
                       const std::string& folder, int32_t verify_files);
  // Adds the row's ELEMENT under parent.
  void SaveToNode(pugi::xml_document& document, pugi::xml_node& parent,
                  const IndexItemPropertyContainer& row);
  // Writes the ID and UID attributes and one child per other property.
  void SerialiseItemProps(pugi::xml_document& document, pugi::xml_node& element,
                          const std::map<std::string, std::string>& properties);

  bool old_format() const { return OldFormat; }

 private:
  bool OldFormat;
};

// What the document writer keeps of a value: every control byte but tab,
// line feed and carriage return, and every byte from 0x80 up, becomes a
// space, so only ASCII is written.
std::string CleanDocumentText(std::string_view value);

}  // namespace qaaisp
