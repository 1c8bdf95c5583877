#include "kordll/platform/WinError.h"

#include <cerrno>

namespace kordll {

namespace {
thread_local int last_error = ERROR_SUCCESS;
}  // namespace

int GetLastError() { return last_error; }

void SetLastError(int code) { last_error = code; }

int WinErrorFromErrno(int err) {
  switch (err) {
    case 0:
      return ERROR_SUCCESS;
    case ENOENT:
      return ERROR_FILE_NOT_FOUND;
    case ENOTDIR:
      return ERROR_PATH_NOT_FOUND;
    case EMFILE:
    case ENFILE:
      return ERROR_TOO_MANY_OPEN_FILES;
    case EACCES:
    case EPERM:
    case EROFS:
    case EISDIR:
      return ERROR_ACCESS_DENIED;
    case EBADF:
      return ERROR_INVALID_HANDLE;
    case ENOMEM:
      return ERROR_NOT_ENOUGH_MEMORY;
    case EXDEV:
      return ERROR_NOT_SAME_DEVICE;
    case EIO:
      return ERROR_READ_FAULT;
    case EBUSY:
    case ETXTBSY:
      return ERROR_SHARING_VIOLATION;
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
      return ERROR_DISK_FULL;
    case EEXIST:
      return ERROR_ALREADY_EXISTS;
    case EINVAL:
      return ERROR_INVALID_PARAMETER;
    case ENOTEMPTY:
      return ERROR_DIR_NOT_EMPTY;
    case ENAMETOOLONG:
      return ERROR_FILENAME_EXCED_RANGE;
    case ELOOP:
      return ERROR_CANT_RESOLVE_FILENAME;
    case ENOSYS:
    case EOPNOTSUPP:
      return ERROR_NOT_SUPPORTED;
    default:
      return ERROR_WRITE_FAULT;
  }
}

}  // namespace kordll
