#include "message/message_settings.h"

#include "base/setting_names.h"
#include "base/settings.h"

namespace qaaisp {
namespace {

LazySetting g_new_indexing(settings::kProductKey, settings::kNewIndexing, 1);
LazySetting g_alternative_attachments(settings::kProductKey,
                                      settings::kIndexingParsesMultipartAlternative, 0);
LazySetting g_duplicates(settings::kProductKey, settings::kPreventMessageDuplicates, 0);
LazySetting g_branding(settings::kProductKey, settings::kUidBrandingEnabled, 0);

}  // namespace

uint32_t NewIndexingSetting() { return g_new_indexing.Get(); }
uint32_t MultipartAlternativeAttachmentsSetting() { return g_alternative_attachments.Get(); }
uint32_t MessageDuplicatesSetting() { return g_duplicates.Get(); }
uint32_t UidBrandingSetting() { return g_branding.Get(); }

void ResetMessageSettingsForTesting() {
  g_new_indexing.Reset();
  g_alternative_attachments.Reset();
  g_duplicates.Reset();
  g_branding.Reset();
}

}  // namespace qaaisp
