// Item: one typed field value of a record, held in two forms.
//
// Every value has a text form and a native form, and either may be missing.
// What comes from disk is text; the native value is made the first time
// somebody asks for it. What code sets is native; the text is made the first
// time somebody asks for it. A load therefore never parses a field nobody
// reads.
//
// Type ids are stored in field definitions and passed between layers, so the
// numbers are fixed: 0 int (IntItem), 1 double (DoubleItem), 2 date
// (DateItem), 3 bool (BoolItem), 4 string (Item itself).
//
// A string item lives on the ordinary heap. Each typed subclass has its own
// class-level allocation from a MemoryHeap pool: `new IntItem(...)` gives
// null while the pool does not exist (before library start-up or after shut-
// down), and delete gives the block back to the pool.
//
// Items have no lock: the lock or the reference held on the owning record
// guards them.

#ifndef KORDLL_RECORD_ITEM_H_
#define KORDLL_RECORD_ITEM_H_

#include <utility>

#include "kordll/platform/CString.h"

namespace kordll {

class MemoryHeap;

class Item {
 public:
  // Type ids. These numbers are stored in field definitions and must not
  // change.
  static constexpr int kTypeInt = 0;
  static constexpr int kTypeDouble = 1;
  static constexpr int kTypeDate = 2;
  static constexpr int kTypeBool = 3;
  static constexpr int kTypeString = 4;

  // A string item holding text; changed is 0.
  explicit Item(CString text = CString());
  Item(const Item& other) = default;
  Item& operator=(const Item& other) = default;
  virtual ~Item();

  // The value as text. For a string item (and a DoubleItem) the text as it
  // stands; typed items rebuild an empty or changed text from the native
  // value and keep what they rebuilt.
  virtual CString GetItemString();
  // A new item of the same class holding the same value, flags and changed
  // state. The caller owns it (delete it). Null when the pool of the class
  // does not exist.
  virtual Item* CreateCopyItem();
  // Copies other's value into this item if other is of the same type and the
  // values differ; the item is then marked changed (a typed item also
  // empties its text). Otherwise nothing changes. other may be null.
  virtual void SetItem(Item* other);
  // 1 if other is of this item's type and holds the same value (text with
  // case for a string item, the native value as it stands for a typed one,
  // unparsed values included), else 0. other may be null.
  virtual int IsSame(Item* other);

  // Library start-up and shut-down of the string item pool. The pool has no
  // user (string items come from the ordinary heap) but exists all the same.
  static void InitializeItemCache();
  static void ReleaseItemCache();
  static MemoryHeap* GetItemHeap();

  // Builds the item of typeId from its stored text. A type id outside 0 to 4
  // gives a string item. Null when the typed pool does not exist. The caller
  // owns the result.
  static Item* CreateTypedItem(int typeId, CString text);

  // The position of the first set type flag; 4 if none is set.
  int GetItemTypeID() const;
  int IsInteger() const { return isInteger_; }
  int IsDouble() const { return isDouble_; }
  int IsDate() const { return isDate_; }
  int IsBoolean() const { return isBoolean_; }
  int IsString() const { return isString_; }

  // Raw access to the stored state, for the record and the store.
  const CString& GetText() const { return text_; }
  void SetText(const CString& text) { text_ = text; }
  void SetText(CString&& text) { text_ = std::move(text); }
  void AppendText(const CString& text) { text_ += text; }
  int IsChanged() const { return changed_; }
  void SetChanged(int changed) { changed_ = changed; }

 protected:
  // Clears the five type flags and sets the one at position typeId.
  Item(int typeId, CString text);
  // Copies the type flags, changed and text of src.
  void CopyBaseFrom(const Item& src);

  CString text_;
  int isInteger_ = 0;
  int isDouble_ = 0;
  int isDate_ = 0;
  int isBoolean_ = 0;
  int isString_ = 0;
  int changed_ = 0;
};

}  // namespace kordll

#endif  // KORDLL_RECORD_ITEM_H_
