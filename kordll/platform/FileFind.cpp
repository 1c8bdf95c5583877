#include "kordll/platform/FileFind.h"

#include <algorithm>
#include <string>

#include "kordll/platform/Env.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/platform/Locations.h"
#include "kordll/platform/WinError.h"

namespace kordll {

namespace {

char16_t AsciiLower(char16_t c) { return (c >= u'A' && c <= u'Z') ? c + 32 : c; }

// Plain wildcard match: '*' any run, '?' one unit, others equal without
// regard to ASCII case. Backtracks only to the latest '*', so the cost is at
// most the product of the lengths, never exponential.
bool Glob(std::u16string_view name, std::u16string_view mask) {
  size_t n = 0, m = 0;
  size_t star = std::u16string_view::npos, mark = 0;
  while (n < name.size()) {
    if (m < mask.size() && mask[m] == u'*') {
      star = m++;
      mark = n;
    } else if (m < mask.size() && (mask[m] == u'?' || AsciiLower(mask[m]) == AsciiLower(name[n]))) {
      ++n;
      ++m;
    } else if (star != std::u16string_view::npos) {
      m = star + 1;
      n = ++mark;
    } else {
      return false;
    }
  }
  while (m < mask.size() && mask[m] == u'*') ++m;
  return m == mask.size();
}

bool EntryBefore(const FindEntry& a, const FindEntry& b) {
  const std::u16string& x = a.name.str();
  const std::u16string& y = b.name.str();
  size_t n = std::min(x.size(), y.size());
  for (size_t i = 0; i < n; ++i) {
    char16_t p = AsciiLower(x[i]), q = AsciiLower(y[i]);
    if (p != q) return p < q;
  }
  if (x.size() != y.size()) return x.size() < y.size();
  return x < y;
}

}  // namespace

bool FileFind::MatchMask(const CString& name, const CString& mask) {
  if (Glob(name.view(), mask.view())) return true;
  // Windows lets "name.*" match a name without an extension ("*.*": all).
  std::u16string_view m = mask.view();
  if (m.size() >= 2 && m.substr(m.size() - 2) == u".*") {
    return Glob(name.view(), m.substr(0, m.size() - 2));
  }
  return false;
}

int FileFind::List(const CString& folder, const CString& mask, std::vector<FindEntry>* out) {
  out->clear();
  std::string sys;
  if (!FileSystem::ToSystemPath(folder.IsEmpty() ? CString(".") : folder, &sys)) {
    SetLastError(ERROR_INVALID_NAME);
    return 0;
  }
  Env* env = Env::Current();
  std::vector<std::string> names;
  int code = env->ListFolder(sys, &names);
  if (code != ERROR_SUCCESS) {
    SetLastError(code);
    return 0;
  }
  for (const std::string& raw : names) {
    CString name = CString::FromUtf8(raw);
    if (name.ToUtf8() != raw) continue;  // not nameable as text
    if (!MatchMask(name, mask)) continue;
    EnvStat st;
    if (env->Stat(sys == "/" ? "/" + raw : sys + "/" + raw, /*follow_link=*/false, &st) !=
        ERROR_SUCCESS) {
      continue;  // gone
    }
    FindEntry entry;
    entry.name = name;
    entry.is_folder = st.is_folder;
    entry.is_symlink = st.is_symlink;
    entry.is_file = st.is_file;
    entry.size = entry.is_file ? st.size : 0;
    entry.last_write = st.last_write;
    entry.last_access = st.last_access;
    entry.change_time = st.change_time;
    out->push_back(std::move(entry));
  }
  std::sort(out->begin(), out->end(), EntryBefore);
  SetLastError(ERROR_SUCCESS);
  return 1;
}

int FileFind::FindFile(const CString& folder, const CString& mask) {
  Close();
  folder_ = folder;
  if (!List(folder, mask, &entries_)) return 0;
  if (entries_.empty()) {
    SetLastError(ERROR_FILE_NOT_FOUND);
    return 0;
  }
  return 1;
}

int FileFind::FindFile(const CString& pattern) {
  if (pattern.IsEmpty()) return FindFile(CString("."), CString("*.*"));
  int slash = pattern.ReverseFind(u'/');
  if (slash < 0) return FindFile(CString("."), pattern);
  CString folder = slash == 0 ? CString("/") : pattern.Left(slash);
  return FindFile(folder, pattern.Mid(slash + 1));
}

int FileFind::FindNextFile() {
  if (current_ + 1 >= static_cast<int>(entries_.size())) {
    current_ = -1;
    SetLastError(ERROR_NO_MORE_FILES);
    return 0;
  }
  ++current_;
  if (current_ + 1 >= static_cast<int>(entries_.size())) {
    SetLastError(ERROR_NO_MORE_FILES);
    return 0;
  }
  SetLastError(ERROR_SUCCESS);
  return 1;
}

void FileFind::Close() {
  folder_.Empty();
  entries_.clear();
  current_ = -1;
}

const FindEntry* FileFind::GetEntry() const {
  if (current_ < 0 || current_ >= static_cast<int>(entries_.size())) return nullptr;
  return &entries_[current_];
}

CString FileFind::GetFileName() const {
  const FindEntry* e = GetEntry();
  return e ? e->name : CString();
}

CString FileFind::GetFilePath() const {
  const FindEntry* e = GetEntry();
  return e ? Locations::Join(folder_, e->name) : CString();
}

CString FileFind::GetRoot() const { return folder_; }

int64_t FileFind::GetLength() const {
  const FindEntry* e = GetEntry();
  return e ? e->size : 0;
}

bool FileFind::IsDirectory() const {
  const FindEntry* e = GetEntry();
  return e && e->is_folder;
}

bool FileFind::IsSymlink() const {
  const FindEntry* e = GetEntry();
  return e && e->is_symlink;
}

bool FileFind::IsRegularFile() const {
  const FindEntry* e = GetEntry();
  return e && e->is_file;
}

}  // namespace kordll
