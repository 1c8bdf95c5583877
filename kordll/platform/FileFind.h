// FileFind: lists the entries of one folder whose names match a wildcard
// mask, as FindFirstFileW / FindNextFileW and MFC's CFileFind did.
//
// Masks use "*" (any run of characters, also none) and "?" (one character)
// and match without regard to ASCII case, as on Windows: "*.dll" matches
// "X.DLL". As on Windows, "*.*" matches every name, also one without a dot,
// and a mask ending in ".*" matches a name equal to the part before it.
// "." and ".." are never listed (they are skipped by name), and symbolic
// links are reported as links and never followed: a link to a folder is not
// a folder, so a walk that descends into folders never leaves its tree.
// Entries come in a fixed order (by name, ignoring ASCII case, then by
// units), whatever order the file system keeps. Names that are not valid
// UTF-8 on disk cannot be named by a CString and are left out.
//
// A FileFind is used by one thread at a time. Nothing throws; failures set
// the calling thread's last error (kordll::GetLastError).
//
// Use, with CFileFind's meaning of FindNextFile (it steps to the next entry
// and answers 0 when that entry is the last one, which is still valid):
//
//   FileFind finder;
//   int working = finder.FindFile(Locations::Join(folder, "*.DLL"));
//   while (working) {
//     working = finder.FindNextFile();
//     if (!finder.IsDirectory()) Load(finder.GetFilePath());
//   }

#ifndef KORDLL_PLATFORM_FILEFIND_H_
#define KORDLL_PLATFORM_FILEFIND_H_

#include <cstdint>
#include <vector>

#include "kordll/platform/CString.h"

namespace kordll {

// One listed entry (what WIN32_FIND_DATAW held).
struct FindEntry {
  CString name;             // the name alone
  bool is_folder = false;   // a real folder, not a link to one
  bool is_symlink = false;  // a symbolic link (to anything, or dangling)
  bool is_file = false;     // a regular file, not a link to one
  int64_t size = 0;         // bytes of a regular file; 0 otherwise
  int64_t last_write = 0;   // modification time, seconds since 1970 (UTC)
  int64_t last_access = 0;  // access time, seconds since 1970 (UTC)
  int64_t change_time = 0;  // status change time, seconds since 1970; Linux
                            // keeps no creation time, so this stands for it
};

class FileFind {
 public:
  FileFind() = default;
  FileFind(const FileFind&) = delete;
  FileFind& operator=(const FileFind&) = delete;

  // Lists `folder` for the names matching `mask`. Answers 1 if at least one
  // entry matched; 0 otherwise, with the last error ERROR_FILE_NOT_FOUND when
  // the folder holds no match and ERROR_PATH_NOT_FOUND (or another code)
  // when it cannot be listed. Either way no entry is current until
  // FindNextFile is called.
  int FindFile(const CString& folder, const CString& mask);
  // The same with one text "folder/mask", split at the last "/" (no "/": the
  // mask alone, in the current folder). An empty text means "*.*" in the
  // current folder.
  int FindFile(const CString& pattern = CString("*.*"));

  // Steps to the next entry. Answers 1 if more entries follow it, and 0 if
  // it is the last (the last error then is ERROR_NO_MORE_FILES) or if there
  // was no entry to step to (then nothing is current).
  int FindNextFile();

  // Forgets the listing.
  void Close();

  // The current entry; empty values when none is current.
  CString GetFileName() const;
  CString GetFilePath() const;  // folder + "/" + name
  CString GetRoot() const;      // the folder listed
  int64_t GetLength() const;
  bool IsDirectory() const;
  bool IsSymlink() const;
  bool IsRegularFile() const;
  // Always false: "." and ".." are never listed. Kept for code that asks.
  bool IsDots() const { return false; }
  const FindEntry* GetEntry() const;

  // All entries of the listing, in order.
  const std::vector<FindEntry>& entries() const { return entries_; }

  // Lists `folder` for `mask` into *out (emptied first). 1 if the folder
  // could be listed (also when nothing matched), 0 if not.
  static int List(const CString& folder, const CString& mask, std::vector<FindEntry>* out);

  // Whether `name` matches the wildcard `mask` (rules above).
  static bool MatchMask(const CString& name, const CString& mask);

 private:
  CString folder_;
  std::vector<FindEntry> entries_;
  int current_ = -1;  // index into entries_, -1 before the first step
};

}  // namespace kordll

#endif  // KORDLL_PLATFORM_FILEFIND_H_
