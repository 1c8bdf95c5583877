#include "kordll/transfer/FileRequest.h"

#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>

#include "kordll/control/GlobalResourceCtrl.h"
#include "kordll/platform/CWinThread.h"
#include "kordll/platform/CWnd.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/platform/Locations.h"
#include "kordll/platform/WinFile.h"

namespace kordll {

namespace {

// The longest file name the file systems take, in bytes of UTF-8.
constexpr int kMaxNameBytes = 255;
// What a numbered candidate adds at most: "(9999)".
constexpr int kNumberBytes = 6;
// An extension longer than this is cut, so that the name keeps some base.
constexpr int kMaxExtensionBytes = 64;
constexpr int kMaxCandidates = 10000;

bool IsHighSurrogate(char16_t c) { return c >= 0xD800 && c <= 0xDBFF; }
bool IsLowSurrogate(char16_t c) { return c >= 0xDC00 && c <= 0xDFFF; }

// A name part from an address with every unit that could leave the folder
// or that no file system spells made "_": separators, ":", U+0000, control
// characters and lone surrogates.
CString ReplaceUnsafeUnits(const CString& text) {
  std::u16string out;
  const int length = text.GetLength();
  out.reserve(static_cast<size_t>(length));
  for (int i = 0; i < length; ++i) {
    const char16_t c = text[i];
    if (IsHighSurrogate(c) && i + 1 < length && IsLowSurrogate(text[i + 1])) {
      out.push_back(c);
      out.push_back(text[++i]);
      continue;
    }
    const bool unsafe = c == u'/' || c == u'\\' || c == u':' || c < 0x20 ||
                        (c >= 0x7F && c <= 0x9F) || IsHighSurrogate(c) || IsLowSurrogate(c);
    out.push_back(unsafe ? u'_' : c);
  }
  return CString(std::move(out));
}

// The longest start of text whose UTF-8 form takes at most max_bytes,
// never splitting a surrogate pair.
CString CutToBytes(const CString& text, int max_bytes) {
  int bytes = 0;
  int i = 0;
  const int length = text.GetLength();
  while (i < length) {
    const char16_t c = text[i];
    int units = 1;
    int size = c < 0x80 ? 1 : c < 0x800 ? 2 : 3;
    if (IsHighSurrogate(c) && i + 1 < length && IsLowSurrogate(text[i + 1])) {
      units = 2;
      size = 4;
    }
    if (bytes + size > max_bytes) break;
    bytes += size;
    i += units;
  }
  return text.Left(i);
}

int Utf8Bytes(const CString& text) { return static_cast<int>(text.ToUtf8().size()); }

}  // namespace

FileRequest::FileRequest(FileRequest* source, int ownerValueIn) : ownerValue(ownerValueIn) {
  if (source == nullptr) return;
  networkInt5 = source->networkInt5;
  networkInt1 = source->networkInt1;
  requestFlags = source->requestFlags;
  for (int i = 0; i < 3; ++i) networkInts[i] = source->networkInts[i];
  networkInt4 = source->networkInt4;
  periodicID = source->periodicID;
  replyThread_ = source->replyThread_;
  replyThreadId_ = source->replyThreadId_;
  reservedTarget = source->reservedTarget;
  replyWindow_ = source->replyWindow_;
  replyHwnd_ = source->replyHwnd_;
  fileName = source->fileName;
  extension = source->extension;
  folder = source->folder;
  taskName = source->taskName;
  fullPath = source->fullPath;
  baseName = source->baseName;
  url = source->url;
  inheritedTexts[0] = source->inheritedTexts[0];
  inheritedTexts[1] = source->inheritedTexts[1];
  segmentStart = source->segmentStart;
  segmentEnd = source->segmentEnd;
  segmentBase = source->segmentBase;
  segmentSlot = source->segmentSlot;
  // A child counts its segment from where the source's segment starts.
  segmentWritten = source->segmentStart;
  receivedSize = source->receivedSize;
  reportedSize = source->reportedSize;
  totalSize = source->totalSize;
}

FileRequest::~FileRequest() {
  {
    CSingleLock hold(lock_);
    if (savedFile_ != nullptr) {
      savedFile_->Close();
      delete savedFile_;
      savedFile_ = nullptr;
    }
  }
  if (bufferOwned != 0 && contentBuffer != nullptr) std::free(contentBuffer);
}

void FileRequest::Reserve() {
  CSingleLock hold(lock_);
  ++referenceCount_;
}

int FileRequest::Release() {
  bool destroy;
  {
    CSingleLock hold(lock_);
    --referenceCount_;
    // The creator's count of 1 holds nothing: the holder that brings the
    // count back to 1 is the last one.
    destroy = referenceCount_ <= 1;
  }
  if (!destroy) return 0;
  delete this;
  return 1;
}

int FileRequest::GetReferenceCount() {
  CSingleLock hold(lock_);
  return referenceCount_;
}

int FileRequest::WillBeSaved() const {
  return ((requestFlags & kRequestFlagSaveToFile) != 0 || !folder.IsEmpty()) ? 1 : 0;
}

int FileRequest::IsPeriodicRequest() const { return periodicID > 0 ? 1 : 0; }

CString FileRequest::GetRequestTaskName() {
  if (!taskName.IsEmpty()) return taskName;
  return GetFileToSave();
}

namespace {

// The folder a request saves into: a drive path of the data is mapped to its
// place here, and a request without a folder saves into the download folder
// rather than into whatever folder the process runs in.
CString SaveFolder(const CString& folder) {
  if (folder.IsEmpty()) return Locations::GetDownloadFolder();
  return Locations::MapDrivePath(folder);
}

}  // namespace

CString FileRequest::GetFileToSave() {
  if (WillBeSaved() == 0) return CString();
  if (!fileName.IsEmpty()) return fileName;

  if (baseName.IsEmpty() || extension.IsEmpty()) {
    const int slash = url.ReverseFind(u'/');
    if (slash >= 0) {
      const CString last = url.Mid(slash + 1);
      const int dot = last.ReverseFind(u'.');
      if (dot >= 0) {
        baseName = last.Left(dot);
        extension = last.Mid(dot + 1);
      }
      // Without a "." both stay as they were (the name may end up empty).
    } else {
      baseName = url;
    }
  }
  if (!extension.IsEmpty() && extension.Find(u'.') < 0) extension = CString(u".") + extension;

  // Whatever the address held, the name stays one plain name of the folder.
  CString base = ReplaceUnsafeUnits(baseName);
  CString ext = ReplaceUnsafeUnits(extension);
  const CString whole = base + ext;
  if (whole.IsEmpty() || whole == CString(u".") || whole == CString(u"..")) {
    base = CString(u"download");
    ext.Empty();
  }
  if (Utf8Bytes(ext) > kMaxExtensionBytes) ext = CutToBytes(ext, kMaxExtensionBytes);
  const int baseRoom = kMaxNameBytes - kNumberBytes - Utf8Bytes(ext);
  if (Utf8Bytes(base) > baseRoom) base = CutToBytes(base, baseRoom);
  if (base.IsEmpty() && (ext.IsEmpty() || ext == CString(u"."))) base = CString(u"download");
  extension = ext;

  const CString into = SaveFolder(folder);
  CString candidate;
  for (int n = 0; n < kMaxCandidates; ++n) {
    candidate = base;
    if (n > 0) candidate += CString::Formatted(u"(%d)", n);
    fullPath = Locations::Join(into, candidate + extension);
    // A folder or a link under the name makes it taken as much as a file.
    if (FileSystem::IsNameFree(fullPath)) break;
  }
  baseName = candidate;
  fileName = baseName + extension;
  return fileName;
}

CString FileRequest::GetFullFilePath2Save() {
  if (WillBeSaved() == 0) return CString();
  if (fullPath.IsEmpty()) GetFileToSave();
  if (fullPath.IsEmpty()) fullPath = Locations::Join(SaveFolder(folder), fileName);
  return fullPath;
}

int FileRequest::OpenSavedFile(int asSegment) {
  CString path = GetFullFilePath2Save();
  if (path.IsEmpty()) return 0;
  if (asSegment != 0) path += CString(kPartialFileSuffix);
  auto* file = new WinFile();
  // Made when missing, never emptied: a resumed transfer goes on writing.
  if (file->Open(path, GENERIC_WRITE, FILE_SHARE_READ, OPEN_ALWAYS) == 0) {
    delete file;
    return 0;
  }
  savedFile_ = file;
  return 1;
}

namespace {

// Writes all of data at the file's position, in pieces the file takes.
int WriteAll(WinFile* file, const void* data, uint64_t length) {
  const auto* bytes = static_cast<const unsigned char*>(data);
  while (length > 0) {
    const uint32_t piece = static_cast<uint32_t>(std::min<uint64_t>(length, uint64_t{1} << 30));
    uint32_t written = 0;
    if (file->WriteFile(bytes, piece, &written) == 0) return 0;
    bytes += piece;
    length -= piece;
  }
  return 1;
}

// A file offset from the unsigned sizes of a request, or -1 when it cannot
// be one.
int64_t ToOffset(uint64_t a, uint64_t b, uint64_t c) {
  constexpr uint64_t kMax = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
  if (a > kMax || b > kMax - a || c > kMax - a - b) return -1;
  return static_cast<int64_t>(a + b + c);
}

}  // namespace

int FileRequest::SaveContent(const void* data, uint64_t length, uint64_t written, uint64_t slot,
                             uint64_t base, uint64_t start, uint64_t end, int asSegment) {
  if (parentRequest != nullptr) {
    // One segment of a multi-part transfer: every part writes through the
    // parent's single open file.
    const int saved = parentRequest->SaveContent(data, length, segmentWritten, segmentSlot,
                                                 segmentBase, segmentStart, segmentEnd, 1);
    segmentWritten += length;
    return saved;
  }
  if (data == nullptr && length > 0) return 0;
  CSingleLock hold(lock_);
  if (savedFile_ == nullptr && OpenSavedFile(asSegment) == 0) return 0;
  if (asSegment != 0) {
    // The header: "start:reached:end" in UTF-16, in a cleared 50-byte record
    // (a longer text is cut), so that a later run sees how far each segment
    // has come.
    const int64_t header = ToOffset(slot, 0, 0);
    const int64_t at = ToOffset(slot, kSegmentHeaderSize, written);
    if (header < 0 || at < 0) return 0;
    const std::string text = std::to_string(start) + ":" + std::to_string(written + length + base) +
                             ":" + std::to_string(end);
    unsigned char record[kSegmentHeaderSize] = {};
    for (size_t i = 0; i < text.size() && 2 * i + 1 < sizeof(record); ++i) {
      record[2 * i] = static_cast<unsigned char>(text[i]);  // digits and ":" only
    }
    if (savedFile_->SetFilePointer(header, FILE_BEGIN) < 0) return 0;
    if (WriteAll(savedFile_, record, sizeof(record)) == 0) return 0;
    if (savedFile_->SetFilePointer(at, FILE_BEGIN) < 0) return 0;
  }
  // Also for a segment write: the parent of a multi-part transfer must carry
  // kRequestFlagNoSeekToEnd.
  if ((requestFlags & kRequestFlagNoSeekToEnd) == 0) {
    if (savedFile_->SetFilePointer(0, FILE_END) < 0) return 0;
  }
  return WriteAll(savedFile_, data, length);
}

void FileRequest::CloseSavedFile() {
  CSingleLock hold(lock_);
  if (savedFile_ == nullptr) return;
  savedFile_->Close();
  delete savedFile_;
  savedFile_ = nullptr;
}

void FileRequest::DeleteSavedFile() {
  CSingleLock hold(lock_);
  if (savedFile_ != nullptr) {
    savedFile_->Close();
    delete savedFile_;
    savedFile_ = nullptr;
  }
  const CString path = GetFullFilePath2Save();
  if (!path.IsEmpty()) FileSystem::DeleteFile(path);
}

int FileRequest::HasSavedFile() {
  CSingleLock hold(lock_);
  return savedFile_ != nullptr ? 1 : 0;
}

void FileRequest::SetReplyThread(CWinThread* thread) {
  replyThread_ = thread;
  replyThreadId_ = thread != nullptr ? thread->GetThreadId() : 0;
}

void FileRequest::SetReplyWindow(CWnd* window) {
  replyWindow_ = window;
  replyHwnd_ = window != nullptr ? window->GetSafeHwnd() : 0;
}

namespace {

// Posts to the reply thread by id when it is known, so that a thread that
// has ended refuses the message instead of being touched.
int PostToThread(CWinThread* thread, unsigned id, unsigned message, FileRequest* request) {
  const intptr_t lParam = reinterpret_cast<intptr_t>(request);
  if (id != 0) return kordll::PostThreadMessage(id, message, 0, lParam);
  return thread->PostThreadMessage(message, 0, lParam);
}

}  // namespace

int FileRequest::SendRequest(unsigned message, int force) {
  if (GlobalResourceCtrl::IsGlobalResourceValid() == 0 && force == 0) return 0;
  if (replyThread_ != nullptr) {
    return PostToThread(replyThread_, replyThreadId_, message, this);
  }
  if (replyWindow_ != nullptr && kordll::IsWindow(replyHwnd_) != 0) {
    kordll::SendMessage(replyHwnd_, message, 0, reinterpret_cast<intptr_t>(this));
    return 1;
  }
  return 0;
}

int FileRequest::SendAbortMsg(int force) {
  if (GlobalResourceCtrl::IsGlobalResourceValid() == 0 && force == 0) return 0;
  if (finished != 0) return 0;
  if (replyThread_ != nullptr) {
    return PostToThread(replyThread_, replyThreadId_, kMsgDownloadAborted, this);
  }
  if (replyWindow_ != nullptr && httpStatus != 0 && kordll::IsWindow(replyHwnd_) != 0) {
    kordll::SendMessage(replyHwnd_, kMsgDownloadAborted, 0, reinterpret_cast<intptr_t>(this));
    return 1;
  }
  return 0;
}

int FileRequest::SendFinishedMessage() { return SendRequest(kMsgDownloadFinished, 0); }

int FileRequest::SendPausedMessage(int force) { return SendRequest(kMsgDownloadPaused, force); }

int FileRequest::SendResumedMessage() { return SendRequest(kMsgDownloadResumed, 0); }

CString FileRequest::GetHTTPStatusString() const {
  switch (httpStatus) {
    case 0:
      return CString(u"Network request aborted.");
    case 203:
      return CString(u"Non-Authoritative Information.");
    case 400:
      return CString(u"Bad Request");
    case 401:
      return CString(u"The request requires user authentication.");
    case 403:
      return CString(u"Forbidden");
    case 404:
      return CString(u"Requested file not found.");
    case 407:
      return CString(u"Proxy Authentication Required.");
    case 500:
      return CString(u"Internal Server Error.");
    case 504:
      return CString(u"Gateway or Proxy Server Timeout");
    case 505:
      return CString(u"HTTP Version Not Supported.");
    case 12002:
      return CString(u"The request has timed out.");
    case 12004:
      return CString(u"An internal error has occurred.");
    case 12005:
      return CString(u"The URL is invalid.");
    case 12007:
      return CString(u"The server name could not be resolved.");
    default:
      return CString();
  }
}

}  // namespace kordll
