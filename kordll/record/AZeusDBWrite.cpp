#include <algorithm>
#include <climits>
#include <cstring>

#include "kordll/record/AZeusDB.h"
#include "kordll/record/AZeusDBInternal.h"
#include "kordll/record/ChainCursor.h"
#include "kordll/record/DBTaskItem.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/SlotFile.h"
#include "kordll/record/SubTableMap.h"

namespace kordll {

using namespace azeus;

// ---------------------------------------------------------------------------
// Records

namespace {

// Whether a save covers field position i of the template, and its id.
bool Covered(Focusable* record, RGDBTemplate* tmpl, DBTaskItem* task, int i, int* id) {
  *id = tmpl->GetFieldID(i);
  if (*id == -1) return false;
  if (!record->IsFieldActive(*id, 1)) return false;
  if (task == nullptr) return record->IsItemChanged(*id, 1) != 0;
  return task->allFields != 0 || task->GetFieldTaskType(i) == DBTaskItem::kTaskSave;
}

}  // namespace

void AZeusDB::countStatistics(Focusable* record, RGDBTemplate* tmpl, DBTaskItem* task) {
  CSingleLock hl(header_lock_);
  const int relation = record->GetFocusableRelation();
  std::vector<int64_t>& totals = length_totals_[relation];
  // A count read from the file may stand at the limit already: it stays there.
  int& count = record_counts_[relation];
  if (count < INT_MAX) ++count;
  if (tmpl == nullptr) tmpl = CatalogueTemplate(relation);
  if (tmpl == nullptr) return;
  const int f = tmpl->GetFieldCount();
  while (static_cast<int>(totals.size()) < f) totals.push_back(0);
  for (int i = 0; i < f; ++i) {
    int id;
    if (!Covered(record, tmpl, task, i, &id)) continue;
    const int64_t length = record->GetFieldString(id, 1).GetLength();
    totals[i] = totals[i] > INT64_MAX - length ? INT64_MAX : totals[i] + length;
    header_dirty_ = 1;
  }
}

// The state of one save's walk along its chain, from the head on.
struct AZeusDB::SaveWalk {
  SaveWalk(int head, int64_t bound, int relation, std::vector<FieldPlan>* plans)
      : cursor(head, bound), relation(relation), plans(plans) {}

  ChainCursor cursor;
  const int relation;             // of the template
  std::vector<FieldPlan>* plans;  // what the save writes, by field position
  _struct_SubTableInfo* info = nullptr;
  int place = -1;
  int next = -1;          // the slot the walk goes on to
  int more = 0;           // a field goes on behind this slot
  int statusChanged = 0;  // stays set for the rest of the walk
  int lastRelation = -1;
  int occupied = 0;
  int leftover = -1;              // see leftoverNext
  bool leftOutContinues = false;  // a field this save leaves out goes on
  _struct_SLOTHEADER header;      // of the current slot
  std::vector<int> status;        // items status of the current slot
  std::vector<int> before;        // and of the slot before
  // The save answers with the error code itself (a failed field write), not
  // with 0.
  bool answerCode = false;
};

void AZeusDB::planSave(Focusable* record, RGDBTemplate* tmpl, DBTaskItem* task,
                       std::vector<FieldPlan>* plans, std::vector<int>* written) {
  const int f = tmpl->GetFieldCount();
  plans->assign(f, FieldPlan());
  for (int i = 0; i < f; ++i) {
    int id;
    if (!Covered(record, tmpl, task, i, &id)) continue;
    (*plans)[i].mode = tmpl->GetFieldType(id) == 4 ? 1 : 0;
    (*plans)[i].text = record->GetFieldString(id, 1);
    written->push_back(id);
  }
}

int AZeusDB::locateSaveSlot(Focusable* record, RGDBTemplate* tmpl,
                            const std::vector<FieldPlan>* plans, _struct_SubTableInfo** info,
                            int* place) {
  int slot = record->GetDBSlotIndex();
  if (slot < 0) {
    slot = findEmptySlot(tmpl, info, plans, place);
    if (slot < 0) return setError(kErrWrite), -1;
    if ((*info)->fieldCount != tmpl->GetFieldCount()) return setError(kErrCorrupted), -1;
    record->SetDBSlotIndex(slot);
    return slot;
  }
  *info = getSubTable(slot);
  if (*info == nullptr) {
    // A record that knows its slot index can be written into a file that
    // does not have that sub-table yet: as many sub-tables as the id plus
    // one are made, whatever exists already.
    const int id = slot / kSlotsPer;
    int next_id;
    {
      CSingleLock ol(open_lock_);
      next_id = next_sub_table_id_;
    }
    if (id >= next_id && id < 20) {
      for (int k = 0; k <= id; ++k) expandTable(tmpl);
      *info = getSubTable(slot);
    }
    if (*info == nullptr) return setError(kErrNoEntry), -1;
  }
  *place = slot % kSlotsPer;
  if ((*info)->continuationFlags[*place]) return setError(kErrWrite), -1;
  if ((*info)->fieldCount != tmpl->GetFieldCount()) return setError(kErrCorrupted), -1;
  return slot;
}

int AZeusDB::writeSlot(Focusable* record, RGDBTemplate* tmpl, DBTaskItem* task) {
  if (deleted_) {
    setError(kErrDeleted);
    return 0;
  }
  if (tmpl == nullptr) tmpl = CatalogueTemplate(record->GetFocusableRelation());
  if (tmpl == nullptr) {
    setError(kErrNoTemplate);
    return 0;
  }
  record->PreSaving();
  const bool was_new = record->GetDBSlotIndex() == -1;
  std::vector<FieldPlan> plans;
  std::vector<int> written;
  planSave(record, tmpl, task, &plans, &written);
  _struct_SubTableInfo* info = nullptr;
  int place = -1;
  const int slot = locateSaveSlot(record, tmpl, &plans, &info, &place);
  if (slot < 0) return 0;
  if (written.empty()) return 1;
  if (task != nullptr) task->slotPosition = slot;

  SaveWalk walk(slot, totalSlots(), tmpl->GetRelationID(), &plans);
  walk.info = info;
  walk.place = place;
  do {
    const int r = writeChainSlot(record, tmpl, &walk);
    if (r != 0) return walk.answerCode ? r : 0;
  } while (walk.more);

  // Every byte of the save is handed to the system before the record is told
  // that it is saved; a failure here keeps its changed flags for the next try.
  // Within a batch the record is told after the batch's bytes went out.
  if (batch_) {
    batch_saved_.push_back({record, std::move(written)});
    if (was_new) batch_new_.push_back(record);
    setError(kErrNone);
    return 1;
  }
  if (!commitSave()) {
    forgetMapping();
    setError(kErrWrite);
    return kErrWrite;
  }
  for (int id : written) record->ChangeItemChangeStatus(id, 0);
  record->FocusableSaved();
  setError(kErrNone);
  return 1;
}

int AZeusDB::stepToNext(SaveWalk* w) {
  w->more = 0;
  w->cursor.Advance(w->next);
  w->next = -1;
  const int slot = w->cursor.slot();
  w->info = getSubTable(slot);
  if (w->info == nullptr) return setError(kErrNoEntry), kErrNoEntry;
  w->place = slot % kSlotsPer;
  if (w->info->headFlags[w->place]) return setError(kErrWrite), kErrWrite;
  if (w->info->fieldCount != static_cast<int>(w->plans->size())) {
    return setError(kErrCorrupted), kErrCorrupted;
  }
  return 0;
}

int AZeusDB::readWalkHeader(Focusable* record, SaveWalk* w) {
  _struct_SubTableInfo* info = w->info;
  w->occupied = (info->headFlags[w->place] || info->continuationFlags[w->place]) ? 1 : 0;
  w->header = _struct_SLOTHEADER();
  // The header of a free slot is not looked at: its links are not ours.
  if (w->occupied) {
    if (readSlotHeader(w->cursor.slot(), &w->header) != 0) return setError(kErrRead), kErrRead;
    if (w->header.relation != record->GetFocusableRelation() ||
        (w->lastRelation != -1 && w->header.relation != w->lastRelation)) {
      return setError(kErrRelation), kErrRelation;
    }
    // A later slot of the chain must say where it stands and link back.
    if (w->cursor.sequence() > 0 && !w->cursor.Fits(w->header.sequence, w->header.previous)) {
      return setError(kErrRead), kErrRead;
    }
  }
  w->lastRelation = w->header.relation;
  // A free slot may still hold what an interrupted save of this chain
  // wrote there: the chain is then taken up where that save left it.
  w->leftover = w->occupied ? -1
                            : leftoverNext(w->cursor.slot(), w->relation, w->cursor.sequence(),
                                           w->cursor.previous(), w->plans);
  w->before = std::move(w->status);
  w->status.assign(w->plans->size(), 0);
  if (w->occupied) readItemsStatus(info, w->place, &w->status);
  return 0;
}

int AZeusDB::writeChainSlot(Focusable* record, RGDBTemplate* tmpl, SaveWalk* w) {
  int r = w->more ? stepToNext(w) : 0;
  if (r != 0) return r;
  // A save that grows the file may walk through the slots it adds.
  w->cursor.SetBound(totalSlots());
  if (!w->cursor.Visit()) return setError(kErrRead), kErrRead;
  if ((r = readWalkHeader(record, w)) != 0) return r;
  if ((r = writeFieldAreas(w)) != 0) return r;
  if (w->statusChanged && writeItemsStatus(w->info, w->place, w->status) != 0) return kErrWrite;
  return linkChainSlot(tmpl, w);
}

int AZeusDB::writeFieldAreas(SaveWalk* w) {
  _struct_SubTableInfo* info = w->info;
  std::vector<int>& status = w->status;
  uint64_t p = getSlotBytePosition(info, w->place, 1, 1);
  uint64_t skip = 0;
  position_ = p;
  w->leftOutContinues = false;
  for (size_t i = 0; i < w->plans->size(); ++i) {
    const int length = info->lengths[i];
    FieldPlan& plan = (*w->plans)[i];
    if (plan.mode == 2 || length == 0) {
      skip += length;
      if (!w->before.empty() && w->before[i] == 1 && status[i] != 0) {
        // The field ended in the slot before and this slot still holds old
        // text. The skip already holds this field's length here, so the
        // blanking lands in the area behind it and what follows in this
        // slot moves on by the same length: the engine has always done so.
        status[i] = 0;
        w->statusChanged = 1;
        if (length != 0) {
          position_ = p + skip;
          p += skip;
          skip = 0;
          CString empty;
          int ignored_more = 0;
          int ignored_changed = 0;
          const int r = writeItem(&empty, length, &status[i], &ignored_more, &ignored_changed);
          if (r != 0) return w->answerCode = true, r;
        }
      }
      if (status[i] == 2) w->leftOutContinues = true;
      continue;
    }
    if (skip != 0) {
      position_ = p + skip;
      p += skip;
      skip = 0;
    }
    const int r = plan.mode == 0
                      ? writeItem(&plan.text, length, &status[i], &w->more, &w->statusChanged)
                      : writeItem_wstring(plan.text, &plan.position, length, &status[i], &w->more,
                                          &w->statusChanged);
    if (r != 0) return w->answerCode = true, r;
    p += length;
  }
  return 0;
}

int AZeusDB::linkChainSlot(RGDBTemplate* tmpl, SaveWalk* w) {
  _struct_SLOTHEADER& header = w->header;
  const int sequence = w->cursor.sequence();
  if (w->occupied && !w->more && header.next != -1 && !w->leftOutContinues) {
    // The record became shorter: the rest of the old chain is freed. A
    // damaged tail is left as it is; a write that fails fails the save.
    if (deleteEntry(header.next, 1) == kErrWrite) return w->answerCode = true, kErrWrite;
    header.next = -1;
    w->occupied = 0;
  } else if (!w->occupied && !w->more && w->leftover != -1) {
    // The text ends here, before the slots that the interrupted save had
    // linked on: they are freed.
    if (deleteEntry(w->leftover, 1) == kErrWrite) return w->answerCode = true, kErrWrite;
  }
  if (w->occupied && !w->more) return 0;
  if (updateSubTableSlotStatus(w->info, w->place, sequence == 0 ? 1 : 2) != 0) return kErrWrite;
  int new_next = -1;
  if (w->more && header.next == -1 && w->leftover != -1) {
    new_next = w->leftover;
  } else if (w->more && header.next == -1) {
    _struct_SubTableInfo* next_info = nullptr;
    int next_place = -1;
    new_next = findEmptySlot(tmpl, &next_info, w->plans, &next_place);
    if (new_next == -1) return setError(kErrWrite), kErrWrite;
  } else if (w->more) {
    new_next = header.next;
  }
  int new_previous;
  if (w->more && sequence == 0) {
    new_previous = -1;
  } else {
    new_previous = header.previous != -1 ? header.previous : w->cursor.previous();
  }
  if (!(w->occupied && header.sequence == sequence && header.next == new_next &&
        header.previous == new_previous && header.relation == w->relation)) {
    header.sequence = sequence;
    header.next = new_next;
    header.previous = new_previous;
    header.relation = w->relation;
    if (writeSlotHeader(w->cursor.slot(), header) != 0) return last_error_;
  }
  w->next = new_next;
  return 0;
}

bool AZeusDB::refusedWrite() {
  if (refusedName()) return true;
  if (deleted_ || damaged_ == 0) return false;
  setError(damaged_);
  return true;
}

void AZeusDB::forgetMapping() {
  // After a failed flush the file may hold less than memory says (a new
  // sub-table that never reached it): the next operation maps the file
  // again from what it really holds.
  tables_->Clear();
  SubTableIndex::Discard(path_);
  index_count_ = kIndexNone;
  mapped_ = 0;
  cut_table_ = -1;
  end_of_file_ = KdbFormat::kDBHeaderSize;
  CSingleLock ol(open_lock_);
  next_sub_table_id_ = 0;
}

int AZeusDB::deleteSlot(Focusable* record, RGDBTemplate* tmpl, DBTaskItem* task) {
  (void)tmpl;
  if (deleted_) {
    setError(kErrDeleted);
    return 0;
  }
  const int slot = record->GetDBSlotIndex();
  if (task != nullptr) {
    task->slotPosition = slot;
    if (task->allFields == 0) {
      setError(kErrNone);
      return 1;
    }
  }
  // The delete counts as done whatever the walk reports: a damaged chain
  // stops it, a failed write leaves the slots as the file holds them. After
  // a write or flush that failed, memory may claim slots freed that the file
  // still marks as taken (or the other way): the file is mapped again from
  // what it really holds.
  const int r = deleteEntry(slot, 1);
  if (r == kErrWrite || !file_->Flush()) forgetMapping();
  setError(kErrNone);
  return 1;
}

int AZeusDB::writeFocusableSlot(Focusable* record, RGDBTemplate* tmpl, DBTaskItem* task) {
  if (record == nullptr) return 0;
  openDB(0);
  {
    CSingleLock sl(slot_lock_);
    ensureMapped(true);
  }
  if (refusedWrite()) {
    closeDB();
    return 0;
  }
  if (record->GetDBSlotIndex() == -1) countStatistics(record, tmpl, task);
  int result;
  {
    CSingleLock sl(slot_lock_);
    // The save is one change of the file: cut off at any point, it is
    // undone at the next opening.
    file_->Begin();
    defer_states_ = 1;
    const bool was_new = record->GetDBSlotIndex() == -1;
    result = completeCutSubTable() == 0 ? writeSlot(record, tmpl, task) : 0;
    defer_states_ = 0;
    // A new record whose save failed has no slot: the one it was given is
    // still free, and may be given to another record meanwhile.
    if (result != 1 && was_new) record->SetDBSlotIndex(-1);
    if (result != 1 && (!pending_states_.empty() || !pending_heads_.empty())) {
      // A save that stopped half way may have linked its last slot to one
      // it never wrote: none of its marks go out, so that its slots stay
      // free in the file and its next save takes them up from their
      // headers. Memory, which counts them as taken, is read again.
      pending_states_.clear();
      pending_heads_.clear();
      forgetMapping();
    }
    releasePendingStates();
    // What a save that stopped left is kept as it was; when even that did
    // not reach the file, it was undone, and memory is read again.
    if (!file_->Commit()) forgetMapping();
  }
  closeDB();
  if (result != 0) record->SetDB(this);
  return result;
}

int AZeusDB::writeFocusablesSlot(CArray<Focusable*, Focusable*>* records, RGDBTemplate* tmpl,
                                 DBTaskItem* task) {
  (void)tmpl;  // each record is written with the template of its relation
  if (records == nullptr) return 0;
  openDB(0);
  bool empty_file;
  {
    CSingleLock sl(slot_lock_);
    ensureMapped(true);
    empty_file = tables_->Empty();
  }
  if (refusedWrite()) {
    closeDB();
    return 0;
  }
  for (Focusable* record : *records) {
    if (record == nullptr) continue;
    if (empty_file || record->GetDBSlotIndex() == -1) countStatistics(record, nullptr, task);
  }
  int result;
  {
    CSingleLock sl(slot_lock_);
    file_->Begin();
    result = completeCutSubTable() == 0 ? writeBatch(records, task) : 0;
    if (!file_->Commit()) forgetMapping();
  }
  closeDB();
  return result;
}

int AZeusDB::writeBatch(CArray<Focusable*, Focusable*>* records, DBTaskItem* task) {
  // The records' writes are coalesced and handed to the system together
  // before this call returns; each record is told that it is saved only
  // after that.
  batch_ = 1;
  defer_states_ = 1;
  batch_saved_.clear();
  batch_new_.clear();
  RGDBTemplate* current = nullptr;
  bool have_relation = false;
  int relation = 0;
  int result = 1;
  // The marks of the records saved so far; each record's own go in only
  // when its save went through.
  std::map<uint64_t, char> states;
  std::map<uint64_t, char> heads;
  bool withheld = false;
  // The error of the last record that failed: the records saved after it
  // must not leave the batch's failure without its code.
  int failure = kErrNone;
  for (Focusable* record : *records) {
    if (record == nullptr) {
      result = 0;
      failure = kErrNoEntry;
      continue;
    }
    if (!have_relation || record->GetFocusableRelation() != relation) {
      have_relation = true;
      relation = record->GetFocusableRelation();
      current = CatalogueTemplate(relation);
    }
    pending_states_.clear();
    pending_heads_.clear();
    const bool was_new = record->GetDBSlotIndex() == -1;
    const int r = writeSlot(record, current, task);
    if (r != 0) record->SetDB(this);
    // A new record whose save failed has no slot: the one it was given is
    // still free, and may be given to another record meanwhile.
    if (r != 1 && was_new) record->SetDBSlotIndex(-1);
    result &= r;
    if (r != 1) failure = last_error_ != kErrNone ? last_error_.load() : kErrWrite;
    if (r == 1) {
      keepPendingStates(&states, &heads);
    } else if (!pending_states_.empty() || !pending_heads_.empty()) {
      withheld = true;
    }
  }
  pending_states_.swap(states);
  pending_heads_.swap(heads);
  batch_ = 0;
  defer_states_ = 0;
  if (!endBatch(withheld)) return 0;
  if (result != 1) setError(failure);
  return result;
}

void AZeusDB::keepPendingStates(std::map<uint64_t, char>* states, std::map<uint64_t, char>* heads) {
  // The last state decided for a place is the one that goes out.
  for (const auto& [position, c] : pending_states_) {
    heads->erase(position);
    (*states)[position] = c;
  }
  for (const auto& [position, c] : pending_heads_) {
    states->erase(position);
    (*heads)[position] = c;
  }
}

bool AZeusDB::endBatch(bool withheld) {
  const bool committed = commitSave() != 0;
  if (committed && withheld) {
    // A save that stopped half way may have linked its last slot to one
    // it never wrote, which another record of the batch may have taken
    // since: none of its marks go out, so that its slots stay free in the
    // file and its next save takes them up from their headers. Memory
    // still counts them as taken: the file is mapped again.
    forgetMapping();
  }
  if (committed) {
    for (auto& [record, written] : batch_saved_) {
      for (int id : written) record->ChangeItemChangeStatus(id, 0);
      record->FocusableSaved();
    }
  } else {
    // Nothing of the batch is promised: the records keep their changed
    // flags, and the mapping is read again from the file. A new record has
    // no slot: the marks that would have taken its slots may not have
    // reached the file, so that another record may be given them.
    for (Focusable* record : batch_new_) record->SetDBSlotIndex(-1);
    forgetMapping();
    setError(kErrWrite);
  }
  batch_saved_.clear();
  batch_new_.clear();
  return committed;
}

int AZeusDB::deleteFocusableSlot(Focusable* record, RGDBTemplate* tmpl, DBTaskItem* task) {
  if (record == nullptr) return 0;
  openDB(0);
  int result = 0;
  {
    CSingleLock sl(slot_lock_);
    ensureMapped(true);
    if (!refusedWrite()) {
      file_->Begin();
      result = deleteSlot(record, tmpl, task);
      if (!file_->Commit()) forgetMapping();
    }
  }
  closeDB();
  return result;
}

}  // namespace kordll
