// WinError: the error codes of the file layer, with their Win32 numbers, and
// the calling thread's last error.
//
// Every operation of WinFile, FileSystem and FileFind that fails sets the
// calling thread's last error (GetLastError) to one of the codes below, as the
// Win32 calls did; WinFile also keeps the code of its own last operation.
// The numbers are those of the Win32 API, so that logic written against them
// (for example "listing ended with 18, ERROR_NO_MORE_FILES") reads as
// designed. They are never written to disk.

#ifndef KORDLL_PLATFORM_WINERROR_H_
#define KORDLL_PLATFORM_WINERROR_H_

namespace kordll {

constexpr int ERROR_SUCCESS = 0;
constexpr int ERROR_FILE_NOT_FOUND = 2;
constexpr int ERROR_PATH_NOT_FOUND = 3;
constexpr int ERROR_TOO_MANY_OPEN_FILES = 4;
constexpr int ERROR_ACCESS_DENIED = 5;
constexpr int ERROR_INVALID_HANDLE = 6;
constexpr int ERROR_NOT_ENOUGH_MEMORY = 8;
constexpr int ERROR_NOT_SAME_DEVICE = 17;
constexpr int ERROR_NO_MORE_FILES = 18;
constexpr int ERROR_WRITE_FAULT = 29;
constexpr int ERROR_READ_FAULT = 30;
constexpr int ERROR_SHARING_VIOLATION = 32;
constexpr int ERROR_HANDLE_EOF = 38;
constexpr int ERROR_HANDLE_DISK_FULL = 39;
constexpr int ERROR_NOT_SUPPORTED = 50;
constexpr int ERROR_FILE_EXISTS = 80;
constexpr int ERROR_INVALID_PARAMETER = 87;
constexpr int ERROR_DISK_FULL = 112;
constexpr int ERROR_INVALID_NAME = 123;
constexpr int ERROR_NEGATIVE_SEEK = 131;
constexpr int ERROR_DIR_NOT_EMPTY = 145;
constexpr int ERROR_ALREADY_EXISTS = 183;
constexpr int ERROR_FILENAME_EXCED_RANGE = 206;
constexpr int ERROR_DIRECTORY = 267;
constexpr int ERROR_CANT_RESOLVE_FILENAME = 1921;  // too many symbolic links

// The calling thread's last error: the code set by the latest failing (or,
// where Win32 did so, succeeding) file operation on this thread.
int GetLastError();
void SetLastError(int code);

// The Win32 code that stands for a POSIX errno value: ENOENT gives
// ERROR_FILE_NOT_FOUND, ENOSPC ERROR_DISK_FULL, EEXIST ERROR_ALREADY_EXISTS,
// and so on; a value without a closer match gives ERROR_ACCESS_DENIED for
// permission errors and ERROR_WRITE_FAULT otherwise.
int WinErrorFromErrno(int err);

}  // namespace kordll

#endif  // KORDLL_PLATFORM_WINERROR_H_
