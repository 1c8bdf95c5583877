// NotificationItem: one firing of a talk (relation 20), holding the records
// that the news was about.
//
// Each record handed to SetNotifiedItems is reserved once, and
// ReleaseNotifiedItems gives every reservation back exactly once (the
// destructor calls it too), so a record stays in memory for as long as a
// notification names it, even if its own controller lets it go meanwhile.
//
// The fire date goes to field 19, which relation 20 does not have: the date
// of a notification is not kept in its record (the talk's receive date
// tells when it came).
//
// Thread safety: as for every record.

#ifndef KORDLL_TALK_NOTIFICATIONITEM_H_
#define KORDLL_TALK_NOTIFICATIONITEM_H_

#include "kordll/platform/COleDateTime.h"
#include "kordll/record/Focusable.h"

namespace kordll {

class NotificationItem : public Focusable {
 public:
  static constexpr int kFireDateField = 19;

  // A notification of no record, with nothing to save.
  NotificationItem();
  NotificationItem(const NotificationItem&) = delete;
  NotificationItem& operator=(const NotificationItem&) = delete;
  ~NotificationItem() override;

  void SetFireDate(COleDateTime date);
  // Adds the records of items (nulls skipped), reserving each once.
  void SetNotifiedItems(CArray<Focusable*, Focusable*>* items);
  // Releases every record held and forgets them.
  void ReleaseNotifiedItems();
  const CArray<Focusable*, Focusable*>& GetNotifiedItems() const { return notified_; }

 private:
  CArray<Focusable*, Focusable*> notified_;
};

}  // namespace kordll

#endif  // KORDLL_TALK_NOTIFICATIONITEM_H_
