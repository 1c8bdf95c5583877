#include "kordll/platform/TimeZone.h"

#include <stdlib.h>
#include <time.h>

#include <chrono>
#include <mutex>
#include <string>

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
  // tzset costs a look at the system's zone file on every call when TZ is
  // unset, which is most of the cost of reading a date to local time. The
  // bias is therefore kept while TZ stays the same, and for an unset TZ it
  // is read again once a minute, so that a change of the system's zone is
  // still seen.
  struct Cache {
    bool valid = false;
    bool tz_set = false;
    std::string tz;
    int bias = 0;
    std::chrono::steady_clock::time_point read_at;
  };
  static Cache* cache = new Cache();  // never destroyed: used at exit
  constexpr auto kRereadUnset = std::chrono::minutes(1);

  std::lock_guard<std::mutex> lock(ZoneMutex());
  const char* tz = getenv("TZ");
  const bool tz_set = tz != nullptr;
  const auto now = std::chrono::steady_clock::now();
  if (cache->valid && cache->tz_set == tz_set &&
      (tz_set ? cache->tz == tz : now - cache->read_at < kRereadUnset)) {
    return cache->bias;
  }
  tzset();
  // `timezone` is seconds west of UTC for the zone's standard time, which is
  // the bias with daylight saving left out.
  cache->valid = true;
  cache->tz_set = tz_set;
  cache->tz = tz_set ? tz : "";
  cache->bias = static_cast<int>(::timezone / 60);
  cache->read_at = now;
  return cache->bias;
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
