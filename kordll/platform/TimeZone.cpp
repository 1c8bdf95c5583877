#include "kordll/platform/TimeZone.h"

#include <mutex>
#include <string>

#include "kordll/platform/Clock.h"
#include "kordll/platform/Env.h"

namespace kordll {

namespace {

// Serialises reading the zone with changing it: the zone setting and the
// C library's zone variables are process-wide.
std::mutex& ZoneMutex() {
  static std::mutex* mutex = new std::mutex();  // never destroyed: used at exit
  return *mutex;
}

}  // namespace

int TimeZone::GetBias() {
  // Reading the zone costs a look at the system's zone file on every call
  // when TZ is unset, which is most of the cost of reading a date to local
  // time. The bias is therefore kept while TZ stays the same, and for an
  // unset TZ it is read again once a minute of clock time, so that a change
  // of the system's zone is still seen.
  struct Cache {
    bool valid = false;
    bool tz_set = false;
    std::string tz;
    int bias = 0;
    int64_t read_at = 0;  // Clock::MonotonicMillis
  };
  static Cache* cache = new Cache();  // never destroyed: used at exit
  constexpr int64_t kRereadUnsetMs = 60 * 1000;

  // Read before the zone lock: a ManualClock asks for the bias under no lock
  // of its own, but the clock must not be read with ZoneMutex held by a
  // thread that another clock call waits for.
  const int64_t now = Clock::MonotonicMillis();
  Env* env = Env::Current();
  std::lock_guard<std::mutex> lock(ZoneMutex());
  std::string tz;
  const bool tz_set = env->GetTimeZoneSetting(&tz);
  // A clock installed since the last reading may count from an earlier start.
  const int64_t age = now - cache->read_at;
  if (cache->valid && cache->tz_set == tz_set &&
      (tz_set ? cache->tz == tz : age >= 0 && age < kRereadUnsetMs)) {
    return cache->bias;
  }
  cache->valid = true;
  cache->tz_set = tz_set;
  cache->tz = tz;
  cache->bias = env->ReadTimeZoneBias();
  cache->read_at = now;
  return cache->bias;
}

ScopedTimeZone::ScopedTimeZone(const std::string& tz) {
  Env* env = Env::Current();
  std::lock_guard<std::mutex> lock(ZoneMutex());
  had_previous_ = env->GetTimeZoneSetting(&previous_);
  env->SetTimeZoneSetting(&tz);
}

ScopedTimeZone::~ScopedTimeZone() {
  Env* env = Env::Current();
  std::lock_guard<std::mutex> lock(ZoneMutex());
  env->SetTimeZoneSetting(had_previous_ ? &previous_ : nullptr);
}

}  // namespace kordll
