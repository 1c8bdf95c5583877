#include <algorithm>
#include <climits>
#include <cstring>

#include "kordll/record/AZeusDB.h"
#include "kordll/record/AZeusDBInternal.h"
#include "kordll/record/ChainCursor.h"
#include "kordll/record/DBTaskItem.h"
#include "kordll/record/FieldInfo.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/RegistryEntryPoints.h"
#include "kordll/record/SlotFile.h"
#include "kordll/record/StoredWordTest.h"
#include "kordll/record/SubTableMap.h"

namespace kordll {

using namespace azeus;

// The state of one read's walk along a record's chain.
struct AZeusDB::ReadWalk {
  ReadWalk(int head, int64_t bound) : cursor(head, bound) {}

  ChainCursor cursor;
  _struct_SubTableInfo* info = nullptr;
  int place = -1;
  RGDBTemplate* tmpl = nullptr;  // null until the head's relation gives it
  int f = 0;
  bool exact = false;  // read exactly the bytes wanted, not a forward window
  int more = 0;        // a field read goes on in the next slot
  int lastRelation = -1;
  // A scan's word test, asked at the head; null when it does not apply.
  StoredWordTest* wordTest = nullptr;
  _struct_SLOTHEADER header;
  std::vector<int> status;
};

int AZeusDB::locateReadHead(Focusable* record, DBTaskItem* task, _struct_SubTableInfo** info,
                            int* place) {
  int slot = record->GetDBSlotIndex();
  if (slot >= 0) {
    *info = getSubTable(slot);
    if (*info == nullptr) return setError(kErrNoEntry), -1;
    *place = slot % kSlotsPer;
    if (!(*info)->headFlags[*place]) return setError(kErrEmptyRead), -1;
    return slot;
  }
  if (slot == -2) return setError(kErrNoEntry), -1;
  slot = findNextActiveSlot(info, place, task);
  record->SetDBSlotIndex(slot);
  if (slot == -1) return setError(kErrNoEntry), -1;
  return slot;
}

int AZeusDB::readSlot(Focusable* record, RGDBTemplate* tmpl, DBTaskItem* task) {
  if (task != nullptr) task->passedOver = 0;
  if (deleted_) {
    setError(kErrDeleted);
    return 0;
  }
  // A record read by its slot takes exactly the bytes it wants; a scan goes
  // forward through the file and reads it in larger pieces.
  const bool exact = record->GetDBSlotIndex() >= 0;
  // A word test passes over the heads that certainly do not hold the word
  // (in a read by slot only when the task asks for it); the record is then
  // as it came, and a scan goes on.
  StoredWordTest* test = nullptr;
  if (task != nullptr && task->wordTest != nullptr && task->wordTest->Usable() &&
      (!exact || task->passOverBySlot)) {
    test = task->wordTest;
  }
  const int relation = record->GetFocusableRelation();
  for (;;) {
    _struct_SubTableInfo* info = nullptr;
    int place = -1;
    const int slot = locateReadHead(record, task, &info, &place);
    if (slot < 0) return 0;
    if (task != nullptr) task->slotPosition = slot;

    ReadWalk walk(slot, totalSlots());
    walk.info = info;
    walk.place = place;
    walk.tmpl = tmpl;
    walk.f = tmpl != nullptr ? tmpl->GetFieldCount() : 0;
    walk.exact = exact;
    walk.wordTest = test;
    int r;
    do {
      r = readChainSlot(record, task, &walk);
    } while (r == 0 && walk.more);
    if (r == kPassedOver) {
      record->SetFocusableRelation(relation);
      if (exact) {
        task->passedOver = 1;
        break;
      }
      record->SetDBSlotIndex(-1);
      continue;
    }
    if (r != 0) return 0;
    break;
  }
  setError(kErrNone);
  if (task == nullptr || task->allFields) record->SetFullyLoaded(1);
  return 1;
}

bool AZeusDB::headMayHold(ReadWalk* w, const unsigned char* bytes) {
  // The areas of the searched fields, from what was read of the slot: a
  // field that ends here is asked, one that goes on may hold the word, and
  // an empty one holds nothing.
  uint64_t offset = kSlotHeader + w->info->fieldCount + 2;
  for (int i = 0; i < w->f; offset += w->info->lengths[i], ++i) {
    FieldInfo* field = w->tmpl->GetField(i);
    if (field == nullptr || !w->wordTest->Searches(field->id) || w->status[i] == 0) continue;
    const int length = w->info->lengths[i];
    if (w->status[i] != 1 || field->type != 4 || offset + length > slot_got_) return true;
    if (w->wordTest->MayHold(bytes + offset, length)) return true;
  }
  return false;
}

int AZeusDB::readChainSlot(Focusable* record, DBTaskItem* task, ReadWalk* w) {
  w->more = 0;
  if (!w->cursor.Visit()) return setError(kErrRead), kErrRead;
  const unsigned char* bytes = nullptr;
  int r = readWalkFront(record, task, w, &bytes);
  if (r != 0) return r;
  if (w->wordTest != nullptr && w->cursor.sequence() == 0 && !headMayHold(w, bytes)) {
    return kPassedOver;
  }
  if ((r = readFieldAreas(record, task, w, bytes)) != 0) return r;
  if (!w->more) return 0;
  const int next = w->header.next;
  if (next < 0) return setError(kErrRead), kErrRead;
  w->cursor.Advance(next);
  w->info = getSubTable(next);
  if (w->info == nullptr) return setError(kErrNoEntry), kErrNoEntry;
  w->place = next % kSlotsPer;
  if (!w->info->headFlags[w->place] && !w->info->continuationFlags[w->place]) {
    return setError(kErrRead), kErrRead;
  }
  return 0;
}

int AZeusDB::readWalkFront(Focusable* record, DBTaskItem* task, ReadWalk* w,
                           const unsigned char** bytes) {
  _struct_SubTableInfo* info = w->info;
  // The slot's header, its items status and the areas of the wanted
  // fields come in one read.
  const int front = kSlotHeader + info->fieldCount + 2;
  const uint64_t slot_start = getSlotBytePosition(info, w->place, 0, 0);
  // Without a template the slot's own relation gives it, and the record's
  // fields come in the same read when the sub-table's relation is the
  // slot's (as it is unless the file is damaged).
  RGDBTemplate* layout = w->tmpl != nullptr ? w->tmpl : CatalogueTemplate(info->relation);
  uint64_t span = 0;
  if (layout != nullptr && info->fieldCount == layout->GetFieldCount()) {
    span = wantedSpan(info, layout, task);
  }
  if (!readSlotFront(slot_start, front + span, w->exact)) return kErrRead;
  *bytes = slot_buffer_.data();
  _struct_SLOTHEADER& header = w->header;
  if (parseSlotHeader(*bytes, &header) != 0) return setError(kErrRead), kErrRead;
  if (header.sequence == -1) {
    // The slot is really free, whatever the sub-table says: the flags in
    // memory are put right.
    tables_->SetState(info, w->place, 0, /*keepFull=*/true);
    const int error = w->cursor.sequence() == 0 ? kErrNoEntry : kErrRead;
    return setError(error), error;
  }
  if (!w->cursor.Fits(header.sequence, header.previous)) return setError(kErrRead), kErrRead;
  if (w->tmpl == nullptr) {
    w->tmpl = CatalogueTemplate(header.relation);
    if (w->tmpl == nullptr) return setError(kErrNoTemplate), kErrNoTemplate;
    w->f = w->tmpl->GetFieldCount();
    if (info->fieldCount == w->f && w->tmpl != layout) {
      span = wantedSpan(info, w->tmpl, task);
      if (!readSlotFront(slot_start, front + span, w->exact)) return kErrRead;
      *bytes = slot_buffer_.data();
    }
  }
  if (record->GetFocusableRelation() == -1) record->SetFocusableRelation(header.relation);
  if (w->lastRelation != -1 && header.relation != w->lastRelation) {
    return setError(kErrRelation), kErrRelation;
  }
  w->lastRelation = header.relation;
  if (!info->headFlags[w->place] && !info->continuationFlags[w->place]) {
    return setError(kErrNoEntry), kErrNoEntry;
  }
  if (info->fieldCount != w->f) return setError(kErrRelation), kErrRelation;
  w->status.assign(w->f, 0);
  if (slot_got_ >= static_cast<uint64_t>(front))
    parseItemsStatus(*bytes + kSlotHeader, w->f, &w->status);
  return 0;
}

int AZeusDB::readFieldAreas(Focusable* record, DBTaskItem* task, ReadWalk* w,
                            const unsigned char* bytes) {
  const int front = kSlotHeader + w->info->fieldCount + 2;
  uint64_t offset = front;  // of the current field area in slot_buffer_
  uint64_t skip = 0;
  for (int i = 0; i < w->f; ++i) {
    FieldInfo* field = w->tmpl->GetField(i);
    if (field == nullptr) continue;
    const int length = w->info->lengths[i];
    if (task != nullptr && task->allFields == 0) {
      const int type = task->GetFieldTaskType(field->id);
      if (type == DBTaskItem::kTaskPastEnd) break;  // the rest is not wanted
      if (type != DBTaskItem::kTaskLoad) {
        skip += length;
        continue;
      }
    }
    offset += skip;
    skip = 0;
    const unsigned char* area = offset + length <= slot_got_ ? bytes + offset : nullptr;
    const int r =
        readItem(record, field, length, &w->status[i], w->cursor.sequence(), area, &w->more);
    if (r != 0 && r != kErrNoData) return r;
    offset += length;
  }
  return 0;
}

int AZeusDB::readFocusableSlot(Focusable* record, RGDBTemplate* tmpl, DBTaskItem* task) {
  if (!RegistryEntryPoints::Get()->IsGlobalResourceValid()) return 0;
  if (record == nullptr) return 0;
  openDB(0);
  int result;
  {
    CSingleLock sl(slot_lock_);
    ensureMapped();
    result = readSlot(record, tmpl, task);
    // A sub-table that did not read as the map file said looked missing to
    // this read: the file is mapped from its headers and the read made again.
    if (result == 0 && tables_->Distrusted()) {
      ensureMapped();
      result = readSlot(record, tmpl, task);
    }
  }
  closeDB();
  if (result != 0) record->SetDB(this);
  return result;
}

}  // namespace kordll
