#include "kordll/record/SlotFile.h"

#include <algorithm>
#include <cstring>
#include <set>
#include <string>

#include "kordll/platform/FileSystem.h"

namespace kordll {

namespace {

// Pages read at once when reads walk forward through the file (a scan).
constexpr uint64_t kReadAheadPages = 64;
// Bytes of the window that a forward walk reads at once.
constexpr uint64_t kWindowBytes = 256 << 10;
// How far reads must have walked forward to be taken as a scan.
constexpr uint64_t kScanBytes = 16 << 10;
// The largest single write handed to the operating system.
constexpr uint64_t kMaxRunBytes = 1 << 20;

// The files of this process with a change under way (and so a journal that
// is not yet finished): another opening of the same file leaves that
// journal alone.
std::mutex& ChangingMutex() {
  static std::mutex mu;
  return mu;
}
std::multiset<std::string>& Changing() {
  static auto* files = new std::multiset<std::string>();
  return *files;
}
void SetChanging(const CString& path, bool on) {
  std::lock_guard<std::mutex> lock(ChangingMutex());
  if (on) {
    Changing().insert(path.ToUtf8());
  } else {
    auto it = Changing().find(path.ToUtf8());
    if (it != Changing().end()) Changing().erase(it);
  }
}
bool IsChanging(const CString& path) {
  std::lock_guard<std::mutex> lock(ChangingMutex());
  return Changing().count(path.ToUtf8()) != 0;
}

}  // namespace

SlotFile::~SlotFile() { Close(); }

int SlotFile::Open(const CString& path, Mode mode, int* error) {
  std::lock_guard<std::mutex> lock(mu_);
  if (open_) {
    depth_ = 0;
    FlushLocked();
    ResetChangeLocked();
    file_.Close();
    open_ = false;
  }
  DropCacheLocked();
  hot_ = false;
  path_ = path;
  // A file made anew has nothing to undo.
  if (mode == kCreate && !IsChanging(path)) StoreJournal::Discard(path);
  uint32_t access = GENERIC_READ;
  int disposition = OPEN_EXISTING;
  if (mode != kOpenRead) access |= GENERIC_WRITE;
  if (mode == kCreate) disposition = CREATE_ALWAYS;
  if (!file_.Open(path, access, FILE_SHARE_READ | FILE_SHARE_WRITE, disposition)) {
    if (error != nullptr) *error = file_.GetLastError();
    return 0;
  }
  if (error != nullptr) *error = ERROR_SUCCESS;
  open_ = true;
  writable_ = mode != kOpenRead;
  if (mode != kCreate && !IsChanging(path) && StoreJournal::Exists(path)) {
    // A change that was cut off is undone before anything is read. A
    // reader undoes it through a handle of its own; when that fails it
    // reads the file as it is, and the next writer tries again.
    if (writable_) {
      hot_ = true;
    } else {
      WinFile undo;
      if (undo.Open(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                    OPEN_EXISTING)) {
        StoreJournal::Recover(path, &undo, to_disk_, nullptr);
        undo.Close();
      }
    }
  }
  disk_size_ = file_.GetFileSize();
  if (disk_size_ < 0) disk_size_ = 0;
  size_ = disk_size_;
  if (hot_) RecoverLocked();
  return 1;
}

void SlotFile::Close() {
  std::lock_guard<std::mutex> lock(mu_);
  if (!open_) return;
  depth_ = 0;
  FlushLocked();
  ResetChangeLocked();
  DropCacheLocked();
  file_.Close();
  open_ = false;
  writable_ = false;
  size_ = disk_size_ = -1;
}

bool SlotFile::IsOpen() {
  std::lock_guard<std::mutex> lock(mu_);
  return open_;
}

bool SlotFile::IsWritable() {
  std::lock_guard<std::mutex> lock(mu_);
  return open_ && writable_;
}

int64_t SlotFile::Size() {
  std::lock_guard<std::mutex> lock(mu_);
  return open_ ? size_ : -1;
}

void SlotFile::DropCacheLocked() {
  for (auto& [index, page] : pages_) {
    page->dirty_lo = kPageSize;
    page->dirty_hi = 0;
    spare_.push_back(std::move(page));
  }
  pages_.clear();
  dirty_.clear();
  last_loaded_ = UINT64_MAX;
  last_index_ = UINT64_MAX;
  last_page_ = nullptr;
  window_size_ = 0;
  last_read_end_ = UINT64_MAX;
}

bool SlotFile::LoadWindow(uint64_t offset) {
  window_size_ = 0;
  const uint64_t start = offset / kPageSize * kPageSize;
  if (static_cast<int64_t>(start) >= disk_size_) return false;
  const uint64_t count =
      std::min<uint64_t>(kWindowBytes, static_cast<uint64_t>(disk_size_) - start);
  window_.resize(kWindowBytes);
  uint32_t got = 0;
  if (!file_.ReadFileAt(static_cast<int64_t>(start), window_.data(), static_cast<uint32_t>(count),
                        &got)) {
    return false;
  }
  // What the cache holds is newer than the file where it was written.
  for (uint64_t index = start / kPageSize; index * kPageSize < start + got; ++index) {
    auto it = pages_.find(index);
    if (it == pages_.end()) continue;
    const uint64_t n = std::min<uint64_t>(kPageSize, start + got - index * kPageSize);
    std::memcpy(window_.data() + (index * kPageSize - start), it->second->data.data(), n);
  }
  window_start_ = start;
  window_size_ = got;
  return got > 0;
}

std::unique_ptr<SlotFile::Page> SlotFile::NewPage() {
  if (!spare_.empty()) {
    std::unique_ptr<Page> page = std::move(spare_.back());
    spare_.pop_back();
    return page;
  }
  auto page = std::make_unique<Page>();
  page->data.resize(kPageSize);
  return page;
}

SlotFile::Page* SlotFile::GetPageSlow(uint64_t index, bool willOverwriteAll) {
  auto it = pages_.find(index);
  if (it != pages_.end()) {
    last_index_ = index;
    last_page_ = it->second.get();
    return last_page_;
  }
  if (static_cast<int64_t>(pages_.size()) * kPageSize >= kMaxCachedBytes) {
    // Bounded memory: write out what is pending and start the cache afresh.
    if (!FlushLocked()) return nullptr;
    DropCacheLocked();
  }
  const uint64_t first_byte = index * kPageSize;
  if (willOverwriteAll || static_cast<int64_t>(first_byte) >= disk_size_) {
    std::unique_ptr<Page> page = NewPage();
    // A page past the file's end reads as zeros until written.
    if (!willOverwriteAll) std::memset(page->data.data(), 0, kPageSize);
    Page* raw = page.get();
    pages_.emplace(index, std::move(page));
    last_index_ = index;
    last_page_ = raw;
    return raw;
  }
  // Load this page, and when reads walk forward, the pages after it too.
  uint64_t count = (last_loaded_ != UINT64_MAX && index == last_loaded_ + 1) ? kReadAheadPages : 1;
  const uint64_t disk_pages = (static_cast<uint64_t>(disk_size_) + kPageSize - 1) / kPageSize;
  count = std::min(count, disk_pages - index);
  // The read ahead stays within the bound of the cache.
  count = std::min<uint64_t>(count, std::max<int64_t>(1, kMaxCachedBytes / kPageSize -
                                                             static_cast<int64_t>(pages_.size())));
  read_buffer_.resize(count * kPageSize);
  uint32_t got = 0;
  if (!file_.ReadFileAt(static_cast<int64_t>(first_byte), read_buffer_.data(),
                        static_cast<uint32_t>(count * kPageSize), &got)) {
    return nullptr;
  }
  // A file that shrank under us reads as zeros past its end.
  if (got < count * kPageSize) std::memset(read_buffer_.data() + got, 0, count * kPageSize - got);
  for (uint64_t i = 0; i < count; ++i) {
    if (pages_.count(index + i) != 0) continue;
    std::unique_ptr<Page> page = NewPage();
    std::memcpy(page->data.data(), read_buffer_.data() + i * kPageSize, kPageSize);
    pages_.emplace(index + i, std::move(page));
  }
  last_loaded_ = index + count - 1;
  last_index_ = index;
  last_page_ = pages_[index].get();
  return last_page_;
}

int SlotFile::ReadAt(uint64_t offset, void* buffer, uint32_t count, uint32_t* got) {
  std::lock_guard<std::mutex> lock(mu_);
  if (got != nullptr) *got = 0;
  if (!open_) return 0;
  // What a failed change left is undone before it is read.
  if (hot_ && writable_ && !changing_) RecoverLocked();
  if (static_cast<int64_t>(offset) >= size_ || count == 0) return 1;
  uint64_t left = std::min<uint64_t>(count, static_cast<uint64_t>(size_) - offset);
  unsigned char* out = static_cast<unsigned char*>(buffer);
  // A read that goes on forward from the one before, into a part of the
  // file that the cache does not hold, is served from the window. So is one
  // of a walk that has gone forward over several pages (a scan), even where
  // the cache holds them, as it does after the file was just written: the
  // scan then costs one read of the file per window and fills no cache.
  // The reads of a single slot and reads that jump about stay with the
  // cache.
  const bool forward = last_read_end_ != UINT64_MAX && offset >= last_read_end_ &&
                       offset - last_read_end_ < kWindowBytes / 4;
  if (!forward) walk_start_ = offset;
  const bool scanning = forward && offset - walk_start_ >= kScanBytes;
  last_read_end_ = offset + left;
  bool in_window =
      window_size_ > 0 && offset >= window_start_ && offset + left <= window_start_ + window_size_;
  if (!in_window && forward && offset + left <= static_cast<uint64_t>(disk_size_) &&
      (scanning || pages_.count(offset / kPageSize) == 0) && left <= kWindowBytes / 2) {
    in_window = LoadWindow(offset) && offset + left <= window_start_ + window_size_;
  }
  if (in_window) {
    std::memcpy(out, window_.data() + (offset - window_start_), left);
    if (got != nullptr) *got = static_cast<uint32_t>(left);
    return 1;
  }
  uint32_t done = 0;
  while (left > 0) {
    const uint64_t index = offset / kPageSize;
    const int in_page = static_cast<int>(offset % kPageSize);
    const uint64_t n = std::min<uint64_t>(left, kPageSize - in_page);
    Page* page = GetPage(index, false);
    if (page == nullptr) {
      if (got != nullptr) *got = done;
      return 0;
    }
    std::memcpy(out + done, page->data.data() + in_page, n);
    done += static_cast<uint32_t>(n);
    offset += n;
    left -= n;
  }
  if (got != nullptr) *got = done;
  return 1;
}

int SlotFile::ReadExact(uint64_t offset, void* buffer, uint32_t count, uint32_t* got) {
  std::lock_guard<std::mutex> lock(mu_);
  if (got != nullptr) *got = 0;
  if (!open_) return 0;
  if (hot_ && writable_ && !changing_) RecoverLocked();
  if (static_cast<int64_t>(offset) >= size_ || count == 0) return 1;
  const uint64_t end = offset + std::min<uint64_t>(count, static_cast<uint64_t>(size_) - offset);
  const uint64_t disk_end = static_cast<uint64_t>(disk_size_);
  unsigned char* out = static_cast<unsigned char*>(buffer);
  uint64_t at = offset;
  while (at < end) {
    // What the cache holds is newer than the file: it is taken from there.
    auto it = pages_.find(at / kPageSize);
    const uint64_t page_end = std::min(end, (at / kPageSize + 1) * kPageSize);
    if (it != pages_.end()) {
      std::memcpy(out + (at - offset), it->second->data.data() + at % kPageSize, page_end - at);
      at = page_end;
      continue;
    }
    // A run of pages that the cache does not hold comes from the file in
    // one read; past the file's end (a gap before pending growth) it reads
    // as zeros, as the file will.
    uint64_t run_end = page_end;
    while (run_end < end && pages_.count(run_end / kPageSize) == 0) {
      run_end = std::min(end, run_end + kPageSize);
    }
    const uint64_t file_part = disk_end > at ? std::min(run_end, disk_end) - at : 0;
    uint32_t read = 0;
    if (file_part > 0 && !file_.ReadFileAt(static_cast<int64_t>(at), out + (at - offset),
                                           static_cast<uint32_t>(file_part), &read)) {
      if (got != nullptr) *got = static_cast<uint32_t>(at - offset + read);
      return 0;
    }
    // A file that shrank under us reads as zeros past its end.
    std::memset(out + (at - offset) + read, 0, run_end - at - read);
    at = run_end;
  }
  if (got != nullptr) *got = static_cast<uint32_t>(end - offset);
  return 1;
}

int SlotFile::WriteAt(uint64_t offset, const void* buffer, uint32_t count) {
  std::lock_guard<std::mutex> lock(mu_);
  if (!open_ || !writable_) return 0;
  const unsigned char* in = static_cast<const unsigned char*>(buffer);
  if (window_size_ > 0 && offset < window_start_ + window_size_ && offset + count > window_start_) {
    // The window stays what the file will hold.
    const uint64_t from = std::max(offset, window_start_);
    const uint64_t to = std::min<uint64_t>(offset + count, window_start_ + window_size_);
    std::memcpy(window_.data() + (from - window_start_), in + (from - offset), to - from);
  }
  uint64_t left = count;
  uint32_t done = 0;
  while (left > 0) {
    // A change outside Begin and Commit that could not start (an old
    // journal that would not undo) is tried again by the next write.
    if (failed_ && depth_ == 0) ResetChangeLocked();
    if (!changing_) StartChangeLocked();
    if (failed_) return 0;
    const uint64_t index = offset / kPageSize;
    const int in_page = static_cast<int>(offset % kPageSize);
    const uint64_t n = std::min<uint64_t>(left, kPageSize - in_page);
    // A page of the old file written for the first time in this change has
    // its old bytes journaled before the page goes out.
    if (journal_on_ && static_cast<int64_t>(index * kPageSize) < change_size_ &&
        journaled_.count(index) == 0) {
      captured_.insert(index);
    }
    Page* page = GetPage(index, in_page == 0 && n == kPageSize);
    if (page == nullptr) return 0;
    std::memcpy(page->data.data() + in_page, in + done, n);
    if (page->dirty_lo >= page->dirty_hi) dirty_.push_back(index);
    page->dirty_lo = std::min(page->dirty_lo, in_page);
    page->dirty_hi = std::max(page->dirty_hi, in_page + static_cast<int>(n));
    done += static_cast<uint32_t>(n);
    offset += n;
    left -= n;
  }
  size_ = std::max<int64_t>(size_, static_cast<int64_t>(offset));
  return 1;
}

int SlotFile::Flush() {
  std::lock_guard<std::mutex> lock(mu_);
  return FlushLocked();
}

int SlotFile::FlushLocked() {
  if (!open_) return 1;
  if (failed_) {
    // Outside Begin and Commit the failed change ends here, so that the
    // next write tries again.
    if (depth_ == 0) ResetChangeLocked();
    return 0;
  }
  if (dirty_.empty()) return depth_ == 0 && changing_ ? (EndChangeLocked() ? 1 : 0) : 1;
  std::sort(dirty_.begin(), dirty_.end());
  // Runs of consecutive dirty pages, joined where one ends at the page's end
  // and the next starts at its beginning, go out as one write each.
  struct Run {
    size_t first, last;  // indexes into dirty_
    uint64_t start;      // file offset
  };
  std::vector<Run> runs;
  for (size_t i = 0; i < dirty_.size();) {
    size_t j = i;
    while (j + 1 < dirty_.size() && dirty_[j + 1] == dirty_[j] + 1 &&
           pages_[dirty_[j]]->dirty_hi == kPageSize && pages_[dirty_[j + 1]]->dirty_lo == 0 &&
           (dirty_[j + 1] - dirty_[i]) * kPageSize < kMaxRunBytes) {
      ++j;
    }
    runs.push_back({i, j, dirty_[i] * kPageSize + pages_[dirty_[i]]->dirty_lo});
    i = j + 1;
  }
  // The order limits what a failure half way leaves behind. What extends the
  // file goes first, from its old end on, so that the file never gets a gap.
  // What changes the file in place goes from the end of the file back to its
  // start: a slot's own bytes (its areas, status and header) lie behind the
  // state block of its sub-table, which lies behind the database header, so
  // the states and the statistics that point at new data change only after
  // that data is in the file.
  std::vector<const Run*> order;
  for (const Run& run : runs) {
    if (static_cast<int64_t>(run.start) >= disk_size_) order.push_back(&run);
  }
  for (auto it = runs.rbegin(); it != runs.rend(); ++it) {
    if (static_cast<int64_t>(it->start) < disk_size_) order.push_back(&*it);
  }
  // Nothing of the file is overwritten before its old bytes are in the
  // journal.
  bool ok = JournalLocked();
  for (const Run* r : order) {
    if (!ok) break;
    std::vector<unsigned char>& run = run_buffer_;
    run.clear();
    for (size_t k = r->first; k <= r->last; ++k) {
      const Page* page = pages_[dirty_[k]].get();
      run.insert(run.end(), page->data.begin() + page->dirty_lo,
                 page->data.begin() + page->dirty_hi);
    }
    uint32_t written = 0;
    if (!file_.WriteFileAt(static_cast<int64_t>(r->start), run.data(),
                           static_cast<uint32_t>(run.size()), &written)) {
      ok = false;
      break;
    }
    disk_size_ = std::max<int64_t>(disk_size_, static_cast<int64_t>(r->start + run.size()));
    for (size_t k = r->first; k <= r->last; ++k) {
      Page* page = pages_[dirty_[k]].get();
      page->dirty_lo = kPageSize;
      page->dirty_hi = 0;
    }
  }
  if (ok) {
    dirty_.clear();
    return depth_ == 0 ? (EndChangeLocked() ? 1 : 0) : 1;
  }
  // What the file holds is no longer what the cache says: the change is
  // undone and the cache forgotten.
  UndoLocked();
  if (depth_ > 0) {
    failed_ = true;
  } else {
    ResetChangeLocked();
  }
  return 0;
}

void SlotFile::Begin() {
  std::lock_guard<std::mutex> lock(mu_);
  ++depth_;
  if (hot_ && open_ && writable_ && !changing_) RecoverLocked();
}

int SlotFile::Commit() {
  std::lock_guard<std::mutex> lock(mu_);
  if (depth_ > 0) --depth_;
  if (depth_ > 0) return failed_ ? 0 : 1;
  if (!open_ || failed_) {
    const bool failed = failed_;
    ResetChangeLocked();
    return failed ? 0 : 1;
  }
  return FlushLocked();
}

void SlotFile::SetFlushToDisk(bool on) {
  std::lock_guard<std::mutex> lock(mu_);
  to_disk_ = on;
}

void SlotFile::SetJournal(bool on) {
  std::lock_guard<std::mutex> lock(mu_);
  journal_wanted_ = on;
}

int SlotFile::MoveTo(const CString& from, const CString& target) {
  std::lock_guard<std::mutex> lock(mu_);
  // What a change cut off earlier left is undone before the file moves, by
  // the open handle or by one of its own.
  if (StoreJournal::Exists(from) && !IsChanging(from)) {
    if (open_ && writable_ && path_ == from) {
      RecoverLocked();
    } else {
      WinFile undo;
      if (undo.Open(from, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                    OPEN_EXISTING)) {
        const bool undone = StoreJournal::Recover(from, &undo, to_disk_, nullptr) != 0;
        undo.Close();
        if (undone && open_ && path_ == from) {
          // The open (read-only) handle reads the file as it is now.
          hot_ = false;
          DropCacheLocked();
          disk_size_ = std::max<int64_t>(0, file_.GetFileSize());
          size_ = disk_size_;
        }
      }
    }
  }
  if (!FileSystem::MoveFile(from, target)) return 0;
  // A journal at the new place without its file is stale: it must not undo
  // anything of this one. One that could not be undone here goes along.
  StoreJournal::Discard(target);
  if (StoreJournal::Exists(from) && !IsChanging(from)) {
    FileSystem::MoveFile(StoreJournal::PathFor(from), StoreJournal::PathFor(target));
  }
  if (open_ && path_ == from) path_ = target;
  return 1;
}

void SlotFile::StartChangeLocked() {
  changing_ = true;
  failed_ = false;
  journal_on_ = journal_wanted_;
  // A journal that an earlier change could not undo is undone first; while
  // it stays, nothing may be written.
  if (hot_ && !RecoverLocked()) failed_ = true;
  change_size_ = disk_size_;
}

bool SlotFile::JournalLocked() {
  // Without the journal, and for a file that was empty, nothing is kept.
  if (!journal_on_ || change_size_ <= 0) {
    captured_.clear();
    return true;
  }
  const bool started = journal_ != nullptr && journal_->Started();
  if (started && captured_.empty()) return true;
  // The file still holds the old bytes of these pages: nothing of them has
  // gone out in this change.
  std::vector<StoreJournal::Image> images;
  images.reserve(captured_.size());
  bool read = true;
  for (uint64_t index : captured_) {
    const int64_t first = static_cast<int64_t>(index * kPageSize);
    const uint32_t n = static_cast<uint32_t>(std::min<int64_t>(kPageSize, change_size_ - first));
    StoreJournal::Image image{index * kPageSize, std::vector<unsigned char>(n)};
    uint32_t got = 0;
    if (!file_.ReadFileAt(first, image.bytes.data(), n, &got) || got != n) {
      read = false;
      break;
    }
    images.push_back(std::move(image));
  }
  captured_.clear();
  if (!read) return false;
  if (journal_ == nullptr) journal_ = std::make_unique<StoreJournal>(path_);
  if (!started) SetChanging(path_, true);
  const bool ok = journal_->Append(static_cast<uint64_t>(change_size_), images, to_disk_) != 0;
  // Pages whose old bytes did not all reach the journal are not written.
  for (StoreJournal::Image& image : images) {
    journaled_[image.offset / kPageSize] = std::move(image.bytes);
  }
  return ok;
}

bool SlotFile::EndChangeLocked() {
  bool ok = true;
  if (journal_ != nullptr && journal_->Started()) {
    if (to_disk_ && !file_.FlushFileBuffers()) ok = false;
    if (ok && !journal_->Remove()) ok = false;
    if (!ok) UndoLocked();
  }
  ResetChangeLocked();
  return ok;
}

void SlotFile::UndoLocked() {
  if (journal_ != nullptr && journal_->Started()) {
    bool ok = true;
    for (const auto& [index, bytes] : journaled_) {
      uint32_t written = 0;
      if (!file_.WriteFileAt(static_cast<int64_t>(index * kPageSize), bytes.data(),
                             static_cast<uint32_t>(bytes.size()), &written) ||
          written != bytes.size()) {
        ok = false;
        break;
      }
    }
    if (ok && file_.GetFileSize() > change_size_) {
      ok = file_.SetFilePointer(change_size_, FILE_BEGIN) >= 0 && file_.SetEndOfFile();
    }
    if (ok && to_disk_) ok = file_.FlushFileBuffers() != 0;
    if (ok) ok = journal_->Remove() != 0;
    // The journal stays beside the file; it is undone before the next
    // change, or at the next opening.
    if (!ok) hot_ = true;
  }
  DropCacheLocked();
  disk_size_ = file_.GetFileSize();
  if (disk_size_ < 0) disk_size_ = 0;
  size_ = disk_size_;
}

bool SlotFile::RecoverLocked() {
  if (!StoreJournal::Recover(path_, &file_, to_disk_, nullptr)) return false;
  hot_ = false;
  DropCacheLocked();
  disk_size_ = file_.GetFileSize();
  if (disk_size_ < 0) disk_size_ = 0;
  size_ = disk_size_;
  return true;
}

void SlotFile::ResetChangeLocked() {
  if (journal_ != nullptr) {
    SetChanging(path_, false);
    journal_.reset();
  }
  changing_ = false;
  failed_ = false;
  captured_.clear();
  journaled_.clear();
}

}  // namespace kordll
