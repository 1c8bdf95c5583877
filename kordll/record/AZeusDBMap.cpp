#include <algorithm>
#include <climits>
#include <cstring>

#include "kordll/record/AZeusDB.h"
#include "kordll/record/AZeusDBInternal.h"
#include "kordll/record/DBTaskItem.h"
#include "kordll/record/FieldInfo.h"
#include "kordll/record/SlotFile.h"
#include "kordll/record/SubTableMap.h"

namespace kordll {

using namespace azeus;

namespace {

constexpr int Digits(int n) { return n < 10 ? 1 : 1 + Digits(n / 10); }

// A file of fewer sub-tables maps quickly enough from their headers: it gets
// no map file beside it.
constexpr size_t kIndexFrom = 64;

// The line "[id:40:size:fields:relation]" of the largest sub-table id still
// leaves room in its record for a slot size, a field count and a relation of
// eight digits each (a sign included). writeEmptySubTable refuses a line that
// would not fit rather than cut it.
static_assert(1 + Digits(KdbFormat::kMaxSubTableID) + 1 + Digits(kSlotsPer) + 3 * (1 + 8) + 1 <=
              kLine);

}  // namespace

// ---------------------------------------------------------------------------
// Sub-tables

int AZeusDB::readSubTable(uint64_t position, _struct_SubTableInfo* info, int fieldsHint) {
  const int64_t file_size = file_->Size();
  // The whole header comes in one read when its field count is the hint
  // (that of the sub-table before, as it nearly always is); otherwise the
  // lengths are read again once the line has told their size. Only the
  // header is read: the slots are skipped by their computed size.
  const size_t guess = KdbFormat::SubTableHeaderSize(kSlotsPer, std::max(fieldsHint, 1));
  if (header_buffer_.size() < guess) header_buffer_.resize(guess);
  uint32_t got = 0;
  if (!file_->ReadExact(position, header_buffer_.data(), static_cast<uint32_t>(guess), &got) ||
      got < static_cast<uint32_t>(kLine)) {
    return kErrRead;
  }
  char line[kLine + 1];
  std::memcpy(line, header_buffer_.data(), kLine);
  line[kLine] = '\0';
  int v[5];
  if (KdbFormat::ScanInts(line, kLine, v, 5) != 5) return kErrRead;
  const int id = v[0], slots = v[1], fields = v[3], relation = v[4];
  if (slots != kSlotsPer || fields < 1) return kErrCorrupted;
  if (id < 0 || id > KdbFormat::kMaxSubTableID) return kErrCorrupted;
  // Nothing is allocated for a header that the file cannot hold.
  const int64_t header_size = KdbFormat::SubTableHeaderSize(slots, fields);
  if (file_size < 0 || static_cast<int64_t>(position) + header_size > file_size) return kErrRead;
  if (got < header_size) {
    if (header_buffer_.size() < static_cast<size_t>(header_size)) {
      header_buffer_.resize(header_size);
    }
    uint32_t rest = 0;
    if (!file_->ReadExact(position + got, header_buffer_.data() + got,
                          static_cast<uint32_t>(header_size - got), &rest) ||
        got + rest < header_size) {
      return kErrRead;
    }
  }

  const char* states = header_buffer_.data() + kLine;
  if (states[0] != '[' || states[slots + 1] != ']') return kErrCorrupted;

  char* block = header_buffer_.data() + kLine + slots + 2;
  const size_t block_size = 6 * static_cast<size_t>(fields) + 1;
  if (block[0] != '[') return kErrCorrupted;
  block[block_size - 1] = '\0';  // the newline; the text is terminated before the split
  // Sub-tables of a file mostly repeat the lengths of the one before: the
  // same bytes give the same lengths, which were checked then.
  if (last_lengths_text_.size() != block_size ||
      std::memcmp(last_lengths_text_.data(), block, block_size) != 0) {
    last_lengths_text_.clear();
    last_lengths_ = KdbFormat::ParseLengths(block, block_size);
    if (static_cast<int>(last_lengths_.size()) != fields) return kErrCorrupted;
    for (int l : last_lengths_) {
      if (l < 0 || l > KdbFormat::kMaxFieldLength) return kErrCorrupted;
    }
    last_lengths_text_.assign(block, block + block_size);
  }
  const std::vector<int>& lengths = last_lengths_;

  info->id = id;
  info->slotCount = slots;
  info->fieldCount = fields;
  info->relation = relation;
  info->slotSize = -1;
  info->lengths.assign(lengths.begin(), lengths.end());
  info->headFlags.assign(slots, 0);
  info->continuationFlags.assign(slots, 0);
  info->full = 1;
  info->freePlaces = 0;
  for (int i = 0; i < slots; ++i) {
    const char c = states[1 + i];
    if (c == '0') info->full = 0;
    if (c == '1') info->headFlags[i] = 1;
    if (c == '2') info->continuationFlags[i] = 1;
    if (c != '1' && c != '2') ++info->freePlaces;
  }
  info->firstSlotPosition = position + static_cast<uint64_t>(header_size);
  return 0;
}

bool AZeusDB::loadSubTable(const SubTableIndex::Entry& shape, _struct_SubTableInfo* info) {
  const uint64_t header =
      static_cast<uint64_t>(KdbFormat::SubTableHeaderSize(kSlotsPer, shape.fieldCount));
  if (shape.firstSlotPosition < header) return false;
  return readSubTable(shape.firstSlotPosition - header, info, shape.fieldCount) == 0 &&
         info->id == shape.id && info->relation == shape.relation &&
         info->fieldCount == shape.fieldCount &&
         info->firstSlotPosition == shape.firstSlotPosition &&
         info->GetSlotSize() == shape.slotSize;
}

size_t AZeusDB::mapFromIndex(MapWalk* walk, bool* whole) {
  size_t count = 0;
  SubTableIndex::Entry last;
  if (!SubTableIndex::Inspect(path_, file_->Size(), &count, &last, whole)) return 0;
  // Only the count is taken now: the shapes are read a page at a time when
  // a sub-table is first asked for.
  const CString path = path_;
  tables_->AdoptNumbered(count, [path](size_t first, size_t n, SubTableIndex::Entry* out) {
    return SubTableIndex::ReadEntries(path, first, n, out);
  });
  // Where the file goes on is known only if the last sub-table of the map is
  // really there; otherwise the map is of some other file.
  if (tables_->ById(last.id) == nullptr) {
    tables_->Clear();
    return 0;
  }
  walk->position = last.firstSlotPosition +
                   static_cast<uint64_t>(kSlotsPer) * static_cast<uint64_t>(last.slotSize);
  walk->fieldsHint = last.fieldCount;
  walk->highestId = last.id;
  walk->lastId = last.id;
  return count;
}

void AZeusDB::ensureMapped(bool forChange) {
  // A sub-table that did not read as the map file said: the map goes, and
  // the file is mapped again from its headers.
  if (mapped_ && tables_->Distrusted()) forgetMapping();
  if (!mapped_) mapDB();
  // Which sub-table has the first free place of a relation, and which holds
  // a slot, depends on headers the map file only claims to know.
  if (forChange && mapped_ && !tables_->LoadAll()) {
    forgetMapping();
    mapDB();
  }
}

int AZeusDB::walkSubTables(MapWalk* walk) {
  for (;;) {
    auto info = std::make_unique<_struct_SubTableInfo>();
    int r = readSubTable(walk->position, info.get(), walk->fieldsHint);
    if (r == 0 && tables_->Has(info->id)) r = kErrCorrupted;
    if (r != 0) return r;
    walk->position = info->firstSlotPosition + static_cast<uint64_t>(info->slotCount) *
                                                   static_cast<uint64_t>(info->GetSlotSize());
    walk->fieldsHint = info->fieldCount;
    walk->highestId = std::max(walk->highestId, info->id);
    walk->lastId = info->id;
    registerNewSubTableInfo(std::move(info));
  }
}

int AZeusDB::mapDB() {
  CSingleLock sl(slot_lock_);
  if (mapped_) {
    setError(kErrNone);
    return 0;
  }
  MapWalk walk;
  bool whole = false;
  size_t from_index = mapFromIndex(&walk, &whole);
  int stop = walkSubTables(&walk);
  int64_t size = file_->Size();
  if (from_index > 0 && stop != 0 && size > static_cast<int64_t>(walk.position)) {
    // Behind the map lies something that does not read as a sub-table: the
    // map is not trusted, and the file is mapped from its start.
    tables_->Clear();
    walk = MapWalk();
    from_index = 0;
    stop = walkSubTables(&walk);
    size = file_->Size();
  }
  // Bytes behind the last sub-table that reads are a damaged sub-table: a
  // new one written there would go over them, so the file is not written to.
  if (stop != 0 && size > static_cast<int64_t>(walk.position)) damaged_ = stop;
  // A file that ends inside its last sub-table holds what a write of that
  // sub-table that stopped half way left: the next save completes it.
  cut_table_ = size >= 0 && static_cast<uint64_t>(size) < walk.position ? walk.lastId : -1;
  last_lengths_text_.clear();
  {
    CSingleLock ol(open_lock_);
    next_sub_table_id_ = std::max(next_sub_table_id_, walk.highestId + 1);
  }
  end_of_file_ = walk.position;
  mapped_ = 1;
  keepIndex(from_index, whole);
  setError(kErrNone);
  return 0;
}

namespace {

// Whether the sub-tables are numbered 0, 1, 2... in file order: only such a
// file gets a map.
bool Numbered(const std::vector<SubTableIndex::Entry>& shapes) {
  for (size_t i = 0; i < shapes.size(); ++i) {
    if (shapes[i].id != static_cast<int>(i)) return false;
  }
  return true;
}

}  // namespace

void AZeusDB::writeIndex() {
  const std::vector<SubTableIndex::Entry> shapes = tables_->Shapes();
  index_count_ = Numbered(shapes) && SubTableIndex::Write(path_, shapes)
                     ? static_cast<int64_t>(shapes.size())
                     : kIndexOff;
}

void AZeusDB::keepIndex(size_t fromIndex, bool whole) {
  index_count_ = kIndexNone;
  // A damaged or cut file is not described: the map would have to be made
  // again once it is whole.
  if (damaged_ != 0 || cut_table_ >= 0) {
    index_count_ = kIndexOff;
    return;
  }
  const size_t count = tables_->Count();
  if (fromIndex > 0 && whole) {
    // Sub-tables that another writer added behind the map go onto its end.
    index_count_ = static_cast<int64_t>(fromIndex);
    for (size_t i = fromIndex; i < count && index_count_ >= 0; ++i) indexNewSubTable(i);
    return;
  }
  if (fromIndex > 0 || count >= kIndexFrom) writeIndex();
}

void AZeusDB::indexNewSubTable(size_t index) {
  const int64_t held = index_count_;
  if (held >= 0) {
    const SubTableIndex::Entry& shape = tables_->ShapeAt(index);
    const bool in_step = static_cast<size_t>(held) == index && shape.id == static_cast<int>(index);
    if (in_step && SubTableIndex::Append(path_, shape, index)) {
      index_count_ = static_cast<int64_t>(index) + 1;
    } else {
      index_count_ = kIndexOff;
      SubTableIndex::Discard(path_);
    }
  } else if (held == kIndexNone && index + 1 >= kIndexFrom) {
    writeIndex();
  }
}

int AZeusDB::completeCutSubTable() {
  if (cut_table_ < 0) return 0;
  _struct_SubTableInfo* info = tables_->ById(cut_table_);
  cut_table_ = -1;
  if (info == nullptr) return 0;
  const int64_t size = file_->Size();
  const uint64_t slot_size = static_cast<uint64_t>(info->GetSlotSize());
  const uint64_t first = info->firstSlotPosition;
  const uint64_t end = first + static_cast<uint64_t>(info->slotCount) * slot_size;
  if (size < 0 || static_cast<uint64_t>(size) < first || static_cast<uint64_t>(size) >= end) {
    return 0;
  }
  // The missing bytes are those of free slots; a slot that the cut went
  // through keeps its front as the file holds it.
  const std::string slot = KdbFormat::FreeSlot(static_cast<int>(slot_size));
  for (uint64_t at = static_cast<uint64_t>(size); at < end;) {
    const uint64_t in_slot = (at - first) % slot_size;
    const uint64_t n = slot_size - in_slot;
    if (!file_->WriteAt(at, slot.data() + in_slot, static_cast<uint32_t>(n))) {
      setError(kErrWrite);
      return kErrWrite;
    }
    at += n;
  }
  return 0;
}

void AZeusDB::registerNewSubTableInfo(std::unique_ptr<_struct_SubTableInfo> info) {
  tables_->Register(std::move(info));
}

int64_t AZeusDB::totalSlots() const { return tables_->TotalSlots(); }

int AZeusDB::getNextAvailableSubTableID() {
  CSingleLock ol(open_lock_);
  if (next_sub_table_id_ > KdbFormat::kMaxSubTableID) return -1;
  return next_sub_table_id_++;
}

int AZeusDB::writeEmptySubTable(_struct_SubTableInfo* info, int64_t position) {
  // The line carries the slot size of the lengths as given; lengths above
  // the largest that the format stores are then clamped, and the clamped
  // lengths give the size of the free slots.
  int64_t line_size = info->fieldCount + 28;
  for (unsigned short l : info->lengths) line_size += l;
  for (unsigned short& l : info->lengths) {
    if (l > KdbFormat::kMaxFieldLength) l = KdbFormat::kMaxFieldLength;
  }
  info->slotSize = -1;
  const int slot_size = info->GetSlotSize();
  const int f = info->fieldCount;
  const int n = info->slotCount;

  std::string bytes;
  const int line_values[5] = {info->id, n, static_cast<int>(line_size), f, info->relation};
  std::string line = KdbFormat::FormatInts(line_values, 5);
  if (line.size() > static_cast<size_t>(kLine)) return kErrWrite;
  line.resize(kLine, '\0');
  bytes += line;
  bytes += '[';
  bytes.append(n, '0');
  bytes += ']';
  std::string lengths = "[";
  for (int i = 0; i < f; ++i) {
    if (i > 0) lengths += ',';
    lengths += std::to_string(info->lengths[i]);
  }
  lengths += ']';
  if (lengths.size() > static_cast<size_t>(6 * f)) return kErrWrite;
  lengths.resize(6 * f, '\0');
  lengths += '\n';
  bytes += lengths;
  const std::string slot = KdbFormat::FreeSlot(slot_size);
  for (int i = 0; i < n; ++i) bytes += slot;

  // The sub-table goes where the mapped part of the file ends, so that the
  // offsets in memory are those on disk also when a damaged tail was not
  // mapped.
  const uint64_t at = position >= 0 ? static_cast<uint64_t>(position) : end_of_file_.load();
  // Within a batch the sub-table goes out with the records written into it.
  if (!file_->WriteAt(at, bytes.data(), static_cast<uint32_t>(bytes.size())) ||
      (!batch_ && !file_->Flush())) {
    return kErrWrite;
  }
  info->firstSlotPosition = at + static_cast<uint64_t>(info->GetHeaderSize());
  end_of_file_ = info->firstSlotPosition + static_cast<uint64_t>(n) * slot_size;
  return 0;
}

void AZeusDB::getOptimumFieldLengths(RGDBTemplate* tmpl, std::vector<int>* lengths) {
  const int f = tmpl->GetFieldCount();
  lengths->assign(f, 0);
  CSingleLock hl(header_lock_);
  auto totals_it = length_totals_.find(tmpl->GetRelationID());
  if (totals_it == length_totals_.end()) {
    // Nothing is known of the relation (a reopened file restores the totals
    // of one relation only): the catalogue's lengths hold any text that goes
    // on into the new sub-table.
    for (int i = 0; i < f; ++i) {
      const FieldInfo* field = tmpl->GetField(i);
      (*lengths)[i] = field == nullptr ? 0 : std::clamp(field->size, 0, 65500);
    }
    return;
  }
  const std::vector<int64_t>& totals = totals_it->second;
  int64_t count = 1;
  auto count_it = record_counts_.find(tmpl->GetRelationID());
  if (count_it != record_counts_.end() && count_it->second != 0) count = count_it->second;
  for (int i = 0; i < f; ++i) {
    const FieldInfo* field = tmpl->GetField(i);
    const int size = field == nullptr ? 0 : field->size;
    if (size == 0) continue;
    const int64_t total = i < static_cast<int>(totals.size()) ? totals[i] : 0;
    const int64_t average = total / count;
    int64_t length;
    if (average != 0) {
      length = average + KdbFormat::kLengthGranularity - (average % KdbFormat::kLengthGranularity);
    } else if (total == 0 && size >= 8) {
      length = 7;
    } else {
      length = size;
    }
    if (length >= 65535) length = 65500;
    (*lengths)[i] = static_cast<int>(length);
  }
}

int AZeusDB::expandTable(RGDBTemplate* tmpl) {
  const int f = tmpl->GetFieldCount();
  if (f <= 0) return -1;
  auto info = std::make_unique<_struct_SubTableInfo>();
  std::vector<int> lengths;
  if (optimize_lengths_ == 0) {
    lengths.assign(f, 0);
    for (int i = 0; i < f; ++i) {
      const FieldInfo* field = tmpl->GetField(i);
      lengths[i] = field == nullptr ? 0 : field->size;
    }
  } else {
    getOptimumFieldLengths(tmpl, &lengths);
  }
  info->lengths.resize(f);
  for (int i = 0; i < f; ++i) {
    info->lengths[i] = static_cast<unsigned short>(std::clamp(lengths[i], 0, 65535));
  }
  const int id = getNextAvailableSubTableID();
  if (id < 0) return -1;
  info->id = id;
  info->relation = tmpl->GetRelationID();
  info->slotCount = kSlotsPer;
  info->fieldCount = f;
  info->headFlags.assign(kSlotsPer, 0);
  info->continuationFlags.assign(kSlotsPer, 0);
  info->freePlaces = kSlotsPer;
  const uint64_t old_end = end_of_file_;
  _struct_SubTableInfo* raw = info.get();
  if (writeEmptySubTable(raw, -1) != 0) {
    // Nothing of the sub-table is in memory that is not on disk.
    end_of_file_ = old_end;
    CSingleLock ol(open_lock_);
    if (next_sub_table_id_ == id + 1) next_sub_table_id_ = id;
    return -1;
  }
  registerNewSubTableInfo(std::move(info));
  indexNewSubTable(tables_->Count() - 1);
  // The header goes with every new sub-table. When it does not reach the
  // file, the sub-table stays (it is in the file) and the save that needed
  // it fails; the statistics are written again later.
  openDB(0);
  int header = writeDBHeader();
  if (header == 0 && !batch_ && !file_->Flush()) {
    setError(kErrWrite);
    header = kErrWrite;
  }
  closeDB();
  if (header != 0) {
    CSingleLock hl(header_lock_);
    header_dirty_ = 1;
    return -1;
  }
  return id;
}

void AZeusDB::resetTable() {
  CSingleLock sl(slot_lock_);
  {
    CSingleLock hl(header_lock_);
    length_totals_.clear();
  }
  tables_->Clear();
}

_struct_SubTableInfo* AZeusDB::getSubTable(int slot) {
  if (slot < 0) return nullptr;
  return tables_->Get(slot);
}

uint64_t AZeusDB::getSlotBytePosition(_struct_SubTableInfo* info, int place, int afterHeader,
                                      int afterStatus) {
  uint64_t position = info->firstSlotPosition + static_cast<uint64_t>(info->GetSlotSize()) * place;
  if (afterHeader) position += kSlotHeader;
  if (afterStatus) position += info->fieldCount + 2;
  return position;
}

int64_t AZeusDB::getSlotBytePosition_bySlotIndex(int slot, int afterHeader, int afterStatus) {
  _struct_SubTableInfo* info = getSubTable(slot);
  if (info == nullptr) return -1;
  return static_cast<int64_t>(
      getSlotBytePosition(info, slot % kSlotsPer, afterHeader, afterStatus));
}

int AZeusDB::findEmptySlot(RGDBTemplate* tmpl, _struct_SubTableInfo** info,
                           const std::vector<FieldPlan>* plans, int* place) {
  // A sub-table laid out for another field count cannot take the record.
  const int f = tmpl->GetFieldCount();
  const int found = tables_->FindFree(
      tmpl->GetRelationID(),
      [f, plans](const _struct_SubTableInfo& candidate) {
        return candidate.fieldCount == f && Suits(candidate, plans);
      },
      info, place);
  if (found >= 0) return found;
  const int id = expandTable(tmpl);
  if (id < 0) return -1;
  _struct_SubTableInfo* fresh = tables_->ById(id);
  for (int p = 0; p < fresh->slotCount; ++p) {
    if (!fresh->headFlags[p] && !fresh->continuationFlags[p]) {
      *info = fresh;
      *place = p;
      return kSlotsPer * id + p;
    }
  }
  return -1;
}

int AZeusDB::findNextActiveSlot(_struct_SubTableInfo** info, int* place, DBTaskItem* task) {
  int id = 0;
  int start = 0;
  if (task != nullptr && task->slotPosition >= 0) {
    id = task->slotPosition / kSlotsPer;
    start = task->slotPosition % kSlotsPer + 1;
    if (start >= kSlotsPer) {
      ++id;
      start = 0;
    }
  }
  return tables_->NextHead(id, start, info, place);
}

}  // namespace kordll
