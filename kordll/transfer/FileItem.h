// FileItem: the record of one downloadable or downloaded file (relation 18,
// "file").
//
// The GUID is the file's address (decoded), so one address is one entry.
// What the entry has come to is told by its status word (the kFile... bits
// below); the file itself, once downloaded, lies in the download folder
// under the name in field 5.
//
// Every use of a stored file name goes through SafeSavePath, which answers
// "" for a name that would lead out of the download folder (a name with "/"
// or "..", say, from a damaged list or a hostile server): such a name is
// never opened, copied or deleted.
//
// Thread safety: as Focusable; a thread must hold the record while it reads
// or writes fields.

#ifndef KORDLL_TRANSFER_FILEITEM_H_
#define KORDLL_TRANSFER_FILEITEM_H_

#include "kordll/platform/CPoint.h"
#include "kordll/platform/CString.h"
#include "kordll/record/Focusable.h"

namespace kordll {

class IIPanel;

constexpr int kFileRelation = 18;

// Fields of a file record.
constexpr int kFileFieldFirstSeen = 2;
constexpr int kFileFieldPublished = 3;
constexpr int kFileFieldSaveName = 5;
constexpr int kFileTitleField = 6;
constexpr int kFileFieldSource = 7;
constexpr int kFileFieldSourcePost = 8;
constexpr int kFileFieldType = 9;
constexpr int kFileFieldSize = 10;
constexpr int kFileFieldDownloaded = 11;
constexpr int kFileFieldDescription = 12;

// Status bits of a file record.
constexpr int kFileUnseen = 2;
constexpr int kFileDeleted = 8;
constexpr int kFileEntryOnly = 32;
constexpr int kFileDownloading = 64;
constexpr int kFileDownloaded = 128;
constexpr int kFileFailed = 256;
constexpr int kFilePaused = 512;
constexpr int kFilePausedToo = 1024;  // read as paused; folded into 512 at start-up
constexpr int kFileNoCheck = 2048;    // start-up checks the file only when downloaded
constexpr int kFileNotFound = 4096;   // the server answered 404

// The image both image questions answer.
constexpr int kFileImage = 24;

// What the main panel is asked to show (message 1039): a file's report.
constexpr int kViewCommandFileReport = 1116;

class FileItem : public Focusable {
 public:
  FileItem();
  // Copies the fields; holders and database are not copied.
  FileItem(const FileItem& other);
  FileItem& operator=(const FileItem& other);
  ~FileItem() override;

  // Downloaded (128): opens the file with the host and tells the user, by a
  // system talk, why it could not be opened. Otherwise asks the main panel
  // to show the file's report. Returns 1.
  int OpenFocusable() override;
  // Offers the file's context menu (command 29300) to the controllers; the
  // menu is right-aligned at the point unless leftAligned. Returns 1.
  int OpenFocusableProperties(CPoint point, IIPanel* panel, int leftAligned) override;
  int GetStatusImage() override;
  int GetFocusableImage() override;

  // Field 5: the name the file was saved under.
  CString GetFileName();
  void SetFileName(CString name);
  // The address: the GUID.
  CString GetFileWebPath();
  // The downloaded file: with status 128, the download folder and the name;
  // otherwise "" (also for a name that leads out of the folder).
  CString GetFileSavePath();

  // The path of name inside the download folder, or "" when name is empty
  // or the path would not lie inside it.
  static CString SafeSavePath(const CString& name);
};

}  // namespace kordll

#endif  // KORDLL_TRANSFER_FILEITEM_H_
