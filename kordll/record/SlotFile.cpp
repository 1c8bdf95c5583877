#include "kordll/record/SlotFile.h"

#include <algorithm>
#include <cstring>

namespace kordll {

namespace {

// Pages read at once when reads walk forward through the file (a scan).
constexpr uint64_t kReadAheadPages = 16;
// The largest single write handed to the operating system.
constexpr uint64_t kMaxRunBytes = 1 << 20;

}  // namespace

SlotFile::~SlotFile() { Close(); }

int SlotFile::Open(const CString& path, Mode mode, int* error) {
  std::lock_guard<std::mutex> lock(mu_);
  if (open_) {
    FlushLocked();
    file_.Close();
    open_ = false;
  }
  DropCacheLocked();
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
  disk_size_ = file_.GetFileSize();
  if (disk_size_ < 0) disk_size_ = 0;
  size_ = disk_size_;
  return 1;
}

void SlotFile::Close() {
  std::lock_guard<std::mutex> lock(mu_);
  if (!open_) return;
  FlushLocked();
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
  pages_.clear();
  dirty_.clear();
  last_loaded_ = UINT64_MAX;
}

SlotFile::Page* SlotFile::GetPage(uint64_t index, bool willOverwriteAll) {
  auto it = pages_.find(index);
  if (it != pages_.end()) return it->second.get();
  if (static_cast<int64_t>(pages_.size()) * kPageSize >= kMaxCachedBytes) {
    // Bounded memory: write out what is pending and start the cache afresh.
    if (!FlushLocked()) return nullptr;
    DropCacheLocked();
  }
  const uint64_t first_byte = index * kPageSize;
  if (willOverwriteAll || static_cast<int64_t>(first_byte) >= disk_size_) {
    auto page = std::make_unique<Page>();
    page->data.assign(kPageSize, 0);
    Page* raw = page.get();
    pages_.emplace(index, std::move(page));
    return raw;
  }
  // Load this page, and when reads walk forward, the pages after it too.
  uint64_t count = (last_loaded_ != UINT64_MAX && index == last_loaded_ + 1) ? kReadAheadPages : 1;
  const uint64_t disk_pages = (static_cast<uint64_t>(disk_size_) + kPageSize - 1) / kPageSize;
  count = std::min(count, disk_pages - index);
  std::vector<unsigned char> buffer(count * kPageSize, 0);
  uint32_t got = 0;
  if (file_.SetFilePointer(static_cast<int64_t>(first_byte), FILE_BEGIN) < 0) return nullptr;
  if (!file_.ReadFile(buffer.data(), static_cast<uint32_t>(buffer.size()), &got)) return nullptr;
  // A file that shrank under us reads as zeros past its end.
  for (uint64_t i = 0; i < count; ++i) {
    if (pages_.count(index + i) != 0) continue;
    auto page = std::make_unique<Page>();
    page->data.assign(buffer.begin() + i * kPageSize, buffer.begin() + (i + 1) * kPageSize);
    pages_.emplace(index + i, std::move(page));
  }
  last_loaded_ = index + count - 1;
  return pages_[index].get();
}

int SlotFile::ReadAt(uint64_t offset, void* buffer, uint32_t count, uint32_t* got) {
  std::lock_guard<std::mutex> lock(mu_);
  if (got != nullptr) *got = 0;
  if (!open_) return 0;
  if (static_cast<int64_t>(offset) >= size_ || count == 0) return 1;
  uint64_t left = std::min<uint64_t>(count, static_cast<uint64_t>(size_) - offset);
  unsigned char* out = static_cast<unsigned char*>(buffer);
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

int SlotFile::WriteAt(uint64_t offset, const void* buffer, uint32_t count) {
  std::lock_guard<std::mutex> lock(mu_);
  if (!open_ || !writable_) return 0;
  const unsigned char* in = static_cast<const unsigned char*>(buffer);
  uint64_t left = count;
  uint32_t done = 0;
  while (left > 0) {
    const uint64_t index = offset / kPageSize;
    const int in_page = static_cast<int>(offset % kPageSize);
    const uint64_t n = std::min<uint64_t>(left, kPageSize - in_page);
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
  if (!open_ || dirty_.empty()) return 1;
  std::sort(dirty_.begin(), dirty_.end());
  size_t i = 0;
  bool ok = true;
  while (ok && i < dirty_.size()) {
    // A run of consecutive dirty pages, joined where one ends at the page's
    // end and the next starts at its beginning, goes out as one write.
    size_t j = i;
    while (j + 1 < dirty_.size() && dirty_[j + 1] == dirty_[j] + 1 &&
           pages_[dirty_[j]]->dirty_hi == kPageSize && pages_[dirty_[j + 1]]->dirty_lo == 0 &&
           (dirty_[j + 1] - dirty_[i]) * kPageSize < kMaxRunBytes) {
      ++j;
    }
    std::vector<unsigned char> run;
    const Page* first = pages_[dirty_[i]].get();
    const uint64_t start = dirty_[i] * kPageSize + first->dirty_lo;
    for (size_t k = i; k <= j; ++k) {
      const Page* page = pages_[dirty_[k]].get();
      run.insert(run.end(), page->data.begin() + page->dirty_lo,
                 page->data.begin() + page->dirty_hi);
    }
    uint32_t written = 0;
    if (file_.SetFilePointer(static_cast<int64_t>(start), FILE_BEGIN) < 0 ||
        !file_.WriteFile(run.data(), static_cast<uint32_t>(run.size()), &written)) {
      ok = false;
      break;
    }
    disk_size_ = std::max<int64_t>(disk_size_, static_cast<int64_t>(start + run.size()));
    for (size_t k = i; k <= j; ++k) {
      Page* page = pages_[dirty_[k]].get();
      page->dirty_lo = kPageSize;
      page->dirty_hi = 0;
    }
    i = j + 1;
  }
  if (ok) {
    dirty_.clear();
    return 1;
  }
  // What the file holds is no longer what the cache says: forget the cache.
  DropCacheLocked();
  disk_size_ = file_.GetFileSize();
  if (disk_size_ < 0) disk_size_ = 0;
  size_ = disk_size_;
  return 0;
}

}  // namespace kordll
