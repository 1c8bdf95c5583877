#include "kordll/toolkit/CPath.h"

#include <algorithm>
#include <string>

#include "kordll/platform/Env.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/platform/Locations.h"
#include "kordll/platform/WinError.h"

namespace kordll {

namespace {

// The longest path the canonicalising step gives, terminator included.
constexpr int kMaxPath = 260;

bool IsSeparator(char16_t c) { return c == u'\\' || c == u'/'; }
bool IsBlank(char16_t c) { return c == u' ' || c == u'\t'; }
bool IsAsciiLetter(char16_t c) { return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z'); }

// The text up to its first U+0000, as a wide C string reads it.
CString UpToNul(const CString& text) {
  int nul = text.Find(char16_t(0));
  return nul < 0 ? text : text.Left(nul);
}

// The position of the first blank outside double quotes from `start` on,
// or -1.
int FirstUnquotedBlank(const CString& text, int start = 0) {
  bool quoted = false;
  for (int i = start; i < text.GetLength(); ++i) {
    if (text[i] == u'"') quoted = !quoted;
    if (!quoted && IsBlank(text[i])) return i;
  }
  return -1;
}

std::vector<CString> SplitSeparated(const CString& text) {
  std::vector<CString> parts;
  int at = 0;
  for (CString part = text.Tokenize(u"\\/", at); at >= 0; part = text.Tokenize(u"\\/", at)) {
    parts.push_back(part);
  }
  return parts;
}

// A Windows path cut into its root and its parts. The root is "X:" for a
// drive, "\\server\share" for a network path, "" otherwise; `rooted` tells
// whether the parts start at the root's top.
struct SplitPath {
  CString root;
  bool rooted = false;
  bool network = false;
  std::vector<CString> parts;
  bool trailing = false;  // the text ended in a separator
};

SplitPath Split(const CString& text) {
  SplitPath out;
  CString rest = text;
  if (rest.GetLength() >= 2 && rest[1] == u':') {
    out.root = rest.Left(2);
    rest = rest.Mid(2);
  } else if (rest.GetLength() >= 2 && IsSeparator(rest[0]) && IsSeparator(rest[1])) {
    std::vector<CString> parts = SplitSeparated(rest);
    out.network = true;
    out.rooted = true;
    out.root = "\\\\";
    if (!parts.empty()) out.root += parts[0];
    out.root += u'\\';
    if (parts.size() > 1) out.root += parts[1];
    out.parts.assign(parts.begin() + std::min<size_t>(parts.size(), 2), parts.end());
    out.trailing = IsSeparator(rest[rest.GetLength() - 1]);
    return out;
  }
  out.rooted = !rest.IsEmpty() && IsSeparator(rest[0]);
  out.parts = SplitSeparated(rest);
  out.trailing = !rest.IsEmpty() && IsSeparator(rest[rest.GetLength() - 1]);
  return out;
}

// "." parts dropped and ".." parts taking the one before away; a ".." with
// nothing before it stops at the start.
std::vector<CString> ResolveDots(const std::vector<CString>& parts) {
  std::vector<CString> out;
  for (const CString& p : parts) {
    if (p == ".") continue;
    if (p == "..") {
      if (!out.empty()) out.pop_back();
      continue;
    }
    out.push_back(p);
  }
  return out;
}

CString Canonicalize(const CString& text) {
  SplitPath s = Split(text);
  std::vector<CString> parts = ResolveDots(s.parts);
  CString out = s.root;
  if (s.rooted && !s.network) out += u'\\';
  for (size_t i = 0; i < parts.size(); ++i) {
    if (i > 0 || s.network) out += u'\\';
    out += parts[i];
  }
  if (s.trailing && !parts.empty()) out += u'\\';
  return out;
}

CString WithoutQuotes(const CString& text) {
  CString out = text;
  out.Remove(u'"');
  return out;
}

}  // namespace

CPath::CPath(const CString& path, int is_folder, int has_arguments) {
  SetPath(path, is_folder, has_arguments);
}

CPath& CPath::operator=(const CString& path) {
  SetPath(path);
  return *this;
}

CPath& CPath::operator=(LPCWSTR path) {
  SetPath(CString(path));
  return *this;
}

void CPath::SetPath(const CString& text, int is_folder, int has_arguments) {
  given_ = UpToNul(text);
  drive_.Empty();
  dir_.Empty();
  title_.Empty();
  ext_.Empty();
  args_.Empty();
  relative_ = false;
  dirs_filled_ = false;
  dirs_.clear();
  args_filled_ = false;
  arg_list_.clear();

  CString work = given_;
  if (has_arguments) {
    // The arguments start behind the first space outside double quotes; a
    // tab belongs to the path.
    int blank = -1;
    bool quoted = false;
    for (int i = 0; i < work.GetLength() && blank < 0; ++i) {
      if (work[i] == u'"') quoted = !quoted;
      if (!quoted && work[i] == u' ') blank = i;
    }
    if (blank >= 0) {
      args_ = work.Mid(blank + 1);
      work = work.Left(blank);
    }
  }
  // Quotes around the whole path go.
  if (!work.IsEmpty() && work[0] == u'"' && work[work.GetLength() - 1] == u'"') {
    work = work.GetLength() == 1 ? CString() : work.Mid(1, work.GetLength() - 2);
  }
  if (work.IsEmpty()) return;

  // Drive, folder, name and extension, as _wsplitpath cuts them.
  if (work.GetLength() >= 2 && work[1] == u':') {
    drive_ = work.Left(2);
    work = work.Mid(2);
  }
  int last_separator = -1;
  for (int i = 0; i < work.GetLength(); ++i) {
    if (IsSeparator(work[i])) last_separator = i;
  }
  dir_ = work.Left(last_separator + 1);
  CString name = work.Mid(last_separator + 1);
  int dot = name.ReverseFind(u'.');
  CString title = dot < 0 ? name : name.Left(dot);
  CString ext = dot < 0 ? CString() : name.Mid(dot);
  dir_.Replace(u'/', u'\\');
  relative_ = !dir_.IsEmpty() && dir_[0] != u'\\';

  if (is_folder) {
    dir_ = AddBackSlash(AddBackSlash(dir_) + title + ext);
    return;
  }
  title_ = title;
  // A name that is all extension (".profile") has no title and so keeps
  // nothing: it is not a file path. Meant as designed.
  if (!title_.IsEmpty() && !ext.IsEmpty()) ext_ = ext.Mid(1);
}

int CPath::SetPath(unsigned long special_folder) {
  CString folder;
  switch (special_folder) {
    case kProgramFolder:
      folder = Locations::GetProgramFolder();
      break;
    case kDataRoot:
      folder = Locations::GetDataRoot();
      break;
    case kProfileFolder:
      folder = Locations::GetProfileFolder();
      break;
    case kDownloadFolder:
      folder = Locations::GetDownloadFolder();
      break;
    case kAutostartFolder:
      folder = Locations::GetAutostartFolder();
      break;
    default:
      break;
  }
  SetPath(folder, 1, 0);
  return folder.IsEmpty() ? 0 : 1;
}

bool CPath::IsLocalPath() const { return !drive_.IsEmpty() && !relative_; }
bool CPath::IsRelativePath() const { return relative_; }
bool CPath::IsFilePath() const { return !title_.IsEmpty(); }

bool CPath::ExistFile() const { return FillFileInfoStruct(); }

bool CPath::ExistLocation() const {
  CString location = GetLocation();
  CString sys = location.IsEmpty() ? CString(".") : ToSystemPath(location);
  return !sys.IsEmpty() && FileSystem::IsFolder(sys);
}

CString CPath::GetAbsolutePath(const CString& base) const {
  CString from = UpToNul(base);
  if (!relative_ || from.IsEmpty()) return CString();
  CString result = Canonicalize(AddBackSlash(from) + GetPath(0, 0));
  if (result.IsEmpty() || result.GetLength() >= kMaxPath) return CString();
  return result;
}

CString CPath::GetRelativePath(const CString& base) const {
  if (relative_) return CString();
  SplitPath from = Split(UpToNul(base));
  CString target = GetPath(0, 0);
  SplitPath to = Split(target);
  // Both must start at the same root: the same drive, the same share, or
  // both at the top of this system's one tree.
  if (!from.rooted && from.root.IsEmpty()) return CString();
  if (from.rooted != to.rooted || from.root.CompareNoCase(to.root) != 0) return CString();
  std::vector<CString> f = ResolveDots(from.parts);
  std::vector<CString> t = ResolveDots(to.parts);
  size_t common = 0;
  while (common < f.size() && common < t.size() && f[common].CompareNoCase(t[common]) == 0) {
    ++common;
  }
  CString result;
  for (size_t i = common; i < f.size(); ++i) {
    if (!result.IsEmpty()) result += u'\\';
    result += "..";
  }
  // Where the way starts in the base folder itself it begins with ".\",
  // and the answer keeps that prefix: the text without it is never used.
  if (result.IsEmpty()) result = ".";
  for (size_t i = common; i < t.size(); ++i) result += u'\\' + t[i];
  if (!IsFilePath() && to.trailing && common < t.size()) result += u'\\';
  return result;
}

CString CPath::GetPath(int with_arguments, int as_given) const {
  CString path = as_given ? given_ : GetLocation() + GetFileName();
  if (with_arguments && !args_.IsEmpty()) path += u' ' + args_;
  return path;
}

CString CPath::GetSystemPath() const { return ToSystemPath(GetPath(0, 0)); }

CString CPath::GetLongPath() const { return ExistFile() ? GetPath(0, 0) : CString(); }
CString CPath::GetShortPath() const { return GetLongPath(); }

CString CPath::GetDrive() const {
  if (!drive_.IsEmpty()) return drive_;
  if (dir_.GetLength() < 2 || dir_[0] != u'\\' || dir_[1] != u'\\') return CString();
  CString server = GetDir(0);
  CString share = GetDir(1);
  return CString::Formatted(u"\\\\%s\\%s\\", server, share);
}

CString CPath::GetDriveLabel(int with_server_name) const {
  if (drive_.IsEmpty() && !GetDrive().IsEmpty() && with_server_name) return GetDir(0);
  return CString();
}

void CPath::FillDirArray() const {
  if (dirs_filled_) return;
  dirs_ = SplitSeparated(dir_);
  dirs_filled_ = true;
}

int CPath::GetDirCount() const {
  FillDirArray();
  return static_cast<int>(dirs_.size());
}

CString CPath::GetDir(int index) const {
  if (index < 0) return dir_;
  FillDirArray();
  return index < static_cast<int>(dirs_.size()) ? dirs_[index] : CString();
}

CString CPath::GetLocation() const { return drive_ + dir_; }
CString CPath::GetFileTitle() const { return title_; }
CString CPath::GetFileName() const { return title_ + GetExtension(); }
CString CPath::GetExtension() const { return ext_.IsEmpty() ? CString() : "." + ext_; }
CString CPath::GetExtName() const { return ext_; }

void CPath::FillArgArray() const {
  if (args_filled_) return;
  arg_list_.clear();
  const int length = args_.GetLength();
  int start = 0;
  while (start < length) {
    while (start < length && IsBlank(args_[start])) ++start;
    if (start >= length) break;
    int end = FirstUnquotedBlank(args_, start);
    if (end < 0) end = length;
    Argument arg;
    arg.text = args_.Mid(start, end - start);
    start = end;
    arg.flag = 0;
    if (arg.text.GetLength() >= 2 && (arg.text[0] == u'/' || arg.text[0] == u'-')) {
      arg.flag = arg.text[0];
      CString body = arg.text.Mid(1);
      int split = body.FindOneOf(":=");
      arg.name = split < 0 ? body : body.Left(split);
      arg.value = split < 0 ? CString() : WithoutQuotes(body.Mid(split + 1));
    } else {
      arg.value = WithoutQuotes(arg.text);
    }
    arg_list_.push_back(std::move(arg));
  }
  args_filled_ = true;
}

void CPath::RebuildArgumentText() {
  args_.Empty();
  for (const Argument& arg : arg_list_) {
    if (!args_.IsEmpty()) args_ += u' ';
    args_ += arg.text;
  }
  // The list is rebuilt from the text, so every part agrees with it.
  args_filled_ = false;
}

int CPath::GetArgCount() const {
  FillArgArray();
  return static_cast<int>(arg_list_.size());
}

CString CPath::GetArgument(int index, int with_flag) const {
  FillArgArray();
  if (index < 0 || index >= static_cast<int>(arg_list_.size())) return CString();
  return with_flag ? arg_list_[index].text : arg_list_[index].value;
}

void CPath::SetArguments(const CString& text) {
  args_ = UpToNul(text);
  args_filled_ = false;
}

void CPath::AddSetArgument(const CString& name, const CString& value) {
  CString bare = UpToNul(name);
  char16_t flag = u'/';
  if (!bare.IsEmpty() && (bare[0] == u'/' || bare[0] == u'-')) {
    flag = bare[0];
    bare = bare.Mid(1);
  }
  if (bare.IsEmpty()) return;
  CString text = CString::Formatted(u"%c%s", flag, bare);
  CString clean = WithoutQuotes(UpToNul(value));
  if (!clean.IsEmpty()) {
    text += u':';
    text += FirstUnquotedBlank(clean) >= 0 ? "\"" + clean + "\"" : clean;
  }
  int index = FindArgument(bare);
  Argument arg{text, flag, bare, clean};
  if (index >= 0) {
    arg_list_[index] = arg;
  } else {
    arg_list_.push_back(arg);
  }
  RebuildArgumentText();
}

int CPath::RemoveArgument(int index) {
  FillArgArray();
  if (index < 0 || index >= static_cast<int>(arg_list_.size())) return 0;
  arg_list_.erase(arg_list_.begin() + index);
  RebuildArgumentText();
  return 1;
}

int CPath::FindArgument(const CString& name) const {
  CString bare = UpToNul(name);
  if (!bare.IsEmpty() && (bare[0] == u'/' || bare[0] == u'-')) bare = bare.Mid(1);
  if (bare.IsEmpty()) return -1;
  FillArgArray();
  for (size_t i = 0; i < arg_list_.size(); ++i) {
    if (arg_list_[i].flag != 0 && arg_list_[i].name.CompareNoCase(bare) == 0) {
      return static_cast<int>(i);
    }
  }
  return -1;
}

bool CPath::FillFileInfoStruct() const {
  info_exists_ = false;
  info_is_file_ = false;
  info_size_ = 0;
  for (CTime& t : info_times_) t = 0;
  std::string sys;
  if (!FileSystem::ToSystemPath(GetSystemPath(), &sys)) return false;
  EnvStat st;
  if (Env::Current()->Stat(sys, /*follow_link=*/true, &st) != ERROR_SUCCESS) return false;
  if (!st.is_file && !st.is_folder) return false;
  info_exists_ = true;
  info_is_file_ = st.is_file;
  info_size_ = st.is_file ? st.size : 0;
  info_times_[kLastWriteTime] = st.last_write;
  info_times_[kCreationTime] = st.change_time;
  info_times_[kLastAccessTime] = st.last_access;
  return true;
}

int CPath::GetFileSize(int64_t& size) const {
  if (!FillFileInfoStruct() || !info_is_file_) return 0;
  size = info_size_;
  return 1;
}

int CPath::GetFileTime(CTime& time, unsigned long which) const {
  if (which > kLastAccessTime || !FillFileInfoStruct()) return 0;
  time = info_times_[which];
  return 1;
}

CString CPath::AddBackSlash(const CString& text, int inverted) {
  CString out = UpToNul(text);
  if (out.IsEmpty() || IsSeparator(out[out.GetLength() - 1])) return out;
  out += inverted ? u'/' : u'\\';
  return out;
}

CString CPath::RemoveBackSlash(const CString& text) {
  CString out = UpToNul(text);
  int keep = out.GetLength();
  while (keep > 0 && IsSeparator(out[keep - 1])) --keep;
  return out.Left(keep);
}

CString CPath::ToSystemPath(const CString& path) {
  CString text = UpToNul(path);
  if (text.IsEmpty()) return CString();
  if (text.GetLength() >= 2 && IsSeparator(text[0]) && IsSeparator(text[1])) {
    return CString();  // a network share: none is reachable here
  }
  if (text.GetLength() >= 2 && text[1] == u':') {
    if (!IsAsciiLetter(text[0])) return CString();
    // "X:" and "X:name" (relative to the drive's own current folder on
    // Windows) both start at the drive's root here.
    CString rest = text.Mid(2);
    if (rest.IsEmpty() || !IsSeparator(rest[0])) rest = u'\\' + rest;
    return Locations::MapDrivePath(text.Left(2) + rest);
  }
  text.Replace(u'\\', u'/');
  return Locations::NormalizePath(text);
}

CPath::operator LPCWSTR() const {
  as_text_ = GetPath(0, 0);
  return as_text_.c_str();
}

}  // namespace kordll
