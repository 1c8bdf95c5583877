// DoubleItem: a field value of type 1, a double.
//
// The native value 0.0 means "not parsed yet". The text constructor keeps
// the text and parses nothing; the record parses on first typed access.
// GetItemString is not overridden: after SetItem the text is empty and the
// item reads "" there (the record formats the native value instead).
// Allocated from the DoubleItem pool; see Item.

#ifndef KORDLL_RECORD_DOUBLEITEM_H_
#define KORDLL_RECORD_DOUBLEITEM_H_

#include <cstddef>

#include "kordll/record/Item.h"

namespace kordll {

class DoubleItem : public Item {
 public:
  explicit DoubleItem(CString text = CString());
  DoubleItem(const DoubleItem& other) = default;
  DoubleItem& operator=(const DoubleItem& other) = default;
  ~DoubleItem() override;

  Item* CreateCopyItem() override;
  // Values compare by the processor's unordered compare: NaN never equals
  // anything, so a NaN is always copied in.
  void SetItem(Item* other) override;
  int IsSame(Item* other) override;

  double GetValue() const { return value_; }
  void SetValue(double value) { value_ = value; }

  static void InitializeDoubleItemCache();
  static void ReleaseDoubleItemCache();
  static MemoryHeap* GetDoubleItemHeap();

  static void* operator new(size_t size) noexcept;
  static void operator delete(void* pointer) noexcept;

 private:
  double value_ = 0.0;
};

}  // namespace kordll

#endif  // KORDLL_RECORD_DOUBLEITEM_H_
