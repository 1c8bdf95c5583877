#include "kordll/talk/NotificationItem.h"

#include "kordll/talk/SystemTalkCtrl.h"

namespace kordll {

NotificationItem::NotificationItem() : Focusable(kNotificationRelation, nullptr) {
  SetSavable(0);
  ReleaseNotifiedItems();
}

NotificationItem::~NotificationItem() { ReleaseNotifiedItems(); }

void NotificationItem::SetFireDate(COleDateTime date) { SetValueDate(kFireDateField, date, 1); }

void NotificationItem::SetNotifiedItems(CArray<Focusable*, Focusable*>* items) {
  if (items == nullptr) return;
  for (Focusable* record : *items) {
    if (record == nullptr) continue;
    record->Reserve();
    notified_.push_back(record);
  }
}

void NotificationItem::ReleaseNotifiedItems() {
  // Taken out first: a release may delete a record whose destructor comes
  // back here through another path.
  CArray<Focusable*, Focusable*> held;
  held.swap(notified_);
  for (Focusable* record : held) record->Release();
}

}  // namespace kordll
