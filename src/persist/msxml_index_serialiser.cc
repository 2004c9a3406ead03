#include "persist/msxml_index_serialiser.h"

#include <pugixml.hpp>

#include <cstdio>

#include "base/failure_guard.h"
#include "base/report.h"
#include "index/index_item.h"
#include "persist/index_recovery.h"
#include "persist/index_report.h"
#include "persist/index_text.h"
#include "persist/persist_settings.h"
#include "platform/env.h"
#include "platform/win32_error.h"

namespace qaaisp {
namespace {

// The document layer's parse errors, one code per kind of fault.
constexpr uint32_t kParseErrorBase = 0xC00CE500u;
constexpr const char* kSaveGuardPrefix =
    "MSXMLStoreIndexSerialiser::SerialiseHook::An exception occurred. Exception Nr. ";
constexpr const char* kPropsGuardPrefix =
    "MSXMLStoreIndexSerialiser::SerialiseItemProps::An exception occurred. Exception Nr. ";

uint32_t HresultFromWin32(uint32_t error) {
  return error == 0 ? 0x80004005u : (0x80070000u | (error & 0xFFFFu));
}

// Reports a failure under a guard name that carries the error's number.
void ReportNumberedFailure(const char* prefix) {
  try {
    throw;
  } catch (const ComError& e) {
    std::string name = prefix + std::to_string(static_cast<int32_t>(e.hresult()));
    ReportGuardFailure(ComErrorReportText(name.c_str(), e, 0));
  } catch (const Exception& e) {
    std::string name = prefix + std::string("0");
    ReportGuardFailure(ExceptionReportText(name.c_str(), e, 0));
  } catch (...) {
    std::string name = prefix + std::string("0");
    ReportGuardFailure(UnknownFailureReportText(name.c_str(), kSerialisationSource, 0, 0));
  }
}

class StringWriter : public pugi::xml_writer {
 public:
  void write(const void* data, size_t size) override {
    out.append(static_cast<const char*>(data), size);
  }
  std::string out;
};

void AppendElementText(const pugi::xml_node& node, std::string* out) {
  for (pugi::xml_node child = node.first_child(); child; child = child.next_sibling()) {
    switch (child.type()) {
      case pugi::node_pcdata:
      case pugi::node_cdata:
        out->append(child.value());
        break;
      case pugi::node_element:
        AppendElementText(child, out);
        break;
      default:
        break;
    }
  }
}

void PrintToStandardOutput(const std::string& text) {
  std::fputs(text.c_str(), stdout);
  std::fflush(stdout);
}

// A parse failure as the document layer reports it.
void PrintParseError(const std::string& bytes, const pugi::xml_parse_result& result) {
  long line = 1, column = 1;
  size_t end = std::min(bytes.size(), static_cast<size_t>(std::max<ptrdiff_t>(result.offset, 0)));
  for (size_t i = 0; i < end; ++i) {
    if (bytes[i] == '\n') {
      ++line;
      column = 1;
    } else {
      ++column;
    }
  }
  char text[256];
  std::snprintf(text, sizeof text, "Code = 0x%x\n",
                static_cast<unsigned>(kParseErrorBase + static_cast<unsigned>(result.status)));
  std::string out = "Error:\n";
  out += text;
  std::snprintf(text, sizeof text, "Source = Line : %ld; Char : %ld\n", line, column);
  out += text;
  out += "Error Description = " + std::string(result.description()) + "\n";
  PrintToStandardOutput(out);
}

// Stores one value as the document reader does: text keeps its bytes, a
// number its leading digits; an empty value stores nothing.
void StoreValue(IndexItem* item, std::string_view name, std::string_view value) {
  if (value.empty()) return;
  item->container()->SetText(name, value, false);
}

}  // namespace

std::string CleanDocumentText(std::string_view value) {
  std::string out(value);
  for (char& c : out) {
    unsigned char b = static_cast<unsigned char>(c);
    if ((b < 0x20 && c != '\t' && c != '\n' && c != '\r') || b >= 0x80) c = ' ';
  }
  return out;
}

MSXMLStoreIndexSerialiser::MSXMLStoreIndexSerialiser()
    : OldFormat(persist::MsxmlOldFormatSetting() == 1) {}

void MSXMLStoreIndexSerialiser::BackupSerialisation(const std::string& folder) {
  persist::BackupIndexFile(folder);
}
bool MSXMLStoreIndexSerialiser::RestoreSerialisationBackup(const std::string& folder) {
  return persist::RestoreIndexBackup(folder);
}
bool MSXMLStoreIndexSerialiser::QuarantineSerialisation(const std::string& folder) {
  return persist::QuarantineIndexFile(folder);
}
bool MSXMLStoreIndexSerialiser::IndexXMLBackupExists(const std::string& folder) {
  return persist::IndexBackupExists(folder);
}
uint32_t MSXMLStoreIndexSerialiser::BackupAgeMinutes(const std::string& folder) {
  return persist::IndexBackupAgeMinutes(folder);
}
void MSXMLStoreIndexSerialiser::IndexXMLDeleteBackupSerialisation(const std::string& folder) {
  persist::DeleteIndexBackup(folder);
}

int MSXMLStoreIndexSerialiser::SerialiseHook(SORTEDSTOREINDEXTYPE* index, const std::string& folder,
                                             int32_t item_class) {
  try {
    index->ItemFilter.clear();
    index->FullRewriteRequired = true;
    std::unique_ptr<pugi::xml_document> document(new (std::nothrow) pugi::xml_document);
    if (!document) throw ComError(0x8007000Eu, "", kXmlNotCompatibleText);
    pugi::xml_node root = document->append_child("BASEELEMENT");
    char last_uid[16];
    std::snprintf(last_uid, sizeof last_uid, OldFormat ? "%lu" : "x%08lx",
                  static_cast<unsigned long>(index->LastUID));
    root.append_attribute("LASTUID") = last_uid;
    if (OldFormat) {
      for (const auto& [id, row] : index->by_id()) SaveToNode(*document, root, *row);
    } else {
      for (const auto& [uid, row] : index->by_uid()) SaveToNode(*document, root, *row);
    }
    StringWriter writer;
    document->save(writer, "", pugi::format_raw | pugi::format_no_declaration, pugi::encoding_utf8);

    // The document's own save: the old content is replaced in place. It is
    // written over the old before the file is cut to length, so a writer
    // killed part way leaves the old index whole or the new header (and its
    // LASTUID) in place, never an empty file. Where the old was longer,
    // blanks cover the rest in the same write: killed before the cut, the
    // file is the new document with white space behind it, which loads.
    platform::OpenOptions options;
    options.read = false;
    options.write = true;
    options.disposition = platform::OpenDisposition::kOpenAlways;
    options.share = platform::ShareMode::kShareReadWrite;
    std::unique_ptr<platform::File> file =
        platform::Env::Default()->OpenFile(persist::IndexFilePath(folder, item_class), options);
    if (!file) throw ComError(HresultFromWin32(platform::LastError()));
    const size_t length = writer.out.size();
    const int64_t old_length = file->Size();
    if (old_length > 0 && static_cast<uint64_t>(old_length) > length)
      writer.out.append(static_cast<size_t>(old_length) - length, ' ');
    if (!file->WriteAt(0, writer.out.data(), writer.out.size()) || !file->Truncate(length)) {
      throw ComError(HresultFromWin32(platform::LastError()));
    }
    return 1;
  } catch (...) {
    ReportNumberedFailure(kSaveGuardPrefix);
    return 0;
  }
}

void MSXMLStoreIndexSerialiser::SaveToNode(pugi::xml_document& document, pugi::xml_node& parent,
                                           const IndexItemPropertyContainer& row) {
  pugi::xml_node element = parent.append_child("ELEMENT");
  if (!element) {
    ErrorTrace("MSXMLStoreIndexSerialiser::SaveToNode->createElement Failed: 0\n");
    return;
  }
  PropertyValues properties;
  row.Flatten(nullptr, &properties);
  SerialiseItemProps(document, element, properties);
}

void MSXMLStoreIndexSerialiser::SerialiseItemProps(
    pugi::xml_document& /*document*/, pugi::xml_node& element,
    const std::map<std::string, std::string>& properties) {
  try {
    for (const auto& [name, value] : properties) {
      if (name == "IDX" || name == "SEQ") continue;
      if (name == "UID" || name == "ID") {
        element.append_attribute(name.c_str()) = CleanDocumentText(value).c_str();
      } else {
        element.append_child(name.c_str()).text() = CleanDocumentText(value).c_str();
      }
    }
  } catch (...) {
    ReportNumberedFailure(kPropsGuardPrefix);
    throw;
  }
}

int32_t MSXMLStoreIndexSerialiser::DeserialiseHook(SORTEDSTOREINDEXTYPE* index,
                                                   const LoadRequest& request) {
  try {
    std::unique_ptr<pugi::xml_document> document(new (std::nothrow) pugi::xml_document);
    if (!document) {
      ErrorTrace(kXmlNotCompatibleText);
      return LoadFailed;
    }
    const std::string path = persist::IndexFilePath(request.folder, request.item_class);
    platform::Env* env = platform::Env::Default();
    std::string bytes;
    pugi::xml_parse_result parsed;
    if (!platform::ReadWholeFile(env, path, &bytes)) {
      // Resource not found: nothing is printed for a missing file.
      Trace(8, "Failed to load DOM: " + path);
      return LoadFailed;
    }
    parsed =
        document->load_buffer(bytes.data(), bytes.size(), pugi::parse_default, pugi::encoding_utf8);
    if (parsed.status == pugi::status_no_document_element) {
      PrintToStandardOutput("Error: The document \"" + path +
                            "\" was loaded, but the documentElement could not be accessed. There "
                            "may be invalid permissions set on this object.\n");
      return LoadFailed;
    }
    if (!parsed) {
      PrintParseError(bytes, parsed);
      Trace(8, "Failed to load DOM: " + path);
      return LoadFailed;
    }
    if (LoadFromDocument(index, *document, request.folder, request.verify_files) != 1) {
      return LoadFailed;
    }
    index->OffsetsValid = false;  // rows read here carry no places in the file
    platform::FileInfo info;
    if (env->Stat(path, &info) && info.exists) index->IndexFileDate = info.write_time.ticks();
    return LoadFull;
  } catch (...) {
    PrintToStandardOutput("General error loading index file\n");
    return LoadFailed;
  }
}

int MSXMLStoreIndexSerialiser::LoadFromDocument(SORTEDSTOREINDEXTYPE* index,
                                                const pugi::xml_document& document,
                                                const std::string& folder, int32_t verify_files) {
  pugi::xml_node root = document.document_element();
  if (!root) return 0;
  index->UnInit();
  pugi::xml_attribute last_uid = root.attribute("LASTUID");
  if (last_uid) {
    uint32_t value = 0;
    if (persist::ParseLastUID(&value, last_uid.value()) != 1) {
      index->ItemFilter.clear();
      index->FullRewriteRequired = true;
    }
    index->LastUID = value;
  }
  platform::Env* env = platform::Env::Default();
  PropertyKey idx_key = LookupProperty("IDX", nullptr);
  PropertyKey seq_key = LookupProperty("SEQ", nullptr);
  int32_t idx = 1;
  std::string value;
  for (pugi::xml_node element : root.children("ELEMENT")) {
    IndexItem item;
    item.Create();
    bool dropped = false;
    for (pugi::xml_attribute attribute : element.attributes()) {
      value = attribute.value();
      persist::UnescapeIndexText(&value);
      std::string_view name = attribute.name();
      if (persist::IsTombstoneValue(value) ||
          (verify_files > 0 && name == "ID" &&
           !platform::FileExists(env, persist::JoinPath(folder, value)))) {
        dropped = true;
        break;
      }
      StoreValue(&item, name, value);
    }
    if (dropped) continue;
    for (pugi::xml_node child : element.children()) {
      if (child.type() != pugi::node_element) continue;
      value.clear();
      AppendElementText(child, &value);
      StoreValue(&item, child.name(), value);
    }
    item.container()->SetIntegerAt(idx_key, idx++, false);
    IndexItemPropertyContainer* row = item.container();
    if (index->InsertRow(row, UidClash::kNextFree, /*append=*/false)) {
      item.Detach();
    }
  }
  // The sequence follows the UIDs, whatever the order of the file.
  int32_t seq = 1;
  for (const auto& [uid, row] : index->by_uid()) {
    index->AppendRow(row);
    row->SetIntegerAt(seq_key, seq++, false);
  }
  // A load is not a change.
  index->FirstModifiedUID = 0;
  return 1;
}

}  // namespace qaaisp
