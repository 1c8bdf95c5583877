#include "kordll/platform/TimeZone.h"

#include <stdlib.h>
#include <time.h>

#include <mutex>

namespace kordll {

namespace {

// Serialises reading the zone with changing TZ: tzset reads the
// environment, and the C library's zone variables are process-wide.
std::mutex& ZoneMutex() {
  static std::mutex* mutex = new std::mutex();  // never destroyed: used at exit
  return *mutex;
}

}  // namespace

int TimeZone::GetBias() {
  std::lock_guard<std::mutex> lock(ZoneMutex());
  tzset();
  // `timezone` is seconds west of UTC for the zone's standard time, which is
  // the bias with daylight saving left out.
  return static_cast<int>(::timezone / 60);
}

ScopedTimeZone::ScopedTimeZone(const std::string& tz) {
  std::lock_guard<std::mutex> lock(ZoneMutex());
  const char* previous = getenv("TZ");
  had_previous_ = previous != nullptr;
  if (had_previous_) previous_ = previous;
  setenv("TZ", tz.c_str(), 1);
  tzset();
}

ScopedTimeZone::~ScopedTimeZone() {
  std::lock_guard<std::mutex> lock(ZoneMutex());
  if (had_previous_) {
    setenv("TZ", previous_.c_str(), 1);
  } else {
    unsetenv("TZ");
  }
  tzset();
}

}  // namespace kordll
