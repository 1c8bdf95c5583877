// WinFile: one open file with the meaning of a Win32 file handle.
//
// Open takes CreateFileW's access, share mode and creation disposition; the
// file then has one position, moved by SetFilePointer and advanced by
// ReadFile and WriteFile. Reads report short counts at the end of the file;
// writes past the end extend it (a gap reads as zero bytes). Nothing throws:
// operations answer 1 for success and 0 for failure (or -1 for a position or
// size), and set both this file's last error and the calling thread's
// (kordll::GetLastError) to a Win32 code of WinError.h.
//
// Only regular files open: a folder, a device or a pipe is refused with
// ERROR_ACCESS_DENIED, so that a damaged name can never make a read block or
// run without end. Share flags are accepted and not enforced: several handles
// may have one file open, and the library relies on no more than one writer.
// The file is opened through the installed Env (Env.h).
//
// Thread safety: the position is shared by everyone who uses this object.
// Its owner serialises the work on it (the record stores do so under their
// slot lock): a seek followed by a read is only meaningful if no other thread
// moves the position in between. Each single call is internally locked, so
// concurrent calls never corrupt the object, only interleave.

#ifndef KORDLL_PLATFORM_WINFILE_H_
#define KORDLL_PLATFORM_WINFILE_H_

#include <cstdint>
#include <memory>
#include <mutex>

#include "kordll/platform/CString.h"
#include "kordll/platform/Env.h"
#include "kordll/platform/WinError.h"

namespace kordll {

// Access (combine with |).
constexpr uint32_t GENERIC_READ = 0x80000000u;
constexpr uint32_t GENERIC_WRITE = 0x40000000u;

// Share mode (accepted, not enforced).
constexpr uint32_t FILE_SHARE_READ = 0x1;
constexpr uint32_t FILE_SHARE_WRITE = 0x2;
constexpr uint32_t FILE_SHARE_DELETE = 0x4;

// Creation dispositions.
constexpr int CREATE_NEW = 1;         // make a new file; fail if the name is taken
constexpr int CREATE_ALWAYS = 2;      // make or empty the file
constexpr int OPEN_EXISTING = 3;      // open; fail if missing
constexpr int OPEN_ALWAYS = 4;        // open, making it if missing
constexpr int TRUNCATE_EXISTING = 5;  // open and empty; fail if missing

// SetFilePointer origins.
constexpr int FILE_BEGIN = 0;
constexpr int FILE_CURRENT = 1;
constexpr int FILE_END = 2;

class WinFile {
 public:
  WinFile() = default;
  // Closes the file if open.
  ~WinFile();

  WinFile(const WinFile&) = delete;
  WinFile& operator=(const WinFile&) = delete;

  // CreateFileW. Opens `path` (UTF-16, converted to UTF-8 for the system)
  // with `access` (GENERIC_READ and/or GENERIC_WRITE), `share` (ignored) and
  // `disposition` (one of the constants above). A file already open in this
  // object is closed first. Returns 1 with the position at 0, or 0.
  //
  // As CreateFileW does, CREATE_ALWAYS and OPEN_ALWAYS succeed on an existing
  // file with the last error ERROR_ALREADY_EXISTS (else ERROR_SUCCESS).
  // Failures: a taken name with CREATE_NEW gives ERROR_FILE_EXISTS, a missing
  // file ERROR_FILE_NOT_FOUND, a missing folder ERROR_PATH_NOT_FOUND, a path
  // holding U+0000 or empty ERROR_INVALID_NAME, no access or TRUNCATE_EXISTING
  // without GENERIC_WRITE ERROR_INVALID_PARAMETER, a folder or any file that
  // is not regular ERROR_ACCESS_DENIED. A file made by a failing open is
  // removed again.
  int Open(const CString& path, uint32_t access, uint32_t share, int disposition);

  // CloseHandle. Returns 1, or 0 if nothing was open (ERROR_INVALID_HANDLE)
  // or the system reported a failure at closing, which for a written file
  // means that what was written may not have reached it (the file is closed
  // all the same).
  int Close();

  bool IsOpen() const;

  // SetFilePointer (64-bit, as SetFilePointerEx): moves the position by
  // `distance` from FILE_BEGIN, FILE_CURRENT or FILE_END and returns the new
  // position. A position past the end is allowed. A result below 0 is refused
  // with ERROR_NEGATIVE_SEEK and the position stays; failures return -1.
  int64_t SetFilePointer(int64_t distance, int method);
  // The current position, or -1 when not open.
  int64_t GetFilePointer() const;

  // ReadFile: reads up to `count` bytes at the position into `buffer` and
  // stores the number read in *read (which may be null). Fewer than asked
  // means the end of the file was reached; 0 at or past the end. Returns 1,
  // or 0 on failure (not open, no read access, I/O error), in which case
  // *read holds what was read before the failure and the position has moved
  // by that much.
  int ReadFile(void* buffer, uint32_t count, uint32_t* read);

  // WriteFile: writes `count` bytes at the position and stores the number
  // written in *written (may be null). Returns 1 only if every byte was
  // written; on failure (a full disk gives ERROR_DISK_FULL) returns 0 with
  // *written the bytes that did reach the file, and the position moved by
  // that much.
  int WriteFile(const void* buffer, uint32_t count, uint32_t* written);

  // The same at an explicit offset (as ReadFile and WriteFile with an
  // OVERLAPPED offset), leaving the position where it is: for owners that
  // compute every offset and so need no shared position. A negative offset
  // fails with ERROR_NEGATIVE_SEEK.
  int ReadFileAt(int64_t offset, void* buffer, uint32_t count, uint32_t* read);
  int WriteFileAt(int64_t offset, const void* buffer, uint32_t count, uint32_t* written);

  // GetFileSize (64-bit): the size of the open file, or -1.
  int64_t GetFileSize() const;

  // SetEndOfFile: cuts or extends the file to end at the position. 1 or 0.
  int SetEndOfFile();

  // FlushFileBuffers: writes the file's data through to the disk (fdatasync).
  int FlushFileBuffers();

  // The code of this file's latest operation (ERROR_SUCCESS after success).
  int GetLastError() const;

  // The path given to the latest Open.
  CString GetPath() const;

 private:
  int Fail(int code) const;  // sets both last errors; returns 0
  // REQUIRES: mu_ held. Transfer at *offset, advancing it by what moved.
  int ReadLocked(int64_t* offset, void* buffer, uint32_t count, uint32_t* read);
  int WriteLocked(int64_t* offset, const void* buffer, uint32_t count, uint32_t* written);
  void Succeed(int code = ERROR_SUCCESS) const;

  mutable std::mutex mu_;
  // State below is protected by mu_.
  std::unique_ptr<EnvFile> file_;  // null when nothing is open
  bool can_read_ = false;
  bool can_write_ = false;
  int64_t position_ = 0;
  CString path_;
  mutable int last_error_ = ERROR_SUCCESS;
};

}  // namespace kordll

#endif  // KORDLL_PLATFORM_WINFILE_H_
