// FileSystem: operations on files and folders by name, with the meaning of
// the Win32 calls they stand for (MoveFileW, CopyFileW, DeleteFileW,
// CreateDirectoryW, RemoveDirectoryW) and a few questions about names.
//
// All members are static and thread-safe. Paths are CString (UTF-16) and are
// used as given: a "\" is an ordinary character of a name. A path that is
// empty, holds U+0000 or a lone surrogate cannot be spelled on disk and is
// refused with ERROR_INVALID_NAME. Nothing throws: operations answer 1 for
// success and 0 for failure, with the calling thread's last error
// (kordll::GetLastError) set to a code of WinError.h. The work is done by
// the installed Env (Env.h), so that a test may keep its files in memory.

#ifndef KORDLL_PLATFORM_FILESYSTEM_H_
#define KORDLL_PLATFORM_FILESYSTEM_H_

#include <cstdint>
#include <string>

#include "kordll/platform/CString.h"
#include "kordll/platform/WinError.h"

namespace kordll {

class FileSystem {
 public:
  FileSystem() = delete;

  // The UTF-8 spelling of `path` for the system. Returns false (and leaves
  // *out empty) for a path that is empty or holds U+0000 or a lone surrogate.
  static bool ToSystemPath(const CString& path, std::string* out);

  // MoveFileW: renames a file or folder. Refuses an existing target (file,
  // folder or link) with ERROR_ALREADY_EXISTS, atomically where the file
  // system allows it. A file may move to another file system (it is copied
  // and the source removed); a folder may not (ERROR_NOT_SAME_DEVICE).
  static int MoveFile(const CString& from, const CString& to);

  // CopyFileW: copies the bytes of the regular file `from` to `to`. With
  // fail_if_exists non-zero an existing target is refused with
  // ERROR_FILE_EXISTS; otherwise it is replaced. A copy onto the source
  // itself is refused (ERROR_SHARING_VIOLATION). On failure a target made
  // by this call is removed again.
  static int CopyFile(const CString& from, const CString& to, int fail_if_exists);

  // DeleteFileW: removes a file (a symbolic link itself, never its target).
  // A folder is refused with ERROR_ACCESS_DENIED.
  static int DeleteFile(const CString& path);

  // CreateDirectoryW: makes one folder. An existing name gives
  // ERROR_ALREADY_EXISTS, a missing parent ERROR_PATH_NOT_FOUND.
  static int CreateDirectory(const CString& path);
  // Makes the folder and any missing parents. 1 if the folder exists at the
  // end (also when it existed before); 0 if a part is a file or cannot be made.
  static int CreateDirectoryTree(const CString& path);

  // RemoveDirectoryW: removes an empty folder (ERROR_DIR_NOT_EMPTY otherwise;
  // a link to a folder is not a folder: ERROR_DIRECTORY).
  static int RemoveDirectory(const CString& path);

  // Removes the folder `path` with everything below it. Symbolic links are
  // removed as links and never followed; "." and ".." are skipped by name.
  // If `path` itself is a link or a file, nothing is removed (ERROR_DIRECTORY);
  // a missing folder gives ERROR_PATH_NOT_FOUND. Goes on past an entry that
  // cannot be removed and answers 1 only if the folder is gone at the end.
  // Folders deeper than 256 levels below `path` are left in place (answer 0).
  static int DeleteFolderTree(const CString& path);

  // CreateSymbolicLinkW: makes `link` a symbolic link holding the text
  // `target` (which need not exist). A taken name gives ERROR_ALREADY_EXISTS.
  static int CreateSymbolicLink(const CString& link, const CString& target);

  // Something (file, folder, link, even a dangling one) has this name.
  static bool Exists(const CString& path);
  // A folder, following a link at the name.
  static bool IsFolder(const CString& path);
  // A regular file, following a link at the name.
  static bool IsFile(const CString& path);
  // A symbolic link, not followed.
  static bool IsSymlink(const CString& path);
  // The size of the regular file at the path (links followed), or -1.
  static int64_t GetFileSize(const CString& path);

  // Whether a new file could be made under this name: true only if nothing
  // at all has it. A folder, a file or a link (even a dangling one) makes the
  // name taken, as does a name that cannot be looked at.
  static bool IsNameFree(const CString& path);

  // Reads the whole regular file at `path` into *out. Fails (0) for files
  // larger than max_bytes (ERROR_NOT_ENOUGH_MEMORY), leaving *out empty.
  static int ReadWholeFile(const CString& path, std::string* out,
                           int64_t max_bytes = int64_t{256} << 20);
  // Makes or replaces the file at `path` with `bytes`. 1 or 0.
  static int WriteWholeFile(const CString& path, std::string_view bytes);

  // Makes a fresh folder "<system temp folder>/<prefix>XXXXXX" (the temp
  // folder is $TMPDIR, else /tmp) and stores its path in *out. 1 or 0.
  static int CreateTempFolder(const CString& prefix, CString* out);
};

}  // namespace kordll

#endif  // KORDLL_PLATFORM_FILESYSTEM_H_
