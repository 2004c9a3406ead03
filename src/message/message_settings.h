// The settings of message indexing and branding, each read once per process
// under the product key.
#pragma once

#include <cstdint>

namespace qaaisp {

// "New Indexing": 0 selects the line reader; any other value, or none, the
// MIME reader.
uint32_t NewIndexingSetting();
// "Indexing Parses Multipart Alternative For Attachments": 1 makes the line
// reader count multipart/alternative as attachments.
uint32_t MultipartAlternativeAttachmentsSetting();
// "Prevent Message Duplicates", read here apart from the library frame's
// copy: not 0 stores "MSGID" in message rows.
uint32_t MessageDuplicatesSetting();
// "UID Branding Enabled": not 0 turns on branding of message files.
uint32_t UidBrandingSetting();

// Forgets what was read, so that tests can change the registry.
void ResetMessageSettingsForTesting();

}  // namespace qaaisp
