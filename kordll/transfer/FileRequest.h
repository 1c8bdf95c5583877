// FileRequest: the record of one network or file request, and the contract
// between the library and the application's network side.
//
// Whoever wants a transfer fills a request (the address, the folder to save
// into, the flags) and hands it to the network side with one Reserve. The
// network side carries the transfer out: it fills the status members (HTTP
// status or network error code, sizes, the server's date), writes every
// block it receives through SaveContent, and ends with one of the Send...
// operations, which post (or send) the request back to its reply thread (or
// reply window). The handler of that message calls Release exactly once.
//
// A multi-part transfer uses one child request per segment (made with the
// source constructor, parentRequest set by the network side): every child
// writes through its parent's single open file, the partial file named after
// the full path with ".spawn" added, as a row of slots: a 50-byte header
// holding the UTF-16 text "start:reached:end", then that segment's data. The
// parent of a multi-part transfer carries kRequestFlagNoSeekToEnd. Joining
// the segments into the final file is the network side's work.
//
// References: the count starts at 1, and that 1 stands for no holder. The
// Release that leaves the count at 1 or less deletes the request, so a
// request created and reserved once dies at its first Release. A holder
// never calls Release twice. Never delete a request directly once handed on.
//
// File names: a name derived from the address never leaves the folder: "/",
// "\", ":", U+0000 and control characters become "_", a name that is then
// empty, "." or ".." becomes "download", and a name too long for the file
// system is shortened (its extension kept).
//
// Thread safety: the reference count and the open file are guarded by the
// request's own lock, so the network thread and the handler may use them
// at once. The other members are set up by the creator and afterwards used
// by the network side and the handler in turn, never at the same time.

#ifndef KORDLL_TRANSFER_FILEREQUEST_H_
#define KORDLL_TRANSFER_FILEREQUEST_H_

#include <cstdint>

#include "kordll/platform/CCriticalSection.h"
#include "kordll/platform/CString.h"
#include "kordll/platform/MessageQueue.h"

namespace kordll {

class CWinThread;
class CWnd;
class WinFile;

// Messages that bring a request back, with wParam 0 and lParam the request.
// They are exchanged with the applications: these numbers must not change.
constexpr unsigned kMsgDownloadFinished = 32978;  // SendFinishedMessage
constexpr unsigned kMsgDownloadAborted = 32979;   // SendAbortMsg
constexpr unsigned kMsgDownloadPaused = 32982;    // SendPausedMessage
constexpr unsigned kMsgDownloadResumed = 32983;   // SendResumedMessage

// Commands offered to the network side through the registry of controllers
// (GlobalResourceCtrl::InterpretGUICommand, second argument 0).
constexpr int kCommandStartTransfer = 29670;   // object: the FileRequest*, reserved once
constexpr int kCommandPauseTransfer = 29671;   // text: the address
constexpr int kCommandResumeTransfer = 29672;  // text: the address
constexpr int kCommandCancelTransfer = 29673;  // text: the address
constexpr int kCommandShowNetworkSettings = 29675;

// Bits of requestFlags.
constexpr int kRequestFlagSaveToFile = 0x20;
// Blocks are written where the file's position is, not at its end.
constexpr int kRequestFlagNoSeekToEnd = 0x40;
// What a download of a file entry asks for: saved to a file, each block
// written at the file's end (bit 2 is the network side's).
constexpr int kRequestFlagsFileDownload = 0x22;

// The size of each segment header of the ".spawn" partial file. Written to
// disk: must not change.
constexpr int kSegmentHeaderSize = 50;
// What the partial file of a multi-part transfer adds to the full path.
constexpr char16_t kPartialFileSuffix[] = u".spawn";

class FileRequest {
 public:
  // Every member at its default, reference count 1. With a source, a child
  // request: it takes over the source's flags and ints, its reply thread,
  // reserved target and reply window, its names (file name, extension,
  // folder, task name, full path, base name, address and inheritedTexts),
  // its segment start, end, base and slot, and its received, reported and
  // total sizes; its segment written starts at the source's segment start.
  // The status members stay at their defaults, and the open file and the
  // parent request stay null (the network side sets parentRequest).
  explicit FileRequest(FileRequest* source = nullptr, int ownerValue = 0);
  // A request holds its lock and its open file: it is never copied.
  FileRequest(const FileRequest&) = delete;
  FileRequest& operator=(const FileRequest&) = delete;
  // Closes the open file, if any; frees contentBuffer with free() when
  // bufferOwned is set.
  virtual ~FileRequest();

  // Adds a holder. Any thread.
  void Reserve();
  // Takes a holder away. While the count stays above 1 answers 0; otherwise
  // deletes the request and answers 1. Any thread.
  int Release();
  // The current count (for diagnostics and tests).
  int GetReferenceCount();

  // 1 when the request saves to a file: flag kRequestFlagSaveToFile, or a
  // folder is given. (The default flags, -1, have every bit set.)
  int WillBeSaved() const;
  // 1 for a request of the scheduler (periodicID above 0).
  int IsPeriodicRequest() const;
  // The task name, or else GetFileToSave.
  CString GetRequestTaskName();

  // The name to save under, chosen once and kept in fileName. "" when the
  // request is not saved. Without a file name yet: base name and extension
  // come from the last part of the address unless both were preset (the
  // part before its last "." and the part after it; without a "." they
  // stay as they were; an address without "/" becomes the base name), the
  // extension gains a leading "." if it lacks one, and the first name of
  // "base.ext", "base(1).ext" ... "base(9999).ext" that nothing in the
  // folder has yet is taken (after 10000 the last stands). Sets baseName,
  // fileName and fullPath.
  CString GetFileToSave();
  // The path to save at: fullPath, made by GetFileToSave when empty. ""
  // when the request is not saved.
  CString GetFullFilePath2Save();

  // Writes one received block. For a child (parentRequest set) the block
  // goes through the parent as a segment write with this child's segment
  // values, and segmentWritten grows by length. Otherwise, under the lock:
  // opens the file on first use (GetFullFilePath2Save, plus ".spawn" when
  // asSegment is set; made if missing, never emptied); for a segment write
  // rewrites the 50-byte header at slot with "start:written+length+base:end"
  // and moves to slot + 50 + written; unless kRequestFlagNoSeekToEnd is set
  // moves to the end of the file; then writes the data. Answers 1, or 0 when
  // the file could not be opened or the write failed (nothing is thrown).
  int SaveContent(const void* data, uint64_t length, uint64_t written = 0, uint64_t slot = 0,
                  uint64_t base = 0, uint64_t start = 0, uint64_t end = 0, int asSegment = 0);
  // Closes the open file, if any.
  void CloseSavedFile();
  // Closes the open file and deletes the file at GetFullFilePath2Save.
  void DeleteSavedFile();
  // 1 while a file is open (for the network side and tests).
  int HasSavedFile();

  // Hands the request back with message: posted to the reply thread, or
  // else sent to the reply window (which runs the handler before this
  // returns). Refused (0) while the registry of controllers is not valid,
  // unless force is set. 1 when posted or sent; 0 otherwise, and the
  // request then still belongs to the caller.
  int SendRequest(unsigned message, int force);
  // As SendRequest with kMsgDownloadAborted, but refused once finished is
  // set, and sent to a reply window only when httpStatus is not 0.
  int SendAbortMsg(int force);
  int SendFinishedMessage();
  int SendPausedMessage(int force);
  int SendResumedMessage();

  // httpStatus in words ("Requested file not found." for 404); "" for a
  // status without words.
  CString GetHTTPStatusString() const;

  // Where the messages go. Setting a thread or window also remembers its id
  // or handle, so that a message to one that has ended is refused (0)
  // rather than delivered to a dead object.
  void SetReplyThread(CWinThread* thread);
  CWinThread* GetReplyThread() const { return replyThread_; }
  void SetReplyWindow(CWnd* window);
  CWnd* GetReplyWindow() const { return replyWindow_; }

  // --- The record's members, in the order of the network contract --------

  uint64_t reportedSize = 0;  // the size the server reported for this response
  uint64_t totalSize = 0;     // the expected size of the whole file
  uint64_t receivedSize = 0;  // bytes received so far
  CString responseDate;       // the server's date of the content, as text
  CString responseText2;      // the network side's; not read in the library
  // The body when it is kept in memory; freed with free() by the destructor
  // when bufferOwned is set.
  void* contentBuffer = nullptr;
  // The server's or network side's reason; "Request canceled" for a cancel.
  CString statusText;
  // The HTTP status, 0 for an aborted request, or a network error code
  // (12002 timed out, 12004 internal error, 12005 bad address, 12007 name
  // not resolved, ...).
  int httpStatus = 0;
  int finished = 0;  // set once the request has ended: SendAbortMsg refuses then
  int bufferOwned = 0;
  int isFileTransfer = 0;                // 1 for a download of a file entry
  CString inheritedTexts[2];             // copied to child requests; not read in the library
  CString fileName;                      // base name and extension as finally chosen
  CString baseName;                      // may be preset
  CString extension;                     // may be preset, with or without its "."
  CString folder;                        // the folder to save into, no trailing separator
  CString fullPath;                      // folder "/" file name; may be preset
  CString url;                           // the address; the GUID of the file entry
  CString networkTexts[2];               // the network side's; not read in the library
  CString taskName;                      // the transfer's shown name
  CString moreNetworkTexts[5];           // the network side's; not read in the library
  int networkInt1 = -1;                  // the network side's; not read in the library
  int requestFlags = -1;                 // kRequestFlag... bits
  int networkInts[3] = {0, -1, 5};       // the network side's; not read in the library
  int networkInt4 = -1;                  // the network side's; not read in the library
  int periodicID = -1;                   // above 0 for a request of the scheduler
  int ownerValue = 0;                    // the constructor's second argument
  uint64_t segmentStart = 0;             // first number of the segment header
  uint64_t segmentEnd = 0;               // third number of the segment header
  uint64_t segmentWritten = 0;           // bytes of this segment written so far
  uint64_t segmentBase = 0;              // added to the written count in the header
  uint64_t segmentSlot = 0;              // where this segment's header lies in the partial file
  FileRequest* parentRequest = nullptr;  // for a segment's child; not owned
  int networkInt5 = 1;                   // the network side's; not read in the library
  void* reservedTarget = nullptr;        // carried, never used

 private:
  int OpenSavedFile(int asSegment) REQUIRES(lock_);

  CWinThread* replyThread_ = nullptr;  // not owned
  unsigned replyThreadId_ = 0;
  CWnd* replyWindow_ = nullptr;  // not owned
  HWND replyHwnd_ = 0;

  // Lock order: a request's lock is taken after its child's (a segment
  // write enters the parent while the child's data are in use), and
  // nothing else is entered while it is held.
  CCriticalSection lock_;
  int referenceCount_ GUARDED_BY(lock_) = 1;
  WinFile* savedFile_ GUARDED_BY(lock_) = nullptr;  // owned
};

}  // namespace kordll

#endif  // KORDLL_TRANSFER_FILEREQUEST_H_
