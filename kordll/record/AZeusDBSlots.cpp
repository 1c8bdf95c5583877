#include <algorithm>
#include <climits>
#include <cstring>

#include "kordll/record/AZeusDB.h"
#include "kordll/record/AZeusDBInternal.h"
#include "kordll/record/ChainCursor.h"
#include "kordll/record/DBTaskItem.h"
#include "kordll/record/FieldInfo.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/MarkedText.h"
#include "kordll/record/SlotFile.h"
#include "kordll/record/SubTableMap.h"

namespace kordll {

using namespace azeus;

// ---------------------------------------------------------------------------
// Slot records

bool AZeusDB::Suits(const _struct_SubTableInfo& info, const std::vector<FieldPlan>* plans) {
  if (plans == nullptr) return true;
  for (size_t i = 0; i < plans->size(); ++i) {
    const FieldPlan& plan = (*plans)[i];
    if (plan.mode != 0 || plan.text.IsEmpty()) continue;
    if (static_cast<int>(i) >= info.fieldCount || info.lengths[i] == 0) return false;
  }
  return true;
}

int AZeusDB::leftoverNext(int slot, int relation, int sequence, int previous,
                          const std::vector<FieldPlan>* plans) {
  // Only reads: the last error is left as the walk had it.
  const int error = last_error_;
  int result = -1;
  _struct_SLOTHEADER header;
  _struct_SubTableInfo* own = getSubTable(slot);
  _struct_SubTableInfo* info = nullptr;
  if (own != nullptr && readSlotHeader(slot, &header) == 0 && header.relation == relation &&
      header.sequence == sequence && header.previous == previous && header.next >= 0 &&
      header.next != slot) {
    info = getSubTable(header.next);
  }
  // The slot linked to must link back, and suit the record as a free slot
  // would (findEmptySlot).
  _struct_SLOTHEADER next;
  if (info != nullptr && info->relation == relation && info->fieldCount == own->fieldCount &&
      !info->headFlags[header.next % kSlotsPer] && Suits(*info, plans) &&
      readSlotHeader(header.next, &next) == 0 && next.relation == relation &&
      next.sequence == sequence + 1 && next.previous == slot) {
    result = header.next;
  }
  setError(error);
  return result;
}

int AZeusDB::readSlotHeader(int slot, _struct_SLOTHEADER* header) {
  const int64_t position = getSlotBytePosition_bySlotIndex(slot, 0, 0);
  if (position < 0) {
    setError(kErrNoEntry);
    return kErrNoEntry;
  }
  char buffer[kSlotHeader + 1];
  uint32_t got = 0;
  if (!file_->ReadAt(static_cast<uint64_t>(position), buffer, kSlotHeader, &got) ||
      got < static_cast<uint32_t>(kSlotHeader)) {
    setError(kErrRead);
    return kErrRead;
  }
  buffer[kSlotHeader] = '\0';
  int v[4];
  if (KdbFormat::ScanInts(buffer, kSlotHeader, v, 4) != 4) {
    setError(kErrRead);
    return kErrRead;
  }
  header->relation = v[0];
  header->next = v[1];
  header->sequence = v[2];
  header->previous = v[3];
  return 0;
}

uint64_t AZeusDB::wantedSpan(_struct_SubTableInfo* info, RGDBTemplate* tmpl, DBTaskItem* task) {
  // The bytes from the first field area to the end of the last area that
  // the read takes, walking the fields as the read does.
  uint64_t offset = 0;
  uint64_t span = 0;
  const int f = info->fieldCount;
  for (int i = 0; i < f; ++i) {
    FieldInfo* field = tmpl->GetField(i);
    const int length = info->lengths[i];
    if (field != nullptr && task != nullptr && task->allFields == 0) {
      const int type = task->GetFieldTaskType(field->id);
      if (type == DBTaskItem::kTaskPastEnd) break;
      if (type != DBTaskItem::kTaskLoad) {
        offset += length;
        continue;
      }
    }
    offset += length;
    if (field != nullptr) span = offset;
  }
  return span;
}

int AZeusDB::readSlotFront(uint64_t position, uint64_t count, bool exact) {
  // Never more than the file holds: a damaged geometry cannot make the
  // buffer grow beyond the file.
  const int64_t size = file_->Size();
  uint64_t available =
      size > static_cast<int64_t>(position) ? static_cast<uint64_t>(size) - position : 0;
  if (count > available) count = available;
  if (slot_buffer_.size() < count) slot_buffer_.resize(count);
  if (exact) {
    // Reads by slot that go forward through the file one close behind the
    // other (a filter over the headers a controller holds, in file order)
    // are served as a scan is, from larger pieces read ahead; scattered
    // reads stay exact.
    constexpr uint64_t kForwardGap = 64 * 1024;
    const bool forward = position >= exact_next_ && position - exact_next_ <= kForwardGap;
    exact_streak_ = forward ? exact_streak_ + 1 : 0;
    exact_next_ = position + count;
    if (exact_streak_ >= 3) exact = false;
  }
  uint32_t got = 0;
  if (count < static_cast<uint64_t>(kSlotHeader) ||
      !(exact ? file_->ReadExact(position, slot_buffer_.data(), static_cast<uint32_t>(count), &got)
              : file_->ReadAt(position, slot_buffer_.data(), static_cast<uint32_t>(count), &got)) ||
      got < static_cast<uint32_t>(kSlotHeader)) {
    slot_got_ = 0;
    setError(kErrRead);
    return 0;
  }
  slot_got_ = got;
  return 1;
}

int AZeusDB::parseSlotHeader(const unsigned char* bytes, _struct_SLOTHEADER* header) {
  char buffer[kSlotHeader + 1];
  std::memcpy(buffer, bytes, kSlotHeader);
  buffer[kSlotHeader] = '\0';
  int v[4];
  if (KdbFormat::ScanInts(buffer, kSlotHeader, v, 4) != 4) return kErrRead;
  header->relation = v[0];
  header->next = v[1];
  header->sequence = v[2];
  header->previous = v[3];
  return 0;
}

void AZeusDB::parseItemsStatus(const unsigned char* bytes, int f, std::vector<int>* status) {
  status->assign(f, 0);
  for (int i = 0; i < f; ++i) {
    const unsigned char c = bytes[1 + i];
    // NUL (a free slot's status) reads as '0'.
    (*status)[i] = (c >= '0' && c <= '9') ? c - '0' : 0;
  }
}

int AZeusDB::writeSlotHeader(int slot, const _struct_SLOTHEADER& header) {
  const int64_t position = getSlotBytePosition_bySlotIndex(slot, 0, 0);
  if (position < 0) {
    setError(kErrNoEntry);
    return kErrNoEntry;
  }
  std::string text = FormatSlotHeader(header);
  if (text.size() > static_cast<size_t>(kSlotHeader)) {
    setError(kErrTooLong);
    return kErrTooLong;
  }
  text.resize(kSlotHeader, '\0');
  if (!file_->WriteAt(static_cast<uint64_t>(position), text.data(), kSlotHeader)) {
    setError(kErrWrite);
    return kErrWrite;
  }
  return 0;
}

int AZeusDB::readItemsStatus(_struct_SubTableInfo* info, int place, std::vector<int>* status) {
  const int f = info->fieldCount;
  std::vector<char> bytes(f + 2);
  uint32_t got = 0;
  if (!file_->ReadAt(getSlotBytePosition(info, place, 1, 0), bytes.data(),
                     static_cast<uint32_t>(bytes.size()), &got) ||
      got < bytes.size()) {
    setError(kErrRead);
    return kErrRead;
  }
  status->assign(f, 0);
  for (int i = 0; i < f; ++i) {
    const char c = bytes[1 + i];
    // NUL (a free slot's status) reads as '0'.
    (*status)[i] = (c >= '0' && c <= '9') ? c - '0' : 0;
  }
  return 0;
}

int AZeusDB::writeItemsStatus(_struct_SubTableInfo* info, int place,
                              const std::vector<int>& status) {
  const int f = info->fieldCount;
  std::string bytes(f + 2, '\0');
  bytes[0] = '[';
  for (int i = 0; i < f; ++i) {
    const int s = i < static_cast<int>(status.size()) ? status[i] : 0;
    bytes[1 + i] = static_cast<char>('0' + std::clamp(s, 0, 9));
  }
  bytes[f + 1] = ']';
  if (!file_->WriteAt(getSlotBytePosition(info, place, 1, 0), bytes.data(),
                      static_cast<uint32_t>(bytes.size()))) {
    setError(kErrWrite);
    return kErrWrite;
  }
  return 0;
}

int AZeusDB::updateSubTableSlotStatus(_struct_SubTableInfo* info, int place, int state) {
  const bool head = info->headFlags[place] != 0;
  const bool cont = info->continuationFlags[place] != 0;
  bool change = false;
  if (state == 0) change = head || cont;
  if (state == 1) change = !head;
  if (state == 2) change = !cont;
  if (change) {
    const char c = static_cast<char>('0' + state);
    const uint64_t position = info->firstSlotPosition - info->slotCount - 2 -
                              6 * static_cast<uint64_t>(info->fieldCount) + place;
    if (defer_states_) {
      // The last state decided for a place is the one that goes out.
      (state == 1 ? pending_states_ : pending_heads_).erase(position);
      (state == 1 ? pending_heads_ : pending_states_)[position] = c;
    } else if (!file_->WriteAt(position, &c, 1)) {
      setError(kErrWrite);
      return kErrWrite;
    }
  }
  tables_->SetState(info, place, state);
  setError(kErrNone);
  return 0;
}

int AZeusDB::writeEmptySlot(int slot, int updateState) {
  _struct_SubTableInfo* info = getSubTable(slot);
  if (info == nullptr) {
    setError(kErrNoEntry);
    return 0;
  }
  const int place = slot % kSlotsPer;
  if (updateState) {
    const int r = updateSubTableSlotStatus(info, place, 0);
    if (r != 0) return r;
  }
  const std::string free_slot = KdbFormat::FreeSlot(info->GetSlotSize());
  if (!file_->WriteAt(getSlotBytePosition(info, place, 0, 0), free_slot.data(),
                      static_cast<uint32_t>(free_slot.size()))) {
    setError(kErrWrite);
    return kErrWrite;
  }
  return 0;
}

int AZeusDB::deleteEntry(int slot, int wholeChain) {
  // The walk may start in the middle of a chain (the tail of a record that
  // became shorter): the first slot tells where it stands.
  ChainCursor walk(slot, totalSlots());
  while (walk.slot() != -1) {
    _struct_SLOTHEADER header;
    if (readSlotHeader(walk.slot(), &header) != 0) return last_error_;
    // A chain that does not link back, or runs longer than the file has
    // slots, is damaged: the walk stops there.
    if (walk.steps() == 0) {
      walk.Anchor(header.sequence);
    } else if (!walk.Fits(header.sequence, header.previous)) {
      setError(kErrRead);
      return kErrRead;
    }
    if (!walk.Visit()) {
      setError(kErrRead);
      return kErrRead;
    }
    const int r = writeEmptySlot(walk.slot(), 1);
    if (r != 0) return r;
    if (!wholeChain) break;
    walk.Advance(header.next);
  }
  return 0;
}

// ---------------------------------------------------------------------------
// Items

int AZeusDB::writeItem(CString* text, int length, int* status, int* more, int* changed) {
  if (length == 0) {
    setError(kErrNone);
    return 0;
  }
  if (static_cast<int>(byte_buffer_.size()) < length + 1) byte_buffer_.resize(length + 1);
  unsigned char* buffer = byte_buffer_.data();
  std::memset(buffer, 0, length + 1);
  const std::u16string& units = text->str();
  const int n = text->GetLength();
  if (n <= length) {
    for (int i = 0; i < n; ++i) buffer[i] = static_cast<unsigned char>(units[i] & 0xFF);
    if (*status == 2) {
      // The old text went on: the walk must go on to clear its tail.
      *more = 1;
      *changed = 1;
    }
    const int fresh = n > 0 ? 1 : 0;
    if (fresh != *status) *changed = 1;
    *status = fresh;
    text->Empty();
  } else {
    for (int i = 0; i < length; ++i) buffer[i] = static_cast<unsigned char>(units[i] & 0xFF);
    *text = text->Mid(length);
    if (*status != 2) *changed = 1;
    *status = 2;
    *more = 1;
  }
  if (!file_->WriteAt(position_, buffer, static_cast<uint32_t>(length))) {
    setError(kErrWrite);
    return kErrWrite;
  }
  position_ += length;
  return 0;
}

int AZeusDB::writeItem_wstring(const CString& text, int* position, int length, int* status,
                               int* more, int* changed) {
  if (length == 0) {
    setError(kErrNone);
    return 0;
  }
  if (static_cast<int>(byte_buffer_.size()) < length + 1) byte_buffer_.resize(length + 1);
  unsigned char* buffer = byte_buffer_.data();
  std::memset(buffer, 0, length + 1);
  const int used =
      MarkedText::Encode(text.view(), position, buffer, length, MarkedText::kRecordArea);
  if (*position >= text.GetLength()) {
    if (*status == 2) {
      *more = 1;
      *changed = 1;
    }
    // The marker and the terminator alone (fewer than 4 bytes) hold nothing.
    const int fresh = used + 1 < 4 ? 0 : 1;
    if (fresh != *status) *changed = 1;
    *status = fresh;
  } else {
    if (*status != 2) *changed = 1;
    *status = 2;
    *more = 1;
  }
  if (!file_->WriteAt(position_, buffer, static_cast<uint32_t>(length))) {
    setError(kErrWrite);
    return kErrWrite;
  }
  position_ += length;
  return 0;
}

size_t AZeusDB::ConvertToWChar(const unsigned char* bytes, int length, int type, char16_t* out) {
  if (length <= 0) return 0;
  if (type == 4 && length >= 2 && bytes[0] == '!' && bytes[1] == ':') {
    size_t nul;
    const size_t n = MarkedText::DecodeMultiByte(bytes + 2, length - 2, out, &nul);
    return nul != std::u16string::npos ? nul : n;
  }
  // The 8-bit decoder stops at the first NUL byte: it gives no U+0000.
  return MarkedText::DecodeNarrow(bytes, length, type == 4, out);
}

int AZeusDB::readItem(Focusable* record, FieldInfo* field, int length, int* status, int sequence,
                      const unsigned char* area, int* more) {
  if (*status == 0) return kErrNoData;
  if (area == nullptr) {
    // The area lies beyond what the file holds.
    setError(kErrRead);
    return kErrRead;
  }
  // The decoders stop at the end of the area, so it is read in place; the
  // terminator that a copy would get is the area's bound here.
  if (length > 0 && wide_buffer_.size() < static_cast<size_t>(length)) {
    wide_buffer_.resize(length);
  }
  const size_t units = ConvertToWChar(area, length, field->type, wide_buffer_.data());
  if (length > 0 && area[0] != 0) {
    const int partial = (*status == 2 || (*status != 0 && sequence > 0)) ? 1 : 0;
    const int first = sequence == 0 ? 1 : 0;
    const int last = *status != 2 ? 1 : 0;
    // The piece goes in with its length, so the record neither measures it
    // again nor copies it more than once; it ends where a terminated string
    // would.
    record->SetValuePiece(field->id, field->type, std::u16string_view(wide_buffer_.data(), units),
                          partial, first, last);
  }
  if (*status == 2) *more = 1;
  setError(kErrNone);
  return 0;
}

}  // namespace kordll
