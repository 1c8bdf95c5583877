// BoolItem: a field value of type 3, an int used as a flag.
//
// There is no "not parsed" state: the text constructor decides at once. Any
// non-empty text other than exactly "0" is true, so "false", "no", "00" and
// a single blank are all true. Allocated from the BoolItem pool; see Item.

#ifndef KORDLL_RECORD_BOOLITEM_H_
#define KORDLL_RECORD_BOOLITEM_H_

#include <cstddef>

#include "kordll/record/Item.h"

namespace kordll {

class BoolItem : public Item {
 public:
  // value 0; a non-empty text is kept and gives 1 unless it is exactly "0".
  explicit BoolItem(CString text = CString());
  BoolItem(const BoolItem& other) = default;
  BoolItem& operator=(const BoolItem& other) = default;
  ~BoolItem() override;

  // The text when it is not empty and the item is unchanged; otherwise "1"
  // or "0", kept as the new text.
  CString GetItemString() override;
  Item* CreateCopyItem() override;
  void SetItem(Item* other) override;
  int IsSame(Item* other) override;

  int GetValue() const { return value_; }
  void SetValue(int value) { value_ = value; }

  static void InitializeBoolItemCache();
  static void ReleaseBoolItemCache();
  static MemoryHeap* GetBoolItemHeap();

  static void* operator new(size_t size) noexcept;
  static void operator delete(void* pointer) noexcept;

 private:
  int value_ = 0;
};

}  // namespace kordll

#endif  // KORDLL_RECORD_BOOLITEM_H_
