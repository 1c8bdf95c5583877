// IntItem: a field value of type 0, a 32-bit signed integer.
//
// The native value -1 means "not parsed yet": the text is parsed (with
// _wtoi meaning) when the value is asked for. An item whose real value is -1
// and whose text is not empty is therefore parsed again at every call, which
// does no harm. Allocated from the IntItem pool; see Item.

#ifndef KORDLL_RECORD_INTITEM_H_
#define KORDLL_RECORD_INTITEM_H_

#include <cstddef>

#include "kordll/record/Item.h"

namespace kordll {

class IntItem : public Item {
 public:
  // value -1; a non-empty text is parsed at once with _wtoi meaning, and the
  // text is kept as given ("12abc" has value 12 and still reads "12abc").
  explicit IntItem(CString text = CString());
  IntItem(const IntItem& other) = default;
  IntItem& operator=(const IntItem& other) = default;
  ~IntItem() override;

  // The text when it is not empty and the item is unchanged; otherwise the
  // decimal form of the value, which is kept as the new text.
  CString GetItemString() override;
  Item* CreateCopyItem() override;
  void SetItem(Item* other) override;
  int IsSame(Item* other) override;
  // The value, parsing the text first if the value is -1 and text is not
  // empty.
  virtual int GetInt();

  int GetValue() const { return value_; }
  void SetValue(int value) { value_ = value; }

  static void InitializeIntItemCache();
  static void ReleaseIntItemCache();
  static MemoryHeap* GetIntItemHeap();

  // Class-level allocation from the pool; null while the pool does not exist.
  static void* operator new(size_t size) noexcept;
  static void operator delete(void* pointer) noexcept;

 private:
  int value_ = -1;
};

}  // namespace kordll

#endif  // KORDLL_RECORD_INTITEM_H_
