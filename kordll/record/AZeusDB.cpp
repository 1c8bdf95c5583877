#include "kordll/record/AZeusDB.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "kordll/platform/CRuntime.h"
#include "kordll/platform/CodePage.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/platform/WinError.h"
#include "kordll/record/DBTaskItem.h"
#include "kordll/record/FieldInfo.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/KdbFormat.h"
#include "kordll/record/MarkedText.h"
#include "kordll/record/RGDBTemplate.h"
#include "kordll/record/RegistryEntryPoints.h"
#include "kordll/record/RelationsEntryPoints.h"
#include "kordll/record/SlotFile.h"

namespace kordll {

namespace {

constexpr int kSlotsPer = KdbFormat::kSlotsPerSubTable;
constexpr int kSlotHeader = KdbFormat::kSlotHeaderSize;
constexpr int kLine = KdbFormat::kSubTableLineSize;

constexpr int Digits(int n) { return n < 10 ? 1 : 1 + Digits(n / 10); }

// The line "[id:40:size:fields:relation]" of the largest sub-table id still
// leaves room in its record for a slot size, a field count and a relation of
// eight digits each (a sign included). writeEmptySubTable refuses a line that
// would not fit rather than cut it.
static_assert(1 + Digits(KdbFormat::kMaxSubTableID) + 1 + Digits(kSlotsPer) + 3 * (1 + 8) + 1 <=
              kLine);

RGDBTemplate* CatalogueTemplate(int relation) {
  return RelationsEntryPoints::Get()->GetRGDBTemplate(relation);
}

// The four numbers of a slot header in the order they stand on disk.
std::string FormatSlotHeader(const _struct_SLOTHEADER& h) {
  const int v[4] = {h.relation, h.next, h.sequence, h.previous};
  return KdbFormat::FormatInts(v, 4);
}

}  // namespace

int _struct_SubTableInfo::GetSlotSize() {
  if (slotSize == -1) {
    int64_t sum = 0;
    for (unsigned short l : lengths) sum += l;
    slotSize = static_cast<int>(sum + fieldCount + 28);
  }
  return slotSize;
}

int _struct_SubTableInfo::GetHeaderSize() const {
  return static_cast<int>(KdbFormat::SubTableHeaderSize(slotCount, fieldCount));
}

// ---------------------------------------------------------------------------
// Construction, open and close

AZeusDB::AZeusDB(CString directory, CString name, int reserved, int optimizeLengths)
    : reserved_(reserved),
      optimize_lengths_(optimizeLengths),
      name_(name),
      bad_name_(!KdbFormat::IsSafeName(name.view())) {
  path_ = directory;
  if (!directory.IsEmpty()) {
    const char16_t last = directory[directory.GetLength() - 1];
    if (last != u'/' && last != u'\\') path_ += u'/';
  }
  path_ += name;
  path_ += ".kdb";
  byte_buffer_.resize(1024);
  wide_buffer_.resize(1024);
  file_ = std::make_unique<SlotFile>();
}

AZeusDB::~AZeusDB() {
  if (deleted_) {
    resetTable();
    file_->Close();
    if (!bad_name_) FileSystem::DeleteFile(path_);
    return;
  }
  if (header_dirty_) {
    openDB(0);
    {
      CSingleLock hl(header_lock_);
      writeDBHeader();
    }
    closeDB();
  }
  file_->Close();
  resetTable();
}

int AZeusDB::openDB(int readOnly) {
  if (deleted_) {
    setError(kErrDeleted);
    return kErrDeleted;
  }
  {
    CSingleLock ol(open_lock_);
    // A refused name is not counted as open: the close that follows is one
    // too many and is ignored.
    if (refusedName()) return kErrRead;
    ++open_count_;
    if (open_count_ != 1) return 0;
    int err = ERROR_SUCCESS;
    if (!file_->Open(path_, readOnly ? SlotFile::kOpenRead : SlotFile::kOpenReadWrite, &err)) {
      // Only a missing file is made anew; a file that exists but does not
      // open is left alone.
      if (err != ERROR_FILE_NOT_FOUND) {
        setError(kErrRead);
        return kErrRead;
      }
      return createDB();
    }
    CSingleLock hl(header_lock_);
    if (!header_read_) {
      const int result = readDBHeader();
      header_read_ = 1;
      // A damaged header keeps the file from being written to.
      if (result == kErrCorrupted || result == kErrRead) damaged_ = result;
      return result;
    }
  }
  return 0;
}

void AZeusDB::closeDB() {
  CSingleLock ol(open_lock_);
  // More closes than opens are ignored: the count never goes below 0.
  if (open_count_ <= 0) return;
  if (--open_count_ == 0) file_->Close();
}

int AZeusDB::createDB() {
  if (deleted_) {
    setError(kErrDeleted);
    return kErrDeleted;
  }
  CSingleLock ol(open_lock_);
  if (refusedName()) return kErrRead;
  path_.Remove(u'\r');
  path_.Remove(u'\n');
  if (!file_->Open(path_, SlotFile::kCreate, nullptr)) {
    // A file that cannot be made leaves nothing to work on.
    setError(kErrWrite);
    return kErrWrite;
  }
  end_of_file_ = KdbFormat::kDBHeaderSize;
  CSingleLock hl(header_lock_);
  header_read_ = 1;
  const int result = writeDBHeader();
  if (result != 0) return result;
  if (!file_->Flush()) {
    setError(kErrWrite);
    return kErrWrite;
  }
  return 0;
}

void AZeusDB::clearDB() {
  CSingleLock sl(slot_lock_);
  CSingleLock ol(open_lock_);
  if (deleted_) {
    setError(kErrDeleted);
    return;
  }
  // The file is made anew and the open count stays as it was: a holder of
  // the file keeps a usable (read-write) handle, and with nobody holding it
  // the handle is closed again. The file holds no sub-table now, so the next
  // one goes right behind the header with id 0, and the next record
  // operation maps the new file.
  if (refusedName()) return;
  if (!file_->Open(path_, SlotFile::kCreate, nullptr)) {
    setError(kErrWrite);
    return;
  }
  {
    CSingleLock hl(header_lock_);
    header_read_ = 1;
  }
  resetTable();
  mapped_ = 0;
  end_of_file_ = KdbFormat::kDBHeaderSize;
  next_sub_table_id_ = 0;
  damaged_ = 0;
  {
    CSingleLock hl(header_lock_);
    if (writeDBHeader() == 0 && !file_->Flush()) setError(kErrWrite);
  }
  if (open_count_ == 0) file_->Close();
}

void AZeusDB::deleteDB() {
  CSingleLock ol(open_lock_);
  if (open_count_ == 0 && !bad_name_) FileSystem::DeleteFile(path_);
  deleted_ = 1;
}

void AZeusDB::renameDB(CString name, CString directory) {
  CSingleLock ol(open_lock_);
  // A name that would leave the folder is refused: nothing moves.
  if (!KdbFormat::IsSafeName(name.view())) {
    setError(kErrRead);
    return;
  }
  CString target = directory;
  if (!directory.IsEmpty() && directory[directory.GetLength() - 1] != u'/') target += u'/';
  target += name;
  target += ".kdb";
  // The database goes on at the new path whatever the move did: a failed
  // move (the target taken, say) leaves the old file where it was, and the
  // next open makes a new one at the new path.
  // A file under a refused name was never made, so there is nothing to move.
  if (!bad_name_) FileSystem::MoveFile(path_, target);
  path_ = target;
  bad_name_ = false;
}

CString AZeusDB::GetDBFile() { return name_; }

int AZeusDB::GetDBID() {
  {
    CSingleLock hl(header_lock_);
    if (header_read_ || db_id_ != -1) return db_id_;
  }
  // Opening creates a missing file, also for reading; a failed open leaves
  // the id at -1.
  openDB(1);
  closeDB();
  CSingleLock hl(header_lock_);
  return db_id_;
}

void AZeusDB::SetDBID(int id, int writeNow) {
  // The file is opened before the header lock is taken, in the lock order
  // that openDB itself uses.
  int opened = 0;
  if (writeNow) {
    openDB(0);
    opened = 1;
  }
  {
    CSingleLock hl(header_lock_);
    if (id != db_id_) {
      db_id_ = id;
      if (writeNow && writeDBHeader() == 0 && !file_->Flush()) setError(kErrWrite);
    }
  }
  if (opened) closeDB();
}

int AZeusDB::updateDBHeader() {
  openDB(0);
  int result;
  {
    CSingleLock hl(header_lock_);
    result = writeDBHeader();
    if (result == 0 && !file_->Flush()) {
      setError(kErrWrite);
      result = kErrWrite;
    }
    if (result == 0) header_dirty_ = 1;
  }
  closeDB();
  return result == 0 ? 1 : 0;
}

CString AZeusDB::GetLastDBErrorMsg() {
  switch (last_error_) {
    case kErrCorrupted:
      return CString("DB corrupted!");
    case kErrRead:
      return CString("DB Read Error!");
    case kErrEmptyRead:
      return CString("Empty Read!");
    case kErrWrite:
      return CString("DB Write Error!");
    case kErrNoEntry:
      return CString("No Valid Entry!");
    default:
      return CString();
  }
}

int AZeusDB::GetLastDBErrorMsgCode() { return last_error_; }

void AZeusDB::ConvertCharToWString(char* text, std::u16string& out) {
  out.clear();
  if (text == nullptr) return;
  out = CodePage::ToUnicode(CodePage::GetACP(), text).str();
}

int AZeusDB::GetOpenCount() {
  CSingleLock ol(open_lock_);
  return open_count_;
}

int AZeusDB::IsMapped() {
  CSingleLock sl(slot_lock_);
  return mapped_;
}

CString AZeusDB::GetDBPath() {
  CSingleLock ol(open_lock_);
  return path_;
}

std::vector<_struct_SubTableInfo> AZeusDB::GetSubTableInfos() {
  CSingleLock sl(slot_lock_);
  std::vector<_struct_SubTableInfo> out;
  for (auto& [id, info] : sub_tables_) out.push_back(*info);
  return out;
}

int AZeusDB::finishIO() {
  if (!file_->Flush()) {
    setError(kErrWrite);
    return 0;
  }
  return 1;
}

int AZeusDB::commitSave() {
  // Three flushes, so that whatever the file holds after a failure in any
  // of them, no state claims a slot whose header and data are missing, and
  // no head is marked while a slot of its chain is not: a save that stops
  // leaves slots that the states call free (the next save of the record
  // goes through them again) or continuations whose head is not marked yet
  // (which the next save of that head takes up, see leftoverNext).
  bool ok = file_->Flush();
  for (std::map<uint64_t, char>* pending : {&pending_states_, &pending_heads_}) {
    for (const auto& [position, c] : *pending) {
      if (ok && !file_->WriteAt(position, &c, 1)) ok = false;
    }
    pending->clear();
    if (ok && !file_->Flush()) ok = false;
  }
  if (!ok) {
    pending_states_.clear();
    pending_heads_.clear();
  }
  return ok ? 1 : 0;
}

void AZeusDB::releasePendingStates() {
  bool ok = true;
  for (std::map<uint64_t, char>* pending : {&pending_states_, &pending_heads_}) {
    for (const auto& [position, c] : *pending) {
      if (ok && !file_->WriteAt(position, &c, 1)) ok = false;
    }
    pending->clear();
  }
  // Marks that did not reach the file leave memory ahead of it: the file is
  // mapped again.
  if (!ok) forgetMapping();
}

// ---------------------------------------------------------------------------
// The database header

int AZeusDB::readDBHeader() {
  char buffer[KdbFormat::kDBHeaderSize + 1];
  uint32_t got = 0;
  if (!file_->ReadExact(0, buffer, KdbFormat::kDBHeaderSize, &got) ||
      got < static_cast<uint32_t>(KdbFormat::kDBHeaderSize)) {
    setError(kErrRead);
    return kErrRead;
  }
  buffer[KdbFormat::kDBHeaderSize] = '\0';
  int version = -1;
  int id = -1;
  std::string stats;
  const int items =
      sscanf(std::string_view(buffer, std::strlen(buffer)), "[%d:%d:%s]", {&version, &id, &stats});
  int error = 0;
  if (items >= 2) db_id_ = id;
  if (version != KdbFormat::kVersion) error = kErrVersion;
  if (buffer[0] == '[' && items != 3) error = kErrCorrupted;
  if (items == 3) {
    // The statistics restore only their first block: the split of a block
    // at ";" goes on with the walk that split the blocks at ":", and so ends
    // it. The totals of the other relations start again from nothing.
    NarrowTokenState state;
    std::string block;
    if (strtok(&block, &stats, ":", state) && !block.empty() && block != "]") {
      std::string token;
      std::vector<int> numbers;
      if (strtok(&token, &block, ";", state)) {
        do {
          numbers.push_back(_atoi(token));
        } while (strtok(&token, nullptr, ";", state));
      }
      if (numbers.size() >= 2) {
        const int relation = numbers[0];
        const int count = numbers[1] == 0 ? 1 : numbers[1];
        record_counts_[relation] = count;
        std::vector<int64_t>& totals = length_totals_[relation];
        for (size_t i = 2; i < numbers.size(); ++i) {
          totals.push_back(static_cast<int64_t>(numbers[i]) * count);
        }
      }
    }
  }
  setError(error);
  return error;
}

int AZeusDB::writeDBHeader() {
  CSingleLock hl(header_lock_);
  std::vector<std::string> blocks;
  for (auto& [relation, totals] : length_totals_) {
    int count = 0;
    auto it = record_counts_.find(relation);
    if (it != record_counts_.end()) count = it->second;
    const int64_t divisor = count == 0 ? 1 : count;
    std::string block = std::to_string(relation) + ";" + std::to_string(count);
    for (int64_t& total : totals) {
      int64_t average = total / divisor;
      if (average > KdbFormat::kMaxFieldLength) {
        average = KdbFormat::kMaxFieldLength;
        total = KdbFormat::kMaxFieldLength;
      }
      if (average < 0) continue;  // left out, shifting the later fields
      block.append(1, ';').append(std::to_string(average));
    }
    blocks.push_back(std::move(block));
  }
  std::string head(1, '[');
  head.append(std::to_string(KdbFormat::kVersion)).append(1, ':');
  head.append(std::to_string(db_id_)).append(1, ':');
  // Blocks that do not fit are left out from the end, so that the version
  // and the database id are always stored.
  std::string text;
  size_t used = blocks.size();
  for (;;) {
    text = head;
    for (size_t i = 0; i < used; ++i) {
      if (i > 0) text += ":";
      text += blocks[i];
    }
    text += "]";
    if (text.size() < static_cast<size_t>(KdbFormat::kDBHeaderSize) || used == 0) break;
    --used;
  }
  if (text.size() >= static_cast<size_t>(KdbFormat::kDBHeaderSize)) {
    setError(kErrTooLong);
    return kErrTooLong;
  }
  std::string record(KdbFormat::kDBHeaderSize, '\0');
  std::memcpy(record.data(), text.data(), text.size());
  record[KdbFormat::kDBHeaderSize - 1] = '\n';
  if (!file_->WriteAt(0, record.data(), static_cast<uint32_t>(record.size()))) {
    setError(kErrWrite);
    return kErrWrite;
  }
  header_dirty_ = 0;
  return 0;
}

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
  if (id < 0 || id > KdbFormat::kMaxSubTableID || sub_tables_.count(id) != 0) {
    return kErrCorrupted;
  }
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

int AZeusDB::mapDB() {
  CSingleLock sl(slot_lock_);
  if (mapped_) {
    setError(kErrNone);
    return 0;
  }
  uint64_t position = KdbFormat::kDBHeaderSize;
  int fields_hint = 1;
  int highest_id = -1;
  for (;;) {
    auto info = std::make_unique<_struct_SubTableInfo>();
    const int r = readSubTable(position, info.get(), fields_hint);
    if (r != 0) {
      // Bytes behind the last sub-table that reads are a damaged sub-table:
      // a new one written there would go over them, so the file is not
      // written to.
      const int64_t size = file_->Size();
      if (size > static_cast<int64_t>(position)) damaged_ = r;
      break;
    }
    position = info->firstSlotPosition +
               static_cast<uint64_t>(info->slotCount) * static_cast<uint64_t>(info->GetSlotSize());
    fields_hint = info->fieldCount;
    highest_id = std::max(highest_id, info->id);
    registerNewSubTableInfo(std::move(info));
  }
  last_lengths_text_.clear();
  {
    CSingleLock ol(open_lock_);
    next_sub_table_id_ = std::max(next_sub_table_id_, highest_id + 1);
  }
  end_of_file_ = position;
  mapped_ = 1;
  setError(kErrNone);
  return 0;
}

void AZeusDB::registerNewSubTableInfo(std::unique_ptr<_struct_SubTableInfo> info) {
  std::vector<_struct_SubTableInfo*>& list = sub_tables_by_relation_[info->relation];
  info->listIndex = static_cast<int>(list.size());
  list.push_back(info.get());
  _struct_SubTableInfo* raw = info.get();
  sub_tables_[raw->id] = std::move(info);
  refreshAvailability(raw);
}

void AZeusDB::refreshAvailability(_struct_SubTableInfo* info) {
  std::set<int>& available = available_by_relation_[info->relation];
  if (!info->full && info->freePlaces > 0) {
    available.insert(info->listIndex);
  } else {
    available.erase(info->listIndex);
  }
}

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
  std::string slot(slot_size, '\0');
  std::memcpy(slot.data(), "[-1:-1:-1:-1]", 13);
  slot[slot_size - 1] = '\n';
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
  sub_tables_by_relation_.clear();
  available_by_relation_.clear();
  sub_tables_.clear();
}

_struct_SubTableInfo* AZeusDB::getSubTable(int slot) {
  if (slot < 0) return nullptr;
  auto it = sub_tables_.find(slot / kSlotsPer);
  return it == sub_tables_.end() ? nullptr : it->second.get();
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
  const int relation = tmpl->GetRelationID();
  auto list_it = sub_tables_by_relation_.find(relation);
  if (list_it != sub_tables_by_relation_.end()) {
    const std::vector<_struct_SubTableInfo*>& list = list_it->second;
    // Only sub-tables that are not full and have a free place can give one;
    // they are visited in list order, as a walk of the whole list would.
    const std::set<int> candidates = available_by_relation_[relation];
    for (int index : candidates) {
      _struct_SubTableInfo* candidate = list[index];
      if (candidate == nullptr || candidate->full) continue;
      // A sub-table laid out for another field count cannot take the record.
      if (candidate->fieldCount != tmpl->GetFieldCount()) continue;
      if (!Suits(*candidate, plans)) continue;
      for (int p = 0; p < candidate->slotCount; ++p) {
        if (!candidate->headFlags[p] && !candidate->continuationFlags[p]) {
          *info = candidate;
          *place = p;
          return kSlotsPer * candidate->id + p;
        }
      }
    }
  }
  const int id = expandTable(tmpl);
  if (id < 0) return -1;
  _struct_SubTableInfo* fresh = sub_tables_[id].get();
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
  for (;; ++id, start = 0) {
    auto it = sub_tables_.find(id);
    if (it == sub_tables_.end()) {
      *info = nullptr;
      *place = -1;
      return -1;
    }
    _struct_SubTableInfo* candidate = it->second.get();
    for (int p = start; p < candidate->slotCount; ++p) {
      if (candidate->headFlags[p]) {
        *info = candidate;
        *place = p;
        return kSlotsPer * id + p;
      }
    }
  }
}

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
  const bool was_free = !head && !cont;
  info->headFlags[place] = state == 1;
  info->continuationFlags[place] = state == 2;
  if (state == 0) info->full = 0;
  const bool is_free = state == 0;
  if (was_free != is_free) info->freePlaces += is_free ? 1 : -1;
  refreshAvailability(info);
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
  const int size = info->GetSlotSize();
  if (static_cast<int>(byte_buffer_.size()) < size) byte_buffer_.resize(size);
  std::memset(byte_buffer_.data(), 0, size);
  std::memcpy(byte_buffer_.data(), "[-1:-1:-1:-1]", 13);
  byte_buffer_[size - 1] = '\n';
  if (!file_->WriteAt(getSlotBytePosition(info, place, 0, 0), byte_buffer_.data(), size)) {
    setError(kErrWrite);
    return kErrWrite;
  }
  return 0;
}

int AZeusDB::deleteEntry(int slot, int wholeChain) {
  int steps = 0;
  int expected_sequence = -1;
  int previous = -1;
  while (slot != -1) {
    _struct_SLOTHEADER header;
    if (readSlotHeader(slot, &header) != 0) return last_error_;
    // A chain that does not link back, or runs longer than the file has
    // slots, is damaged: the walk stops there.
    if (expected_sequence != -1 &&
        (header.sequence != expected_sequence || header.previous != previous)) {
      setError(kErrRead);
      return kErrRead;
    }
    if (++steps > totalSlots()) {
      setError(kErrRead);
      return kErrRead;
    }
    const int next = header.next;
    const int r = writeEmptySlot(slot, 1);
    if (r != 0) return r;
    if (!wholeChain) break;
    expected_sequence = header.sequence + 1;
    previous = slot;
    slot = next;
  }
  return 0;
}

// ---------------------------------------------------------------------------
// Items

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
  const int f = tmpl->GetFieldCount();
  record->PreSaving();

  std::vector<FieldPlan> plans(f);
  std::vector<int> written;
  for (int i = 0; i < f; ++i) {
    int id;
    if (!Covered(record, tmpl, task, i, &id)) continue;
    plans[i].mode = tmpl->GetFieldType(id) == 4 ? 1 : 0;
    plans[i].text = record->GetFieldString(id, 1);
    written.push_back(id);
  }

  int slot = record->GetDBSlotIndex();
  _struct_SubTableInfo* info = nullptr;
  int place = -1;
  if (slot >= 0) {
    info = getSubTable(slot);
    if (info == nullptr) {
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
        info = getSubTable(slot);
      }
      if (info == nullptr) {
        setError(kErrNoEntry);
        return 0;
      }
    }
    place = slot % kSlotsPer;
    if (info->continuationFlags[place]) {
      setError(kErrWrite);
      return 0;
    }
    if (info->fieldCount != f) {
      setError(kErrCorrupted);
      return 0;
    }
  } else {
    slot = findEmptySlot(tmpl, &info, &plans, &place);
    if (slot < 0) {
      setError(kErrWrite);
      return 0;
    }
    if (info->fieldCount != f) {
      setError(kErrCorrupted);
      return 0;
    }
    record->SetDBSlotIndex(slot);
  }
  if (written.empty()) return 1;
  if (task != nullptr) task->slotPosition = slot;

  const int relation = tmpl->GetRelationID();
  int sequence = 0;
  int previous = -1;
  int next = -1;
  int more = 0;
  int status_changed = 0;
  int last_relation = -1;
  int steps = 0;
  std::vector<int> status;
  std::vector<int> before;
  do {
    uint64_t skip = 0;
    if (more) {
      ++sequence;
      more = 0;
      previous = slot;
      slot = next;
      next = -1;
      info = getSubTable(slot);
      if (info == nullptr) {
        setError(kErrNoEntry);
        return 0;
      }
      place = slot % kSlotsPer;
      if (info->headFlags[place]) {
        setError(kErrWrite);
        return 0;
      }
      if (info->fieldCount != f) {
        setError(kErrCorrupted);
        return 0;
      }
    }
    if (++steps > totalSlots()) {
      setError(kErrRead);
      return 0;
    }
    int occupied = (info->headFlags[place] || info->continuationFlags[place]) ? 1 : 0;
    _struct_SLOTHEADER header;
    // The header of a free slot is not looked at: its links are not ours.
    if (occupied) {
      if (readSlotHeader(slot, &header) != 0) {
        setError(kErrRead);
        return 0;
      }
      if (header.relation != record->GetFocusableRelation() ||
          (last_relation != -1 && header.relation != last_relation)) {
        setError(kErrRelation);
        return 0;
      }
      // A later slot of the chain must say where it stands and link back.
      if (sequence > 0 && (header.sequence != sequence || header.previous != previous)) {
        setError(kErrRead);
        return 0;
      }
    }
    last_relation = header.relation;
    // A free slot may still hold what an interrupted save of this chain
    // wrote there: the chain is then taken up where that save left it.
    const int leftover = occupied ? -1 : leftoverNext(slot, relation, sequence, previous, &plans);

    before = std::move(status);
    status.assign(f, 0);
    if (occupied) readItemsStatus(info, place, &status);
    uint64_t p = getSlotBytePosition(info, place, 1, 1);
    position_ = p;
    bool left_out_continues = false;
    for (int i = 0; i < f; ++i) {
      const int length = info->lengths[i];
      FieldPlan& plan = plans[i];
      if (plan.mode == 2 || length == 0) {
        skip += length;
        if (!before.empty() && before[i] == 1 && status[i] != 0) {
          // The field ended in the slot before and this slot still holds old
          // text. The skip already holds this field's length here, so the
          // blanking lands in the area behind it and what follows in this
          // slot moves on by the same length: the engine has always done so.
          status[i] = 0;
          status_changed = 1;
          if (length != 0) {
            position_ = p + skip;
            p += skip;
            skip = 0;
            CString empty;
            int ignored_more = 0;
            int ignored_changed = 0;
            const int r = writeItem(&empty, length, &status[i], &ignored_more, &ignored_changed);
            if (r != 0) return r;
          }
        }
        if (status[i] == 2) left_out_continues = true;
        continue;
      }
      if (skip != 0) {
        position_ = p + skip;
        p += skip;
        skip = 0;
      }
      const int r = plan.mode == 0
                        ? writeItem(&plan.text, length, &status[i], &more, &status_changed)
                        : writeItem_wstring(plan.text, &plan.position, length, &status[i], &more,
                                            &status_changed);
      if (r != 0) return r;
      p += length;
    }
    if (status_changed && writeItemsStatus(info, place, status) != 0) return 0;

    if (occupied && !more && header.next != -1 && !left_out_continues) {
      // The record became shorter: the rest of the old chain is freed. A
      // damaged tail is left as it is; a write that fails fails the save.
      if (deleteEntry(header.next, 1) == kErrWrite) return kErrWrite;
      header.next = -1;
      occupied = 0;
    } else if (!occupied && !more && leftover != -1) {
      // The text ends here, before the slots that the interrupted save had
      // linked on: they are freed.
      if (deleteEntry(leftover, 1) == kErrWrite) return kErrWrite;
    }
    if (!occupied || more) {
      if (updateSubTableSlotStatus(info, place, sequence == 0 ? 1 : 2) != 0) return 0;
      int new_next = -1;
      if (more && header.next == -1 && leftover != -1) {
        new_next = leftover;
      } else if (more && header.next == -1) {
        _struct_SubTableInfo* next_info = nullptr;
        int next_place = -1;
        new_next = findEmptySlot(tmpl, &next_info, &plans, &next_place);
        if (new_next == -1) {
          setError(kErrWrite);
          return 0;
        }
      } else if (more) {
        new_next = header.next;
      }
      int new_previous;
      if (more && sequence == 0) {
        new_previous = -1;
      } else {
        new_previous = header.previous != -1 ? header.previous : previous;
      }
      if (!(occupied && header.sequence == sequence && header.next == new_next &&
            header.previous == new_previous && header.relation == relation)) {
        header.sequence = sequence;
        header.next = new_next;
        header.previous = new_previous;
        header.relation = relation;
        if (writeSlotHeader(slot, header) != 0) return 0;
      }
      next = new_next;
    }
  } while (more);

  // Every byte of the save is handed to the system before the record is told
  // that it is saved; a failure here keeps its changed flags for the next try.
  // Within a batch the record is told after the batch's bytes went out.
  if (batch_) {
    batch_saved_.push_back({record, std::move(written)});
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
  sub_tables_by_relation_.clear();
  available_by_relation_.clear();
  sub_tables_.clear();
  mapped_ = 0;
  end_of_file_ = KdbFormat::kDBHeaderSize;
  CSingleLock ol(open_lock_);
  next_sub_table_id_ = 0;
}

int AZeusDB::readSlot(Focusable* record, RGDBTemplate* tmpl, DBTaskItem* task) {
  if (deleted_) {
    setError(kErrDeleted);
    return 0;
  }
  int slot = record->GetDBSlotIndex();
  // A record read by its slot takes exactly the bytes it wants; a scan goes
  // forward through the file and reads it in larger pieces.
  const bool exact = slot >= 0;
  _struct_SubTableInfo* info = nullptr;
  int place = -1;
  if (slot >= 0) {
    info = getSubTable(slot);
    if (info == nullptr) {
      setError(kErrNoEntry);
      return 0;
    }
    place = slot % kSlotsPer;
    if (!info->headFlags[place]) {
      setError(kErrEmptyRead);
      return 0;
    }
  } else if (slot == -2) {
    setError(kErrNoEntry);
    return 0;
  } else {
    slot = findNextActiveSlot(&info, &place, task);
    record->SetDBSlotIndex(slot);
    if (slot == -1) {
      setError(kErrNoEntry);
      return 0;
    }
  }
  if (task != nullptr) task->slotPosition = slot;
  int f = tmpl != nullptr ? tmpl->GetFieldCount() : 0;

  int sequence = 0;
  int more = 0;
  int last_relation = -1;
  int previous = -1;
  int steps = 0;
  std::vector<int> status;
  do {
    if (more) {
      ++sequence;
      more = 0;
    }
    if (++steps > totalSlots()) {
      setError(kErrRead);
      return 0;
    }
    // The slot's header, its items status and the areas of the wanted
    // fields come in one read.
    const int front = kSlotHeader + info->fieldCount + 2;
    const uint64_t slot_start = getSlotBytePosition(info, place, 0, 0);
    // Without a template the slot's own relation gives it, and the record's
    // fields come in the same read when the sub-table's relation is the
    // slot's (as it is unless the file is damaged).
    RGDBTemplate* layout = tmpl != nullptr ? tmpl : CatalogueTemplate(info->relation);
    uint64_t span = 0;
    if (layout != nullptr && info->fieldCount == layout->GetFieldCount()) {
      span = wantedSpan(info, layout, task);
    }
    if (!readSlotFront(slot_start, front + span, exact)) return 0;
    const unsigned char* bytes = slot_buffer_.data();
    _struct_SLOTHEADER header;
    if (parseSlotHeader(bytes, &header) != 0) {
      setError(kErrRead);
      return 0;
    }
    if (header.sequence == -1) {
      // The slot is really free, whatever the sub-table says: the flags in
      // memory are put right.
      const bool was_taken = info->headFlags[place] || info->continuationFlags[place];
      info->headFlags[place] = 0;
      info->continuationFlags[place] = 0;
      if (was_taken) {
        ++info->freePlaces;
        refreshAvailability(info);
      }
      setError(sequence == 0 ? kErrNoEntry : kErrRead);
      return 0;
    }
    if (header.sequence != sequence || (sequence > 0 && header.previous != previous)) {
      setError(kErrRead);
      return 0;
    }
    if (tmpl == nullptr) {
      tmpl = CatalogueTemplate(header.relation);
      if (tmpl == nullptr) {
        setError(kErrNoTemplate);
        return 0;
      }
      f = tmpl->GetFieldCount();
      if (info->fieldCount == f && tmpl != layout) {
        span = wantedSpan(info, tmpl, task);
        if (!readSlotFront(slot_start, front + span, exact)) return 0;
        bytes = slot_buffer_.data();
      }
    }
    if (record->GetFocusableRelation() == -1) record->SetFocusableRelation(header.relation);
    if (last_relation != -1 && header.relation != last_relation) {
      setError(kErrRelation);
      return 0;
    }
    last_relation = header.relation;
    if (!info->headFlags[place] && !info->continuationFlags[place]) {
      setError(kErrNoEntry);
      return 0;
    }
    if (info->fieldCount != f) {
      setError(kErrRelation);
      return 0;
    }
    status.assign(f, 0);
    if (slot_got_ >= static_cast<uint64_t>(front))
      parseItemsStatus(bytes + kSlotHeader, f, &status);

    uint64_t offset = front;  // of the current field area in slot_buffer_
    uint64_t skip = 0;
    for (int i = 0; i < f; ++i) {
      FieldInfo* field = tmpl->GetField(i);
      if (field == nullptr) continue;
      const int length = info->lengths[i];
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
      const int r = readItem(record, field, length, &status[i], sequence, area, &more);
      if (r != 0 && r != kErrNoData) return 0;
      offset += length;
    }
    if (more) {
      previous = slot;
      slot = header.next;
      if (slot < 0) {
        setError(kErrRead);
        return 0;
      }
      info = getSubTable(slot);
      if (info == nullptr) {
        setError(kErrNoEntry);
        return 0;
      }
      place = slot % kSlotsPer;
      if (!info->headFlags[place] && !info->continuationFlags[place]) {
        setError(kErrRead);
        return 0;
      }
    }
  } while (more);
  setError(kErrNone);
  if (task == nullptr || task->allFields) record->SetFullyLoaded(1);
  return 1;
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
    if (!mapped_) mapDB();
  }
  if (refusedWrite()) {
    closeDB();
    return 0;
  }
  if (record->GetDBSlotIndex() == -1) countStatistics(record, tmpl, task);
  int result;
  {
    CSingleLock sl(slot_lock_);
    defer_states_ = 1;
    const bool was_new = record->GetDBSlotIndex() == -1;
    result = writeSlot(record, tmpl, task);
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
    if (!mapped_) mapDB();
    empty_file = sub_tables_.empty();
  }
  if (refusedWrite()) {
    closeDB();
    return 0;
  }
  for (Focusable* record : *records) {
    if (record == nullptr) continue;
    if (empty_file || record->GetDBSlotIndex() == -1) countStatistics(record, nullptr, task);
  }
  int result = 1;
  {
    CSingleLock sl(slot_lock_);
    // The records' writes are coalesced and handed to the system together
    // before this call returns; each record is told that it is saved only
    // after that.
    batch_ = 1;
    defer_states_ = 1;
    batch_saved_.clear();
    RGDBTemplate* current = nullptr;
    bool have_relation = false;
    int relation = 0;
    // The marks of the records saved so far; each record's own go in only
    // when its save went through.
    std::map<uint64_t, char> states;
    std::map<uint64_t, char> heads;
    bool withheld = false;
    for (Focusable* record : *records) {
      if (record == nullptr) {
        result = 0;
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
      if (r == 1) {
        // The last state decided for a place is the one that goes out.
        for (const auto& [position, c] : pending_states_) {
          heads.erase(position);
          states[position] = c;
        }
        for (const auto& [position, c] : pending_heads_) {
          states.erase(position);
          heads[position] = c;
        }
      } else if (!pending_states_.empty() || !pending_heads_.empty()) {
        withheld = true;
      }
    }
    pending_states_.swap(states);
    pending_heads_.swap(heads);
    batch_ = 0;
    defer_states_ = 0;
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
      // flags, and the mapping is read again from the file.
      forgetMapping();
      setError(kErrWrite);
      result = 0;
    }
    batch_saved_.clear();
  }
  closeDB();
  return result;
}

int AZeusDB::readFocusableSlot(Focusable* record, RGDBTemplate* tmpl, DBTaskItem* task) {
  if (!RegistryEntryPoints::Get()->IsGlobalResourceValid()) return 0;
  if (record == nullptr) return 0;
  openDB(0);
  int result;
  {
    CSingleLock sl(slot_lock_);
    if (!mapped_) mapDB();
    result = readSlot(record, tmpl, task);
  }
  closeDB();
  if (result != 0) record->SetDB(this);
  return result;
}

int AZeusDB::deleteFocusableSlot(Focusable* record, RGDBTemplate* tmpl, DBTaskItem* task) {
  if (record == nullptr) return 0;
  openDB(0);
  int result = 0;
  {
    CSingleLock sl(slot_lock_);
    if (!mapped_) mapDB();
    if (!refusedWrite()) result = deleteSlot(record, tmpl, task);
  }
  closeDB();
  return result;
}

}  // namespace kordll
