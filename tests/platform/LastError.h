#ifndef KORDLL_TESTS_PLATFORM_LASTERROR_H_
#define KORDLL_TESTS_PLATFORM_LASTERROR_H_

#include <gtest/gtest.h>

#include <cstdint>

#include "kordll/platform/WinError.h"

namespace kordll::test {

// A call's answer and the thread's last error it left, checked in one line:
//   EXPECT_TRUE(Answers(0, ERROR_FILE_NOT_FOUND, FileSystem::DeleteFile(p)));
// The call runs before the last error is read.
inline ::testing::AssertionResult Answers(int64_t want, int code, int64_t got) {
  const int error = GetLastError();
  if (got == want && error == code) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "answered " << got << " with last error " << error
                                       << " instead of " << want << " with " << code;
}

}  // namespace kordll::test

#endif  // KORDLL_TESTS_PLATFORM_LASTERROR_H_
