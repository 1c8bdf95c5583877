// CPath: one path, or one command line, taken apart into drive, folders,
// file title, extension and arguments, with Windows meaning.
//
// A path here is written as on Windows: "\" and "/" both separate folders
// (every "/" of the folder part reads as "\"), "X:" at the start is a drive,
// "\\server\share\" a network path. The parts are what _wsplitpath made of
// them; nothing is checked against the disk until a question about the disk
// is asked (ExistFile, GetFileSize, ...). Those questions go to the file on
// this system that GetSystemPath names:
//   - a drive path "X:\rest" is <data root>/drive_x/rest ("C:\Tidrel
//     Downloads\" is the download folder), as everywhere in the library;
//   - a path rooted at "\" or "/" is the same path from this system's root;
//   - a relative path is taken from the process's working folder;
//   - a network path names no file here.
//
// Arguments follow the path after the first space that is not inside double
// quotes. They are split at spaces outside quotes. An argument that starts
// with "/" or "-" is a switch: its name runs to the first ":" or "=", and
// what follows is its value ("/size:10", "-mode=fast"); any other argument is
// a plain value. Quotes around a value are not part of it.
//
// Text is taken up to its first U+0000, as a wide C string is. Nothing
// throws; texts of any length are accepted.
//
// Not thread-safe: one thread at a time per object.

#ifndef KORDLL_TOOLKIT_CPATH_H_
#define KORDLL_TOOLKIT_CPATH_H_

#include <cstdint>
#include <vector>

#include "kordll/platform/CString.h"

namespace kordll {

using LPCWSTR = const char16_t*;
// A moment as seconds since 1 January 1970, universal time.
using CTime = int64_t;

class CPath {
 public:
  // The special folders SetPath(unsigned long) knows.
  static constexpr unsigned long kProgramFolder = 1;    // the running program's folder
  static constexpr unsigned long kDataRoot = 2;         // where user data lies
  static constexpr unsigned long kProfileFolder = 3;    // the application profile's folder
  static constexpr unsigned long kDownloadFolder = 4;   // where downloads go
  static constexpr unsigned long kAutostartFolder = 5;  // programs started at log-in

  // Which time GetFileTime reads.
  static constexpr unsigned long kLastWriteTime = 0;
  static constexpr unsigned long kCreationTime = 1;  // the last change of the file's status here
  static constexpr unsigned long kLastAccessTime = 2;

  CPath() = default;
  explicit CPath(const CString& path, int is_folder = 0, int has_arguments = 0);
  CPath(const CPath& other) = default;
  CPath& operator=(const CPath& other) = default;
  CPath& operator=(const CString& path);
  CPath& operator=(LPCWSTR path);
  virtual ~CPath() = default;

  // Takes `text` apart. With is_folder the whole text names a folder (its
  // last part too, extension and all); with has_arguments the text is a
  // command line whose arguments are kept apart. Surrounding quotes of the
  // path are dropped.
  void SetPath(const CString& text, int is_folder = 0, int has_arguments = 0);
  // Sets the path to one of the special folders (k...Folder above), as a
  // folder. Answers 1, or 0 with the path emptied for an unknown id or a
  // folder this system does not have.
  int SetPath(unsigned long special_folder);

  // A drive is given and the folder part is not relative.
  bool IsLocalPath() const;
  // The folder part is given and does not start with "\". A bare file name
  // has no folder part and so is not relative, as designed.
  bool IsRelativePath() const;
  // A file title is given.
  bool IsFilePath() const;
  // A regular file, or a folder, is at the path's place on this system.
  bool ExistFile() const;
  bool ExistLocation() const;

  // For a relative path and a non-empty base folder: the base, "\", and the
  // path, with "." and ".." parts worked out (".." stops at the root). "" in
  // every other case, and when the result would be MAX_PATH (260) units or
  // longer.
  CString GetAbsolutePath(const CString& base) const;
  // For a path that is not relative: the way from the folder `base` to this
  // path, as "..\..\dir\file.ext" or ".\file.ext" (the ".\" is kept). "" for
  // a relative path, or when base and path share no root.
  CString GetRelativePath(const CString& base) const;

  // The text as given (as_given) or the location and file name; with
  // with_arguments the argument text follows after a space.
  CString GetPath(int with_arguments = 0, int as_given = 0) const;
  // The path as this system spells it (see the file comment): "" for a
  // network path or an empty one.
  CString GetSystemPath() const;
  // There are no short (8.3) names here: both answer GetPath(0, 0) when
  // something is at the path, and "" when nothing is.
  CString GetLongPath() const;
  CString GetShortPath() const;

  // "X:" for a drive path, "\\server\share\" for a network path, else "".
  CString GetDrive() const;
  // Volumes carry no labels here: for a network path the server's name when
  // with_server_name is set; "" otherwise.
  CString GetDriveLabel(int with_server_name = 0) const;
  // The folders of the folder part, in order (empty parts skipped).
  int GetDirCount() const;
  // One folder; a negative index gives the whole folder part, an index past
  // the end "".
  CString GetDir(int index = -1) const;
  // Drive and folder part.
  CString GetLocation() const;
  CString GetFileTitle() const;
  // File title and GetExtension.
  CString GetFileName() const;
  // "." and the extension, or "" without one.
  CString GetExtension() const;
  // The extension without its ".".
  CString GetExtName() const;

  int GetArgCount() const;
  // The argument at index as written (with_flag set) or its value alone
  // (without the switch's flag and name, and without quotes); "" past the end.
  CString GetArgument(int index, int with_flag = 1) const;
  // Replaces all arguments with those of `text`.
  void SetArguments(const CString& text);
  // Gives the switch `name` (with or without its "/" or "-") the value
  // `value` ("" for none), adding it as " /name:value" when it is not there
  // yet. A value holding a space is quoted.
  void AddSetArgument(const CString& name, const CString& value);
  // Removes the argument at index. 1, or 0 past the end.
  int RemoveArgument(int index);
  // The index of the switch named `name` (with or without its flag, ASCII
  // case ignored), or -1.
  int FindArgument(const CString& name) const;

  // The size of the regular file at the path: 1 with *size set, or 0.
  int GetFileSize(int64_t& size) const;
  // One time of the file or folder at the path (kLastWriteTime, ...): 1 with
  // time set, or 0.
  int GetFileTime(CTime& time, unsigned long which = kLastWriteTime) const;

  // text with a "\" (with inverted, a "/") behind it unless it already ends
  // in "\" or "/". "" stays "".
  static CString AddBackSlash(const CString& text, int inverted = 0);
  // text without its trailing "\" or "/" characters.
  static CString RemoveBackSlash(const CString& text);
  // The file on this system that a Windows-spelled path names (see the file
  // comment); "" for a network path or an empty text.
  static CString ToSystemPath(const CString& path);

  // GetPath(0, 0); the pointer stays valid until this object changes.
  operator LPCWSTR() const;

 private:
  struct Argument {
    CString text;   // as written
    char16_t flag;  // '/' or '-' for a switch, 0 for a plain value
    CString name;   // a switch's name
    CString value;  // without quotes
  };

  void FillDirArray() const;
  void FillArgArray() const;
  // Reads what the disk says of the path, afresh at every question; false
  // when nothing is there.
  bool FillFileInfoStruct() const;
  void RebuildArgumentText();

  CString given_;  // the text as given
  CString drive_;  // "X:" or ""
  CString dir_;    // folder part, "\" separated
  CString title_;  // file name without extension
  CString ext_;    // extension without "."
  CString args_;   // argument text
  bool relative_ = false;

  // Filled on demand.
  mutable bool dirs_filled_ = false;
  mutable std::vector<CString> dirs_;
  mutable bool args_filled_ = false;
  mutable std::vector<Argument> arg_list_;
  mutable bool info_exists_ = false;
  mutable bool info_is_file_ = false;
  mutable int64_t info_size_ = 0;
  mutable CTime info_times_[3] = {0, 0, 0};
  mutable CString as_text_;  // what the conversion to LPCWSTR points into
};

}  // namespace kordll

#endif  // KORDLL_TOOLKIT_CPATH_H_
