#include "kordll/toolkit/CFileFinder.h"

#include <string>

#include "kordll/platform/FileFind.h"
#include "kordll/platform/WinFile.h"

namespace kordll {

namespace {

// Folders further below the base than this are not searched.
constexpr int kMaxDepth = 256;
// How much of a file is read at a time when looking for a text.
constexpr uint32_t kChunk = 64 * 1024;

bool IsSystemSpelled(const CString& path) { return !path.IsEmpty() && path[0] == u'/'; }

// The name on this system of a path spelled either way.
CString SystemName(const CString& path) {
  if (path.IsEmpty()) return CString(".");
  return IsSystemSpelled(path) ? path : CPath::ToSystemPath(path);
}

char16_t SeparatorOf(const CString& base) { return IsSystemSpelled(base) ? u'/' : u'\\'; }

CString WithSeparator(const CString& folder, char16_t separator) {
  if (folder.IsEmpty()) return folder;
  char16_t last = folder[folder.GetLength() - 1];
  if (last == u'/' || last == u'\\') return folder;
  return folder + separator;
}

unsigned long AttributesOf(const FindEntry& entry) {
  unsigned long attributes = 0;
  if (entry.is_folder) attributes |= CFileFinder::kAttributeFolder;
  if (entry.is_symlink) attributes |= CFileFinder::kAttributeLink;
  if (!entry.name.IsEmpty() && entry.name[0] == u'.') attributes |= CFileFinder::kAttributeHidden;
  if (attributes == 0) attributes = CFileFinder::kAttributeNormal;
  return attributes;
}

bool InRange(CTime t, CTime from, CTime to) { return t >= from && t <= to; }

}  // namespace

int CFileFinder::FindFiles(const CString& folder, const CString& mask, int recurse) {
  CFindOpts opts;
  opts.base_folder = folder;
  opts.file_mask = mask;
  opts.recurse = recurse;
  return Find(opts);
}

int CFileFinder::Find(CFindOpts& opts) {
  // Cleared here only, not at every level, so that a stop asked between two
  // folders is never lost.
  stop_ = false;
  return FindAt(opts, 0);
}

int CFileFinder::FindAt(CFindOpts& opts, int depth) {
  const char16_t separator = SeparatorOf(opts.base_folder);
  // The caller's options keep the base as searched, separator and all.
  opts.base_folder = WithSeparator(opts.base_folder, separator);
  const CString base = opts.base_folder;
  const CString system_folder = SystemName(opts.base_folder);
  std::vector<FindEntry> entries;

  if (opts.recurse && depth < kMaxDepth && !system_folder.IsEmpty()) {
    FileFind::List(system_folder, CString("*.*"), &entries);
    for (const FindEntry& entry : entries) {
      if (stop_) break;
      if (!entry.is_folder) continue;
      CFindOpts below = opts;
      below.base_folder = base + entry.name;
      FindAt(below, depth + 1);
    }
  }
  // After a stop the folder still takes its turn (it is announced and becomes
  // the searching folder), but none of its entries is looked at.

  SetSearchingFolder(base);
  if (callback_ != nullptr) callback_(this, kCallbackFolder, user_data_);

  if (system_folder.IsEmpty() || !FileFind::List(system_folder, opts.file_mask, &entries)) {
    return GetFileCount();
  }
  for (const FindEntry& entry : entries) {
    if (stop_) break;
    bool pass = true;
    if (pass && (opts.flags & kFindAttributes)) pass = (AttributesOf(entry) & opts.attributes) != 0;
    if (pass && (opts.flags & kFindLastWriteTime)) {
      pass = InRange(entry.last_write, opts.last_write_from, opts.last_write_to);
    }
    if (pass && (opts.flags & kFindCreationTime)) {
      pass = InRange(entry.change_time, opts.creation_from, opts.creation_to);
    }
    if (pass && (opts.flags & kFindLastAccessTime)) {
      pass = InRange(entry.last_access, opts.last_access_from, opts.last_access_to);
    }
    CString path = base + entry.name;
    if (pass && (opts.flags & kFindText)) pass = FindTextInFile(path, opts.text) != 0;
    if (pass) found_.push_back(entry.is_folder ? path + separator : path);
    if (callback_ != nullptr)
      callback_(this, pass ? kCallbackFound : kCallbackDiscarded, user_data_);
  }
  return GetFileCount();
}

int CFileFinder::FindTextInFile(const CString& path, const CString& text) {
  CString name = SystemName(path);
  if (name.IsEmpty()) return 0;
  WinFile file;
  if (!file.Open(name, GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING)) return 0;
  const std::string needle = text.ToUtf8();
  std::string window;  // the tail of what was read, then the next chunk
  std::string chunk(kChunk, '\0');
  for (;;) {
    uint32_t read = 0;
    if (!file.ReadFile(chunk.data(), kChunk, &read)) return 0;
    window.append(chunk.data(), read);
    if (window.find(needle) != std::string::npos) return 1;
    if (read == 0) return 0;
    // Keep just enough to find a text that straddles two chunks.
    if (window.size() >= needle.size()) window.erase(0, window.size() - needle.size() + 1);
  }
}

int CFileFinder::GetFileCount() const { return static_cast<int>(found_.size()); }

int CFileFinder::FindPathItem(const CString& path) const {
  for (size_t i = 0; i < found_.size(); ++i) {
    if (found_[i] == path) return static_cast<int>(i);
  }
  return -1;
}

CString CFileFinder::GetFilePath(int index) const {
  if (index < 0 || index >= GetFileCount()) return CString();
  return found_[index];
}

CString CFileFinder::GetSearchingFolder() const {
  std::lock_guard<std::mutex> l(folder_mu_);
  return searching_folder_;
}

void CFileFinder::SetSearchingFolder(const CString& folder) {
  std::lock_guard<std::mutex> l(folder_mu_);
  searching_folder_ = folder;
}

void CFileFinder::RemoveAt(int index) {
  if (index < 0 || index >= GetFileCount()) return;
  found_.erase(found_.begin() + index);
}

void CFileFinder::RemoveAll() { found_.clear(); }

void CFileFinder::SetCallback(Callback callback, void* user_data) {
  callback_ = callback;
  user_data_ = user_data;
}

void CFileFinder::StopSearch() { stop_ = true; }

}  // namespace kordll
