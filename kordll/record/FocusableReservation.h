// FocusableReservation: holds one reservation of a record's body (one
// Focusable::Reserve that is owed a Release) and gives it back when the
// holder goes out of scope.
//
// A reservation is either taken with Reserve() or adopted after a call that
// reserved on the caller's behalf (IsFullyLoaded(1) answering 1,
// LoadFocusable answering 1). Release() gives it back early, where the order
// of the release relative to other work matters: the last Release may save
// the record, unload its body or delete it. Handing back with Dismiss()
// passes the reservation on to someone else. Not copyable, not movable.
//
// Usage:
//   FocusableReservation held;
//   if (record->IsFullyLoaded(1) != 0) held.Adopt(record);
//   ...                        // read fields
//   return result;             // Release on every path

#ifndef KORDLL_RECORD_FOCUSABLERESERVATION_H_
#define KORDLL_RECORD_FOCUSABLERESERVATION_H_

#include "kordll/record/Focusable.h"

namespace kordll {

class FocusableReservation {
 public:
  // Holds nothing.
  FocusableReservation() = default;
  FocusableReservation(const FocusableReservation&) = delete;
  FocusableReservation& operator=(const FocusableReservation&) = delete;
  // Gives back the reservation still held, if any.
  ~FocusableReservation() { Release(); }

  // Takes a new reservation of record (may be null: then nothing is held).
  // REQUIRES: nothing held.
  void Reserve(Focusable* record) {
    if (record != nullptr) record->Reserve();
    record_ = record;
  }

  // Takes over a reservation that the caller already owes for record.
  // REQUIRES: nothing held.
  void Adopt(Focusable* record) { record_ = record; }

  // Gives the reservation back now, once; nothing is held afterwards. The
  // record may be deleted by this call.
  void Release() {
    Focusable* record = record_;
    record_ = nullptr;
    if (record != nullptr) record->Release(nullptr);
  }

  // Hands the reservation back to the caller, who then owes the Release.
  Focusable* Dismiss() {
    Focusable* record = record_;
    record_ = nullptr;
    return record;
  }

  bool IsHeld() const { return record_ != nullptr; }

 private:
  Focusable* record_ = nullptr;
};

}  // namespace kordll

#endif  // KORDLL_RECORD_FOCUSABLERESERVATION_H_
