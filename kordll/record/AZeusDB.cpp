#include "kordll/record/AZeusDB.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "kordll/platform/CRuntime.h"
#include "kordll/platform/CodePage.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/platform/WinError.h"
#include "kordll/record/AZeusDBInternal.h"
#include "kordll/record/SlotFile.h"
#include "kordll/record/SubTableMap.h"

namespace kordll {

using namespace azeus;

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
  tables_ = std::make_unique<SubTableMap>();
  tables_->SetLoader([this](const SubTableIndex::Entry& shape, _struct_SubTableInfo* info) {
    return loadSubTable(shape, info);
  });
}

AZeusDB::~AZeusDB() {
  if (deleted_) {
    resetTable();
    file_->Close();
    if (!bad_name_) {
      FileSystem::DeleteFile(path_);
      SubTableIndex::Discard(path_);
    }
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
  // A map left beside an earlier file of this name describes nothing here.
  SubTableIndex::Discard(path_);
  index_count_ = kIndexNone;
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
  SubTableIndex::Discard(path_);
  index_count_ = kIndexNone;
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
  if (open_count_ == 0 && !bad_name_) {
    FileSystem::DeleteFile(path_);
    SubTableIndex::Discard(path_);
  }
  deleted_ = 1;
}

void AZeusDB::renameDB(CString name, CString directory) {
  // No save or header write is under way while the file moves.
  CSingleLock sl(slot_lock_);
  CSingleLock ol(open_lock_);
  CSingleLock hl(header_lock_);
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
  // What a change cut off earlier left beside the file is undone first (or
  // goes along with it), so that it never applies to another file.
  if (!bad_name_) {
    if (file_->MoveTo(path_, target)) {
      SubTableIndex::Move(path_, target);
    } else {
      SubTableIndex::Discard(target);
    }
  }
  path_ = target;
  bad_name_ = false;
}

CString AZeusDB::GetDBFile() { return name_; }

void AZeusDB::SetFlushToDisk(int flushToDisk) { file_->SetFlushToDisk(flushToDisk != 0); }

void AZeusDB::SetJournal(int on) { file_->SetJournal(on != 0); }

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
  // Sub-tables known from the map file are read now, with the file open.
  const bool open = IsMapped() && !deleted_ && !bad_name_;
  if (open) openDB(1);
  std::vector<_struct_SubTableInfo> infos;
  {
    CSingleLock sl(slot_lock_);
    infos = tables_->Copies();
  }
  if (open) closeDB();
  return infos;
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
  // The save is made when its journal goes: only then is the record told.
  // The writes that follow (none, unless a batch goes on) form a change of
  // their own, which the caller's Commit ends.
  if (!file_->Commit()) ok = false;
  file_->Begin();
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

}  // namespace kordll
