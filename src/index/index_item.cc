#include "index/index_item.h"

#include "index/text_search.h"

namespace {

constexpr std::string_view kFlagStatus = "FLAGSTATUS";
constexpr std::string_view kRead = "READ";
constexpr std::string_view kSeenFlag = "\\SEEN";

}  // namespace

IndexItem::~IndexItem() {
  if (owned_) delete container_;
}

void IndexItem::Attach(Container* container, bool copy) {
  if (container == container_ && !copy) return;
  // Clone before letting go of the old row: it may be the one cloned.
  Container* next = copy && container ? container->Clone() : container;
  if (owned_) delete container_;
  container_ = next;
  // A row held as it is belongs to someone else (usually its table), so the
  // item must never destroy it.
  owned_ = copy && container;
}

void IndexItem::Create() {
  if (owned_) delete container_;
  container_ = new Container;
  owned_ = true;
}

IndexItem::Container* IndexItem::Release() {
  Container* c = container_;
  container_ = nullptr;
  owned_ = false;
  return c;
}

void IndexItem::SetProperty(std::string_view name, std::string_view value) {
  if (!container_) return;
  container_->SetText(name, value, true);
  if (name == kFlagStatus)
    container_->SetText(kRead, qaaisp::ContainsNoCase(value, kSeenFlag) ? "1" : "0", true);
}

bool IndexItem::SetPropertyForced(std::string_view name, std::string_view value) {
  if (!container_) return false;
  container_->SetText(name, value, true);
  return container_->HasValue(name);
}

bool IndexItem::SetIntegerForced(std::string_view name, int32_t value) {
  if (!container_) return false;
  container_->SetInteger(name, value);
  return container_->HasValue(name);
}

bool IndexItem::GetProperty(std::string_view name, std::string* out) const {
  if (!container_) {
    out->clear();
    return false;
  }
  container_->GetText(name, out);
  return container_->HasValue(name);
}

int32_t IndexItem::GetInteger(std::string_view name) const {
  return container_ ? container_->GetInteger(name) : 0;
}

bool IndexItem::HasKey() const { return container_ && container_->HasValueAt(Container::IdKey()); }

void IndexItem::RemoveProperty(std::string_view name) {
  if (container_) container_->Remove(name);
}

void IndexItem::Reset() {
  if (container_) container_->ResetKeepingKeys();
}
