// CFileFinder: searches a folder, and optionally the folders below it, for
// entries matching a wildcard mask and a set of filters, and keeps the full
// paths of what it found.
//
// The base folder is spelled as the caller likes: a path of this system
// ("/home/ann/skins") is searched and answered with "/" separators; a
// Windows-spelled one ("C:\Skins", "..\skins") with "\" separators, the
// folder itself being the one CPath::ToSystemPath names. A found folder ends
// in the separator. Masks match without regard to ASCII case ("*.DLL" finds
// "x.dll"); symbolic links are reported as entries and never followed, so a
// search never leaves its tree; folders more than 256 levels below the base
// are not searched.
//
// Files carry Windows attributes here: 0x10 a folder, 0x2 hidden (a name
// starting with "."), 0x80 a plain file, 0x400 a symbolic link. The
// attribute filter passes an entry having any of the mask's bits. Times are
// seconds since 1970 (universal time); the "creation" time is the last change
// of the entry's status, the closest this system keeps.
//
// Thread safety: one thread searches; StopSearch may be called from any
// thread (or from the callback) at any time, and GetSearchingFolder too.

#ifndef KORDLL_TOOLKIT_CFILEFINDER_H_
#define KORDLL_TOOLKIT_CFILEFINDER_H_

#include <atomic>
#include <mutex>
#include <vector>

#include "kordll/platform/CString.h"
#include "kordll/toolkit/CPath.h"

namespace kordll {

class CFileFinder {
 public:
  // Filter bits of CFindOpts::flags.
  static constexpr unsigned long kFindLastWriteTime = 0x2;
  static constexpr unsigned long kFindCreationTime = 0x4;
  static constexpr unsigned long kFindLastAccessTime = 0x8;
  static constexpr unsigned long kFindAttributes = 0x10;
  static constexpr unsigned long kFindText = 0x20;

  // Attribute bits.
  static constexpr unsigned long kAttributeHidden = 0x2;
  static constexpr unsigned long kAttributeFolder = 0x10;
  static constexpr unsigned long kAttributeNormal = 0x80;
  static constexpr unsigned long kAttributeLink = 0x400;

  // Callback codes: an entry was added to the list; a folder is being
  // searched (the list's searching folder names it); an entry was passed over
  // by a filter.
  static constexpr unsigned long kCallbackFound = 1;
  static constexpr unsigned long kCallbackFolder = 2;
  static constexpr unsigned long kCallbackDiscarded = 4;

  using Callback = void (*)(CFileFinder* finder, unsigned long code, void* user_data);

  // What one search looks for. A time range includes both ends.
  struct CFindOpts {
    CString base_folder;
    CString file_mask = CString("*.*");
    int recurse = 0;
    unsigned long flags = 0;  // kFind... bits of the active filters
    unsigned long attributes = 0;
    CTime last_write_from = 0, last_write_to = 0;
    CTime creation_from = 0, creation_to = 0;
    CTime last_access_from = 0, last_access_to = 0;
    CString text;  // for kFindText
  };

  CFileFinder() = default;
  CFileFinder(const CFileFinder&) = delete;
  CFileFinder& operator=(const CFileFinder&) = delete;
  virtual ~CFileFinder() = default;

  // Searches `folder` for `mask`, below it too with recurse. Adds what it
  // finds to the list and answers the list's count.
  int FindFiles(const CString& folder, const CString& mask, int recurse = 0);
  // Searches as `opts` says: with recurse the folders below first (each
  // wholly, in name order), then the folder's own entries in name order.
  // Adds to the list and answers its count.
  int Find(CFindOpts& opts);
  // Whether the file at `path` (spelled as for the base folder) holds `text`,
  // compared byte for byte in UTF-8. An empty text is found in any readable
  // file.
  static int FindTextInFile(const CString& path, const CString& text);

  int GetFileCount() const;
  // The index of `path` in the list (exact text), or -1.
  int FindPathItem(const CString& path) const;
  // The path at index, or "" past the end.
  CString GetFilePath(int index) const;
  // The folder being searched (or last searched), with its separator behind.
  CString GetSearchingFolder() const;
  void RemoveAt(int index);
  void RemoveAll();

  // The callback (null for none) and the data handed to it.
  void SetCallback(Callback callback, void* user_data);
  // Ends the running search at every level before its next entry.
  void StopSearch();

 private:
  int FindAt(CFindOpts& opts, int depth);
  void SetSearchingFolder(const CString& folder);

  std::vector<CString> found_;
  std::atomic<bool> stop_{false};
  Callback callback_ = nullptr;
  void* user_data_ = nullptr;
  mutable std::mutex folder_mu_;
  CString searching_folder_;  // guarded by folder_mu_
};

}  // namespace kordll

#endif  // KORDLL_TOOLKIT_CFILEFINDER_H_
