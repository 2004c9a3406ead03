// IndexItem: what callers hold to work on one row. It points at a row (or at
// none), may own it, and carries the names of where the row lives, filled
// when first needed.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "index/index_item_property_container.h"
#include "index/name_text.h"

class IndexItem {
 public:
  IndexItem() = default;
  virtual ~IndexItem();
  IndexItem(const IndexItem&) = delete;
  IndexItem& operator=(const IndexItem&) = delete;

  using Container = qaaisp::IndexItemPropertyContainer;

  // Destroys a row this item owns, then holds the given one: as an owned
  // clone with copy set, otherwise as it is, with ownership unchanged.
  void Attach(Container* container, bool copy);
  // Holds a new empty row and owns it.
  void Create();
  // Forgets the row without destroying it.
  void Detach() { container_ = nullptr; }
  bool HasItem() const { return container_ != nullptr; }
  Container* container() const { return container_; }
  bool owned() const { return owned_; }
  void set_owned(bool owned) { owned_ = owned; }
  // Hands the owned row to the caller, which must destroy it.
  Container* Release();

  // Stores with force. Setting "FLAGSTATUS" also sets "READ" to "1" when the
  // value holds "\SEEN" (in any case) and to "0" when not; "READ" alone does
  // not touch "FLAGSTATUS".
  void SetProperty(std::string_view name, std::string_view value);
  // Store even an empty value; true if the slot then has a value.
  bool SetPropertyForced(std::string_view name, std::string_view value);
  bool SetIntegerForced(std::string_view name, int32_t value);
  // True if the row has a value; out is empty otherwise.
  bool GetProperty(std::string_view name, std::string* out) const;
  int32_t GetInteger(std::string_view name) const;
  // Whether the row has an "ID".
  bool HasKey() const;
  void RemoveProperty(std::string_view name);
  // Keeps "ID" and "UID" and drops every other property.
  void Reset();

  int32_t reserved = 0;
  int32_t item_class = 0;
  qaaisp::NameText postoffice;
  qaaisp::NameText mailbox;
  qaaisp::NameText folder;
  qaaisp::NameText path;

 private:
  Container* container_ = nullptr;
  bool owned_ = false;
};
