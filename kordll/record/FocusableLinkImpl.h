// FocusableLinkImpl: the link's own state, kept apart from the FocusableLink
// object so that copies of a link share it (see FocusableLink).
//
// Shared by every FocusableLink copied from one another, through
// std::shared_ptr: the last holder frees it, and with it the possessor list,
// the pair of pieces and the lock. The target record is never owned.

#ifndef KORDLL_RECORD_FOCUSABLELINKIMPL_H_
#define KORDLL_RECORD_FOCUSABLELINKIMPL_H_

#include <utility>
#include <vector>

#include "kordll/platform/CCriticalSection.h"
#include "kordll/platform/CString.h"

namespace kordll {

class AZeusDB;
class Focusable;

class FocusableLinkImpl {
 public:
  FocusableLinkImpl() = default;
  FocusableLinkImpl(const FocusableLinkImpl&) = delete;
  FocusableLinkImpl& operator=(const FocusableLinkImpl&) = delete;
  // Deletes the possessor list and the pieces; the target stays.
  ~FocusableLinkImpl();

  // Ids of the controllers holding the link's header; null while none.
  // Owned.
  std::vector<int>* headerPossessors = nullptr;
  // Field 0: the target's GUID.
  CString guid;
  int savable = 1;
  // One changed flag for the three stored fields.
  int changed = 0;
  // While field 1 or 2 arrives from the database in several pieces: the
  // text gathered so far for each (first: field 1, second: field 2). Null
  // otherwise. Owned.
  std::pair<CString, CString>* pieces = nullptr;
  // The database the link itself lives in. Not owned.
  AZeusDB* database = nullptr;
  int relation = 8;
  int originedController = -1;
  // The link's own count of body users. Nothing changes it: Reserve and
  // Release go to the target.
  int referenceCount = 0;
  // Bit 64: the link is marked deleted. No other bit is used.
  int linkStatus = 0;
  // Field 1 and field 2: where the target lives.
  int targetDBID = -1;
  int targetSlotIndex = -1;
  // The link's own slot in its database.
  int ownSlotIndex = -1;
  // The record the link stands for, or null. Not owned.
  Focusable* target = nullptr;
  // Taken by ReserveHeader and ReleaseHeader only. Lock order: this lock,
  // then the target's lock.
  CCriticalSection lock;
};

}  // namespace kordll

#endif  // KORDLL_RECORD_FOCUSABLELINKIMPL_H_
