#include "kordll/record/StringDB.h"

#include <algorithm>
#include <cstring>

#include "kordll/platform/FileSystem.h"
#include "kordll/platform/WinError.h"
#include "kordll/record/ChainCursor.h"
#include "kordll/record/KdbFormat.h"
#include "kordll/record/MarkedText.h"
#include "kordll/record/SlotFile.h"

namespace kordll {

namespace {

constexpr int kHeader = KdbFormat::kStringHeaderSize;
constexpr int kSlotHeader = KdbFormat::kStringSlotHeaderSize;
// One growth never adds more slots than this, whatever index a caller asks
// for, so that an absurd index cannot fill the disk.
constexpr int kMaxGrowth = 1000000;

enum {
  kErrCorrupted = 2,
  kErrRead = 3,
  kErrTooLong = 5,
  kErrWrite = 8,
  kErrNoEntry = 10,
  kErrVersion = 13,
  kErrDeleted = 14,
};

}  // namespace

StringDB::StringDB(CString directory, CString name, int slotSize, int growCount)
    : directory_(directory),
      grow_count_(std::max(1, growCount)),
      bad_name_(!KdbFormat::IsSafeName(name.view())) {
  path_ = directory;
  if (!directory.IsEmpty() && directory[directory.GetLength() - 1] != u'/') path_ += u'/';
  path_ += name;
  path_ += ".sdb";
  const long long d = static_cast<long long>(slotSize) + 1;
  data_size_ = static_cast<int>(
      std::clamp<long long>(d, KdbFormat::kStringMinDataSize, KdbFormat::kStringMaxDataSize));
  byte_buffer_.resize(1024);
  wide_buffer_.reserve(1024);
  file_ = std::make_unique<SlotFile>();
}

StringDB::~StringDB() {
  file_->Close();
  if (deleted_ && !file_removed_ && !bad_name_) FileSystem::DeleteFile(path_);
}

int StringDB::openDB(int readOnly) {
  CSingleLock lock(lock_);
  // A refused name is not counted as open: the close that follows is one
  // too many and is ignored.
  if (refusedName()) return 3;
  ++open_count_;
  if (open_count_ != 1) return 0;
  int err = ERROR_SUCCESS;
  if (!file_->Open(path_, readOnly ? SlotFile::kOpenRead : SlotFile::kOpenReadWrite, &err)) {
    // Only a missing file is made anew; one that exists but does not open
    // is left alone.
    if (err != ERROR_FILE_NOT_FOUND) {
      setError(kErrRead);
      return kErrRead;
    }
    return createDB();
  }
  if (!header_read_) {
    header_read_ = 1;
    return readDBHeader();
  }
  return 0;
}

void StringDB::closeDB() {
  CSingleLock lock(lock_);
  if (open_count_ <= 0) return;
  if (--open_count_ == 0) file_->Close();
}

int StringDB::createDB() {
  CSingleLock lock(lock_);
  if (refusedName()) return 3;
  deleted_ = 0;
  file_removed_ = 0;
  bad_geometry_ = 0;
  path_.Remove(u'\r');
  path_.Remove(u'\n');
  if (!file_->Open(path_, SlotFile::kCreate, nullptr)) {
    setError(kErrWrite);
    return kErrWrite;
  }
  header_read_ = 1;
  // A header that does not reach the file is a failed creation.
  int result = writeDBHeader();
  if (result == 0 && !file_->Flush()) {
    setError(kErrWrite);
    result = kErrWrite;
  }
  if (result != 0) {
    // A file without its header would be refused by every later opening
    // and never made again: it goes, so that the next opening makes it.
    file_->Close();
    FileSystem::DeleteFile(path_);
    header_read_ = 0;
    return result;
  }
  if (open_count_ == 0) file_->Close();
  return result;
}

void StringDB::clearDB() {
  CSingleLock lock(lock_);
  if (refusedName()) return;
  ++open_count_;
  if (file_->Open(path_, SlotFile::kCreate, nullptr)) {
    header_read_ = 1;
    bad_geometry_ = 0;
    if (writeDBHeader() == 0 && !file_->Flush()) setError(kErrWrite);
  } else {
    setError(kErrWrite);
  }
  closeDB();
}

void StringDB::deleteDB() {
  CSingleLock lock(lock_);
  if (open_count_ == 0) {
    file_removed_ = 1;
    free_list_.clear();
    free_index_.clear();
    status_.clear();
    slot_count_ = 0;
    mapped_ = 0;
    header_read_ = 0;
    if (!bad_name_) FileSystem::DeleteFile(path_);
  }
  deleted_ = 1;
}

int StringDB::IsDBExist() {
  CSingleLock lock(lock_);
  if (open_count_ > 0) return 1;
  if (bad_name_) return 0;
  SlotFile probe;
  if (!probe.Open(path_, SlotFile::kOpenRead, nullptr)) return 0;
  probe.Close();
  return 1;
}

void StringDB::SetFlushToDisk(int flushToDisk) {
  CSingleLock lock(lock_);
  file_->SetFlushToDisk(flushToDisk != 0);
}

void StringDB::SetJournal(int on) {
  CSingleLock lock(lock_);
  file_->SetJournal(on != 0);
}

int StringDB::GetTotalSlotCount() {
  CSingleLock lock(lock_);
  return slot_count_;
}

int StringDB::GetLastDBErrorMsgCode() {
  CSingleLock lock(lock_);
  return last_error_;
}

int StringDB::GetSlotDataSize() {
  CSingleLock lock(lock_);
  return data_size_;
}

CString StringDB::GetDBPath() {
  CSingleLock lock(lock_);
  return path_;
}

int StringDB::GetSlotState(int slot) {
  CSingleLock lock(lock_);
  auto it = status_.find(slot);
  return it == status_.end() ? -1 : it->second;
}

void StringDB::ConvertCharToWString(char const* text, std::u16string& out) {
  out.clear();
  if (text == nullptr) return;
  out = CString::FromUtf8(text).str();
}

// ---------------------------------------------------------------------------
// Header and slots

int StringDB::readDBHeader() {
  char buffer[kHeader + 1];
  uint32_t got = 0;
  if (!file_->ReadAt(0, buffer, kHeader, &got) || got < static_cast<uint32_t>(kHeader)) {
    setError(kErrRead);
    return kErrRead;
  }
  buffer[kHeader] = '\0';
  int v[3] = {0, 0, 0};
  const int items = KdbFormat::ScanInts(buffer, kHeader, v, 3);
  int error = 0;
  if (items >= 1) version_ = v[0];
  if (items >= 2) db_id_ = v[1];
  if (items >= 3) {
    int d = v[2] < 0 ? 31 : v[2];
    if (d < KdbFormat::kStringMinDataSize || d > KdbFormat::kStringMaxDataSize) {
      error = kErrCorrupted;  // the slot geometry cannot be trusted
      bad_geometry_ = 1;
    } else {
      data_size_ = d;
    }
  }
  if (version_ != KdbFormat::kVersion) error = kErrVersion;
  if (items < 3) error = kErrCorrupted;
  setError(error);
  return error;
}

int StringDB::writeDBHeader() {
  if (deleted_) {
    setError(kErrDeleted);
    return kErrDeleted;
  }
  const int v[3] = {version_, db_id_, data_size_};
  std::string text = KdbFormat::FormatInts(v, 3);
  if (text.size() > static_cast<size_t>(kHeader - 1)) {
    setError(kErrTooLong);
    return kErrTooLong;
  }
  text.resize(kHeader, '\0');
  text[kHeader - 1] = '\n';
  if (!file_->WriteAt(0, text.data(), kHeader)) {
    setError(kErrWrite);
    return kErrWrite;
  }
  return 0;
}

uint64_t StringDB::getSlotBytePosition(int index, int afterHeader) {
  uint64_t position =
      kHeader + static_cast<uint64_t>(data_size_ + kSlotHeader) * static_cast<uint64_t>(index);
  if (afterHeader) position += kSlotHeader;
  return position;
}

int StringDB::readSlotHeader(int index, _struct_STRINGSLOTHEADER* header) {
  if (index < 0) {
    setError(kErrRead);
    return kErrRead;
  }
  char buffer[kSlotHeader + 1];
  uint32_t got = 0;
  if (!file_->ReadAt(getSlotBytePosition(index, 0), buffer, kSlotHeader, &got) ||
      got < static_cast<uint32_t>(kSlotHeader)) {
    setError(kErrRead);
    return kErrRead;
  }
  buffer[kSlotHeader] = '\0';
  int v[3];
  if (KdbFormat::ScanInts(buffer, kSlotHeader, v, 3) != 3) {
    setError(kErrRead);
    return kErrRead;
  }
  header->status = v[0];
  header->next = v[1];
  header->previous = v[2];
  return 0;
}

int StringDB::writeSlotHeader(int index, const _struct_STRINGSLOTHEADER& header, int noSeek) {
  (void)noSeek;  // offsets are explicit
  const int v[3] = {header.status, header.next, header.previous};
  std::string text = KdbFormat::FormatInts(v, 3);
  if (text.size() > static_cast<size_t>(kSlotHeader)) {
    setError(kErrTooLong);
    return kErrTooLong;
  }
  text.resize(kSlotHeader, '\0');
  if (!file_->WriteAt(getSlotBytePosition(index, 0), text.data(), kSlotHeader)) {
    setError(kErrWrite);
    return kErrWrite;
  }
  return 0;
}

int StringDB::writeEmptySlot(int index, int noSeek) {
  (void)noSeek;
  std::string bytes(kSlotHeader + data_size_, '\0');
  std::memcpy(bytes.data(), "[0:-1:-1]", 9);
  bytes.back() = '\n';
  if (!file_->WriteAt(getSlotBytePosition(index, 0), bytes.data(),
                      static_cast<uint32_t>(bytes.size()))) {
    setError(kErrWrite);
    return kErrWrite;
  }
  return 0;
}

int StringDB::mapDB() {
  CSingleLock lock(lock_);
  if (mapped_) return 0;
  // The slot count comes from the size of the file: a slot begun at the end
  // counts, so new slots never go over bytes that hold a text. Only a file
  // that is open can tell it.
  const int64_t size = file_->Size();
  if (size < 0) {
    setError(kErrRead);
    return kErrRead;
  }
  const int64_t slot_bytes = static_cast<int64_t>(data_size_) + kSlotHeader;
  int64_t count = size > kHeader ? (size - kHeader) / slot_bytes : 0;
  const int64_t part = size > kHeader ? (size - kHeader) % slot_bytes : 0;
  if (part > 0 && !partlyWrittenEmptySlot(count, part)) ++count;
  count = std::min<int64_t>(count, INT32_MAX);
  for (int i = 0; i < count; ++i) {
    // A slot whose header does not read is neither free nor in use: it is
    // never handed out.
    _struct_STRINGSLOTHEADER header;
    if (readSlotHeader(i, &header) != 0) continue;
    if (header.status == 0) freeListAppend(i);
    status_[i] = header.status;
  }
  slot_count_ = static_cast<int>(count);
  mapped_ = 1;
  setError(0);
  return 0;
}

bool StringDB::partlyWrittenEmptySlot(int64_t index, int64_t part) {
  // A growth that stopped half way leaves the front of a free slot at the
  // end of the file. Such a slot holds nothing and is not counted: the next
  // growth writes it whole. Any other piece of a slot is counted and never
  // handed out.
  std::string empty(static_cast<size_t>(part), '\0');
  std::memcpy(empty.data(), "[0:-1:-1]", std::min<size_t>(9, empty.size()));
  std::string bytes(empty.size(), '\0');
  uint32_t got = 0;
  if (!file_->ReadAt(getSlotBytePosition(static_cast<int>(index), 0), bytes.data(),
                     static_cast<uint32_t>(bytes.size()), &got) ||
      got != bytes.size()) {
    return false;
  }
  return bytes == empty;
}

void StringDB::forgetMapping() {
  status_.clear();
  free_list_.clear();
  free_index_.clear();
  mapped_ = 0;
}

void StringDB::freeListAppend(int index) {
  if (free_index_.count(index) != 0) return;
  free_list_.push_back(index);
  free_index_[index] = std::prev(free_list_.end());
}

void StringDB::freeListRemove(int index) {
  auto it = free_index_.find(index);
  if (it == free_index_.end()) return;
  free_list_.erase(it->second);
  free_index_.erase(it);
}

int StringDB::appendEmptyTable(int target) {
  openDB(0);
  int count = grow_count_;
  if (target != -1 &&
      static_cast<long long>(target) > static_cast<long long>(slot_count_) + grow_count_) {
    count = std::min(target - slot_count_, kMaxGrowth);
  }
  for (int i = 0; i < count; ++i) {
    // New slots go where the slot count says, so that the file and the
    // slot arithmetic agree also after a damaged tail.
    const int r = writeEmptySlot(slot_count_, 1);
    if (r != 0) {
      forgetMapping();
      closeDB();
      return r;
    }
    status_[slot_count_] = 0;
    freeListAppend(slot_count_);
    ++slot_count_;
  }
  if (!file_->Flush()) {
    // The slots of this growth, and what was written before it, may be
    // missing from the file.
    forgetMapping();
    closeDB();
    setError(kErrWrite);
    return kErrWrite;
  }
  closeDB();
  setError(0);
  return 0;
}

int StringDB::GetNextAvailableSlotIndex() {
  CSingleLock lock(lock_);
  if (refusedName() || bad_geometry_) return -1;
  // The file is open while the slots are counted, so that a first call on a
  // file that holds texts sees them.
  openDB(0);
  const int result = takeFreeSlot();
  closeDB();
  return result;
}

int StringDB::takeFreeSlot() {
  if (bad_geometry_ || (!mapped_ && mapDB() != 0)) return -1;
  for (;;) {
    if (free_list_.empty()) {
      if (appendEmptyTable(-1) != 0) return -1;
      if (free_list_.empty()) return -1;
    }
    const int index = free_list_.front();
    auto it = status_.find(index);
    freeListRemove(index);
    if (it != status_.end() && it->second == 0) {
      it->second = 3;
      return index;
    }
    // A stale entry: the slot was taken meanwhile.
  }
}

int StringDB::writeSlot(const CString& text, int* position, int index) {
  const int d = data_size_;
  if (static_cast<int>(byte_buffer_.size()) < d + 1) byte_buffer_.resize(d + 1);
  unsigned char* buffer = byte_buffer_.data();
  std::memset(buffer, 0, d + 1);
  MarkedText::Encode(text.view(), position, buffer, d, MarkedText::kStringSlot);
  buffer[d - 1] = '\n';
  if (!file_->WriteAt(getSlotBytePosition(index, 1), buffer, static_cast<uint32_t>(d))) {
    setError(kErrWrite);
    return kErrWrite;
  }
  return 0;
}

int StringDB::readSlot(CString* text, int index) {
  const int n = data_size_ - 1;
  if (static_cast<int>(byte_buffer_.size()) < n + 1) byte_buffer_.resize(n + 1);
  unsigned char* buffer = byte_buffer_.data();
  uint32_t got = 0;
  if (!file_->ReadAt(getSlotBytePosition(index, 1), buffer, static_cast<uint32_t>(n), &got) ||
      got < static_cast<uint32_t>(n)) {
    setError(kErrRead);
    return kErrRead;
  }
  buffer[n] = 0;
  wide_buffer_.clear();
  MarkedText::AppendPiece(buffer, n, &wide_buffer_);
  text->str() += wide_buffer_;
  return 0;
}

// ---------------------------------------------------------------------------
// Texts

int StringDB::WriteStringSlot(int* slot, CString text) {
  CSingleLock lock(lock_);
  if (refusedName()) return 0;
  if (slot == nullptr) return 0;
  if (openDB(0) == kErrWrite) {
    // The file could not be made: nothing is written behind a missing header.
    closeDB();
    setError(kErrWrite);
    return 0;
  }
  // The write is one change of the file: cut off at any point, it is
  // undone at the next opening.
  file_->Begin();
  int result = _WriteStringSlot(slot, text);
  // A text whose bytes did not all reach the file is not written (what did
  // was undone); the states are then read again from the file.
  const bool flushed = file_->Commit() != 0;
  if (!flushed || (result == 0 && last_error_ == kErrWrite)) {
    forgetMapping();
    setError(kErrWrite);
    result = 0;
  }
  closeDB();
  return result;
}

int StringDB::ReadStringSlot(int slot, CString& text) {
  CSingleLock lock(lock_);
  if (refusedName()) return 0;
  openDB(0);
  const int result = _ReadStringSlot(slot, &text);
  closeDB();
  return result;
}

int StringDB::DeleteStringSlot(int slot, int wholeChain) {
  CSingleLock lock(lock_);
  if (refusedName()) return 0;
  openDB(0);
  file_->Begin();
  const int result = _DeleteStringSlot(slot, wholeChain);
  // A delete that did not reach the file was undone: the states are read
  // again.
  if (!file_->Commit()) forgetMapping();
  closeDB();
  return result;
}

int StringDB::startWrite(int* slot) {
  if (bad_geometry_) {
    // A header whose slot size is impossible leaves no slot to trust.
    setError(kErrCorrupted);
    return 0;
  }
  if (!mapped_ && mapDB() != 0) return 0;
  if (*slot == -1) {
    setError(0);
    *slot = GetNextAvailableSlotIndex();
    // A table that could not grow is a failed write.
    if (*slot < 0 && last_error_ == kErrWrite) return 0;
  }
  if (*slot < 0) {
    setError(kErrNoEntry);
    return 0;
  }
  auto it = status_.find(*slot);
  if (it != status_.end() && it->second == 0) {
    it->second = 3;
    freeListRemove(*slot);
  }
  if (!reachSlot(*slot)) return 0;
  if (deleted_) {
    setError(kErrDeleted);
    return 0;
  }
  return 1;
}

bool StringDB::reachSlot(int index) {
  // A slot the growth did not reach is refused rather than written outside
  // the slot table; the table still grows.
  if (index >= slot_count_ && appendEmptyTable(index) != 0) return false;
  if (index >= slot_count_) {
    setError(kErrNoEntry);
    return false;
  }
  return true;
}

int StringDB::_WriteStringSlot(int* slot, const CString& text) {
  if (!startWrite(slot)) return 0;
  int cur = *slot;
  ChainCursor walk(cur, 0);
  int next = -1;
  int position = 0;
  int more = 0;
  int occupied = 0;
  do {
    if (more) {
      more = 0;
      walk.Advance(next);
      cur = next;
      next = -1;
      if (cur < 0) {
        setError(kErrRead);
        return 0;
      }
      if (!reachSlot(cur)) return 0;
    }
    // The table may grow under the walk: its bound is the count now.
    walk.SetBound(static_cast<int64_t>(slot_count_) + 1);
    if (!walk.Visit()) {
      setError(kErrRead);
      return 0;
    }
    const int sequence = walk.sequence();
    auto state = status_.find(cur);
    if (state != status_.end()) occupied = (state->second == 1 || state->second == 2) ? 1 : 0;
    _struct_STRINGSLOTHEADER header;
    readSlotHeader(cur, &header);
    if (occupied && !walk.Fits(ChainCursor::kNoSequence, header.previous)) {
      // The chain does not link back: it is damaged, and the walk stops.
      setError(kErrRead);
      return 0;
    }
    writeSlot(text, &position, cur);
    if (position < text.GetLength()) more = 1;
    if (occupied && !more && header.next != -1) {
      // The text became shorter: the rest of the old chain is freed.
      _DeleteStringSlot(header.next, 1);
      header.next = -1;
      occupied = 0;
    }
    if (occupied && !more) break;
    status_[cur] = more ? 2 : 1;
    int new_next = -1;
    if (more && header.next == -1) {
      new_next = GetNextAvailableSlotIndex();
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
      new_previous = header.previous != -1 ? header.previous : walk.previous();
    }
    if (!(occupied && header.next == new_next && header.previous == new_previous)) {
      header.status = more ? 2 : 1;
      header.next = new_next;
      header.previous = new_previous;
      if (writeSlotHeader(cur, header, 0) != 0) return 0;
    }
    next = new_next;
  } while (more);
  setError(0);
  return walk.sequence() + 1;
}

int StringDB::_ReadStringSlot(int slot, CString* text) {
  if (bad_geometry_) {
    // A header whose slot size is impossible leaves no slot to trust.
    setError(kErrCorrupted);
    return 0;
  }
  if (!mapped_ && mapDB() != 0) return 0;
  if (deleted_) {
    setError(kErrDeleted);
    return 0;
  }
  ChainCursor walk(slot, static_cast<int64_t>(slot_count_) + 1);
  for (;;) {
    if (!walk.Visit()) {
      setError(kErrRead);
      return 0;
    }
    const int sequence = walk.sequence();
    _struct_STRINGSLOTHEADER header;
    if (readSlotHeader(slot, &header) != 0) {
      if (slot < 0) setError(kErrNoEntry);
      return 0;
    }
    if (sequence == 0 && header.previous != -1) {
      // A text can only be entered at its start.
      setError(kErrNoEntry);
      return 0;
    }
    if (!walk.Fits(ChainCursor::kNoSequence, header.previous)) {
      setError(kErrRead);
      return 0;
    }
    if (header.status == 0) {
      setError(kErrNoEntry);
      return 0;
    }
    readSlot(text, slot);  // a short read appends nothing and the walk goes on
    if (header.status != 2) return sequence + 1;
    slot = header.next;
    if (slot < 0) {
      setError(kErrRead);
      return 0;
    }
    walk.Advance(slot);
  }
}

int StringDB::_DeleteStringSlot(int slot, int wholeChain) {
  if (bad_geometry_) {
    // A header whose slot size is impossible leaves no slot to trust.
    setError(kErrCorrupted);
    return 0;
  }
  if (deleted_) {
    setError(kErrDeleted);
    return 0;
  }
  if (!mapped_ && mapDB() != 0) return 0;
  int count = 0;
  int first = 1;
  int next = -1;
  ChainCursor walk(slot, static_cast<int64_t>(slot_count_) + 1);
  do {
    if (!walk.Visit()) {
      setError(kErrRead);
      break;
    }
    _struct_STRINGSLOTHEADER header;
    readSlotHeader(slot, &header);
    next = header.next;
    auto state = status_.find(slot);
    if (state == status_.end() || state->second == 0 || state->second == 3) break;
    if (first && !wholeChain && state->second == 1 && header.previous != -1) return count;
    if (!walk.Fits(ChainCursor::kNoSequence, header.previous)) {
      setError(kErrRead);
      break;
    }
    if (writeEmptySlot(slot, 0) != 0) return 0;
    state->second = 0;
    freeListAppend(slot);
    ++count;
    walk.Advance(next);
    slot = next;
    first = 0;
  } while (next != -1);
  return count;
}

}  // namespace kordll
