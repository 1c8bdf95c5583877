// FocusableImpl: the state of one record, kept apart from the Focusable
// object so that it can move between objects (Focusable::MoveFocusableImpl
// turns a plain record read from disk into a typed one without copying
// fields).
//
// Owned by exactly one Focusable. The fields are read and written by that
// Focusable only; see Focusable for which calls take the lock.

#ifndef KORDLL_RECORD_FOCUSABLEIMPL_H_
#define KORDLL_RECORD_FOCUSABLEIMPL_H_

#include <vector>

#include "kordll/platform/CCriticalSection.h"
#include "kordll/platform/CString.h"

namespace kordll {

class AZeusDB;
class Item;

class FocusableImpl {
 public:
  FocusableImpl() = default;
  FocusableImpl(const FocusableImpl&) = delete;
  FocusableImpl& operator=(const FocusableImpl&) = delete;
  // Deletes every item, the possessor list and the lock.
  virtual ~FocusableImpl();

  // Deletes every item and empties the array.
  void DeleteItems();

  // items[id - 1] is the value of field id; field 0 (the GUID) has no item.
  // Entries may be null: a field not loaded. Owned. An empty array is "no
  // item array".
  std::vector<Item*> items;
  // Ids of the controllers that hold this record's header, an id possibly
  // twice. Null while it has no entry. Owned.
  std::vector<int>* headerPossessors = nullptr;
  // Global slot index in the database: -1 not yet stored, -2 refuses a read.
  int slotIndex = -1;
  // Field 0.
  CString guid;
  // The record needs saving.
  int changed = 0;
  // 0: saves and deletes succeed without touching the database.
  int savable = 1;
  // All fields of the relation are in memory.
  int fullyLoaded = 0;
  // A deleted record is not read or written any more.
  int deleted = 0;
  // Not owned.
  AZeusDB* database = nullptr;
  int relation = 0;
  // Id of the controller the record came from, -1 for none.
  int originedController = -1;
  // Users of the body.
  int referenceCount = 0;
  // The record's lock (re-entrant). Lock order: record, then the database's
  // locks.
  CCriticalSection lock;
};

}  // namespace kordll

#endif  // KORDLL_RECORD_FOCUSABLEIMPL_H_
