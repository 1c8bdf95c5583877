// DateItem: a field value of type 2, a COleDateTime.
//
// A date whose status is invalid means "not parsed yet". Stored dates have
// the shape "%m/%d/%y@%H:%M" and are read and written through
// KorlanDateTime. Allocated from the DateItem pool; see Item.

#ifndef KORDLL_RECORD_DATEITEM_H_
#define KORDLL_RECORD_DATEITEM_H_

#include <cstddef>

#include "kordll/platform/COleDateTime.h"
#include "kordll/record/Item.h"

namespace kordll {

class DateItem : public Item {
 public:
  // An empty text leaves the date invalid; otherwise the text is read as a
  // stored date at once. The text is kept.
  explicit DateItem(CString text = CString());
  DateItem(const DateItem& other) = default;
  DateItem& operator=(const DateItem& other) = default;
  ~DateItem() override;

  // The text as it stands while the item is unchanged and either the text
  // is not empty or the date is invalid; otherwise the stored-date text of
  // the date, kept as the new text.
  CString GetItemString() override;
  Item* CreateCopyItem() override;
  void SetItem(Item* other) override;
  int IsSame(Item* other) override;
  // The date, reading the text first if the date is invalid and the text is
  // not empty.
  COleDateTime GetDateTime();

  const COleDateTime& GetValue() const { return value_; }
  void SetValue(const COleDateTime& value) { value_ = value; }

  static void InitializeDateItemCache();
  static void ReleaseDateItemCache();
  static MemoryHeap* GetDateItemHeap();

  static void* operator new(size_t size) noexcept;
  static void operator delete(void* pointer) noexcept;

 private:
  COleDateTime value_;
};

}  // namespace kordll

#endif  // KORDLL_RECORD_DATEITEM_H_
