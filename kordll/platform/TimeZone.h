// TimeZone: the machine's time zone, as the date tools need it.
//
// The library needs one number of the zone: its bias, the minutes to add
// to local time to reach universal time (UTC minus local), for the zone's
// standard time. Daylight saving is deliberately not considered: a date
// read from a feed is moved to local time by the standard offset all year.
//
// The zone is the process's: TZ when set, else the system's default zone,
// read through the installed Env (Env.h). A change of TZ is seen
// at the next call; with TZ unset, a change of the system's zone is seen
// within a minute.
//
// Thread safety: GetBias may be called from any thread. ScopedTimeZone
// changes the process environment and is meant for tests, while no other
// thread reads the environment.

#ifndef KORDLL_PLATFORM_TIMEZONE_H_
#define KORDLL_PLATFORM_TIMEZONE_H_

#include <string>

namespace kordll {

class TimeZone {
 public:
  TimeZone() = delete;

  // Minutes, UTC minus local standard time: 300 for New York (EST5EDT),
  // -60 for Paris (CET-1CEST), -330 for India (IST-5:30), 0 for UTC.
  static int GetBias();
};

// Sets TZ for the life of this object (and tells the C library at once),
// then puts back the value it found, or unsets TZ if it was unset.
// Example: ScopedTimeZone tz("EST5EDT");
class ScopedTimeZone {
 public:
  explicit ScopedTimeZone(const std::string& tz);
  ~ScopedTimeZone();
  ScopedTimeZone(const ScopedTimeZone&) = delete;
  ScopedTimeZone& operator=(const ScopedTimeZone&) = delete;

 private:
  bool had_previous_;
  std::string previous_;
};

}  // namespace kordll

#endif  // KORDLL_PLATFORM_TIMEZONE_H_
