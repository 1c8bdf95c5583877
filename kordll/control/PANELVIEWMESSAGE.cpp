#include "kordll/control/PANELVIEWMESSAGE.h"

#include "kordll/control/IIPanel.h"
#include "kordll/record/Focusable.h"

namespace kordll {

PANELVIEWMESSAGE::PANELVIEWMESSAGE() = default;

PANELVIEWMESSAGE::PANELVIEWMESSAGE(const PanelViewRequest& request)
    : message(request.message),
      focusable(request.focusable),
      value(reinterpret_cast<intptr_t>(request.panel)),
      panelID(request.panel != nullptr ? request.panel->GetIPanelID() : 0),
      text(request.text),
      object(request.object),
      point(request.point) {}

PANELVIEWMESSAGE::PANELVIEWMESSAGE(const PANELVIEWMESSAGE& other) {
  CopyFieldsFrom(other);
  if (other.filter.IsFilterActive()) filter = other.filter;
}

PANELVIEWMESSAGE& PANELVIEWMESSAGE::operator=(const PANELVIEWMESSAGE& other) {
  if (this == &other) return *this;
  CopyFieldsFrom(other);
  if (other.filter.IsFilterActive()) filter = other.filter;
  return *this;
}

PANELVIEWMESSAGE::~PANELVIEWMESSAGE() = default;

void PANELVIEWMESSAGE::CopyFieldsFrom(const PANELVIEWMESSAGE& other) {
  rcID = other.rcID;
  command = other.command;
  message = other.message;
  param = other.param;
  focusable = other.focusable;
  focusables = other.focusables;
  focusableList.clear();
  focusableList.reserve(other.focusableList.size());
  for (Focusable* record : other.focusableList) focusableList.push_back(record);
  value = other.value;
  flags = other.flags;
  state = other.state;
  heapAllocated = other.heapAllocated;
  result = other.result;
  panelID = other.panelID;
  text = other.text;
  object = other.object;
  fromDate = other.fromDate;
  toDate = other.toDate;
  point = other.point;
  extent[0] = other.extent[0];
  extent[1] = other.extent[1];
  enabled = other.enabled;
  reserved = other.reserved;
}

void PANELVIEWMESSAGE::ReserveFocusables() {
  if (focusable != nullptr) focusable->Reserve();
  for (Focusable* record : focusableList) {
    if (record != nullptr) record->Reserve();
  }
}

void PANELVIEWMESSAGE::ReleaseFocusables() {
  Focusable* record = focusable;
  focusable = nullptr;
  if (record != nullptr) record->Release();
  CArray<Focusable*, Focusable*> list;
  list.swap(focusableList);
  for (Focusable* entry : list) {
    if (entry != nullptr) entry->Release();
  }
}

int PANELVIEWMESSAGE::DeleteHeapMessage(PANELVIEWMESSAGE* message) {
  if (message == nullptr || message->heapAllocated == 0) return 0;
  message->ReleaseFocusables();
  delete message;
  return 1;
}

}  // namespace kordll
