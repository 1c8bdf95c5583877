// SkinFile: a skin container (".tsf"): a description of three header texts
// and any number of named binary entries, such as images.
//
// Layout (all text UTF-16 little-endian, no byte order mark; the container's
// path is the directory, "//" and the file name):
//
//   offset 0, 1,000 bytes   header record "[%s|%s|%s]" and a NUL, NUL padding
//   offset 1,000, 200 bytes entry record "[%s|%d]" (name, size in bytes) and a
//                           NUL, NUL padding
//   then                    the entry's bytes as they are
//   ...                     further entry records and bytes to the end
//
// The reader is stricter than the writer, and meant to be: it takes a header
// only when it splits into exactly four values (the fourth is counted, never
// stored), and an entry record only when the read of its 200 bytes brings
// exactly 100. So a container written by FlushSkin is not read back by
// ParseSkinFile unless one of its texts holds a separator ("[", "|" or "]").
//
// Names taken from a container are checked when an entry is exported, not
// when it is read: an empty name, a name holding "/", "\" or U+0000, "." and
// "..", and a name starting with "~" are never exported, so that an export
// stays inside the folder it was given.
//
// Thread safety: a SkinFile belongs to one thread.

#ifndef KORDLL_SETTINGS_SKINFILE_H_
#define KORDLL_SETTINGS_SKINFILE_H_

#include <cstdint>
#include <map>
#include <vector>

#include "kordll/platform/CString.h"

namespace kordll {

// Why a container was refused, and where: filled by ParseSkinFile when the
// caller asks for it (tools and tests); the object's behaviour is the same.
struct SkinParseReport {
  CString reason;       // empty after a parse that answered 1
  int64_t offset = -1;  // offset of the record or block in question
  int entries = 0;      // entries stored by this parse
};

class SkinFile {
 public:
  // These sizes are written to disk and should not be changed.
  static constexpr int kHeaderRecordSize = 1000;
  static constexpr int kEntryRecordSize = 200;
  // The only read count of an entry record that the reader accepts.
  static constexpr int kEntryRecordReadSize = 100;

  // An empty container (ClearSkin).
  SkinFile();
  ~SkinFile();

  SkinFile(const SkinFile&) = delete;
  SkinFile& operator=(const SkinFile&) = delete;

  // Reads directory + "//" + fileName into this object. Answers 1 for a
  // container the reader accepts (its header texts, file name, directory
  // and entries stored), 0 otherwise. The object is not emptied first: a
  // failed parse leaves what it stored so far (header texts, entries read
  // before the failure) until ClearSkin. An entry whose size is not positive
  // or exceeds what is left of the file is refused (0), so that no size
  // taken from a file allocates more than the file holds. An empty folder or
  // name names no container (0).
  int ParseSkinFile(CString fileName, CString directory);
  // The same, telling why it refused and where (report may be null).
  int ParseSkinFile(CString fileName, CString directory, SkinParseReport* report);

  // Writes the object to directory + "//" + file name, creating the file
  // anew: the header record, then each entry in the order of its name
  // (entries with an empty name or no bytes are left out). Each record is
  // cleared whole before its text is put in. If the header text or an entry
  // record does not fit its record (a NUL must follow the text), nothing is
  // written and an existing file stays as it was; if the file cannot be
  // created (an empty folder or file name among the reasons), nothing
  // happens.
  void FlushSkin();

  // Writes the entry's bytes to directory + "//" + entryName. Answers 1 if
  // all were written; 0 for an empty directory, an unknown entry, a name
  // that would leave the folder (see above) or a failed write.
  int ExportSkinFile(CString entryName, CString directory);
  // Exports every entry in the same way, passing over those that fail.
  // Answers 0 for an empty directory, else 1.
  int ExportAllSkinFiles(CString directory);

  // Sets all six texts to empty and drops every entry.
  void ClearSkin();

  // Puts `size` bytes under `entryName` (replacing an entry of that name),
  // as a skin maker fills a container before FlushSkin. Answers 0 for an
  // empty name or a negative size, else 1.
  int AddSkinEntry(CString entryName, const void* bytes, int size);

  // The header texts (index 0 to 3; the fourth stays empty after a parse).
  // Any other index answers an empty text.
  CString GetHeaderText(int index) const;
  void SetHeaderText(int index, CString text);
  CString GetFileName() const { return file_name_; }
  CString GetDirectory() const { return directory_; }
  void SetFileName(CString fileName) { file_name_ = fileName; }
  void SetDirectory(CString directory) { directory_ = directory; }

  // Entry names in order, and one entry's size and bytes (-1 and null for
  // an unknown name; the bytes belong to this object).
  std::vector<CString> GetEntryNames() const;
  int GetEntrySize(const CString& entryName) const;
  const std::vector<uint8_t>* GetEntry(const CString& entryName) const;

  // True for a name that an export may use as a file name in its folder.
  static bool IsExportableEntryName(const CString& entryName);

 private:
  CString header_[4];
  CString file_name_;
  CString directory_;
  // Sorted by name, so that the same skin always writes the same bytes.
  std::map<CString, std::vector<uint8_t>> entries_;
  std::map<CString, int> entry_sizes_;
};

}  // namespace kordll

#endif  // KORDLL_SETTINGS_SKINFILE_H_
