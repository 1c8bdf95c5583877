#include "kordll/platform/COleDateTime.h"

#include <chrono>
#include <cmath>
#include <cstdint>
#include <string>
#include <string_view>

#include "kordll/platform/Clock.h"

namespace kordll {

namespace {

namespace chr = std::chrono;

constexpr int64_t kSecondsPerDay = 86400;
constexpr int kMaxFormatLength = 255;  // a buffer of 256 with its terminator

// Day 0 of the day count.
constexpr chr::sys_days kDayZero = chr::sys_days{chr::year{1899} / chr::December / 30};

constexpr int64_t DayNumber(int year, unsigned month, unsigned day) {
  return (chr::sys_days{chr::year{year} / chr::month{month} / chr::day{day}} - kDayZero).count();
}

// The range of valid dates, in seconds from day 0.
constexpr int64_t kMinSeconds = DayNumber(100, 1, 1) * kSecondsPerDay;
constexpr int64_t kMaxSeconds = DayNumber(9999, 12, 31) * kSecondsPerDay + kSecondsPerDay - 1;
// Linear day counts beyond this are rejected before any rounding to whole
// seconds, so that the conversion to an integer cannot overflow.
constexpr double kLinearLimit = 4.0e6;

// The stored day count keeps a positive time fraction below day 0
// (-1.25 is day -1 at 06:00); the linear count runs straight through day 0
// (day -1 at 06:00 is -0.75). Arithmetic and comparison use the linear count.
double ToLinear(DATE dt) {
  if (dt >= 0) return dt;
  double whole = std::trunc(dt);
  return whole + (whole - dt);
}

DATE FromLinear(double linear) {
  if (linear >= 0) return linear;
  double day = std::floor(linear);
  double fraction = linear - day;
  return day - fraction;
}

// The linear count read to the nearest second; false when it is not a
// number or lies outside the valid range.
bool LinearToSeconds(double linear, int64_t* seconds) {
  if (!std::isfinite(linear) || linear > kLinearLimit || linear < -kLinearLimit) return false;
  int64_t s = std::llround(linear * static_cast<double>(kSecondsPerDay));
  if (s < kMinSeconds || s > kMaxSeconds) return false;
  *seconds = s;
  return true;
}

int64_t FloorDiv(int64_t a, int64_t b) {
  int64_t q = a / b;
  if ((a % b != 0) && ((a < 0) != (b < 0))) --q;
  return q;
}

const char* const kDayNames[] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                 "Thursday", "Friday", "Saturday"};
const char* const kMonthNames[] = {"January",   "February", "March",    "April",
                                   "May",       "June",     "July",     "August",
                                   "September", "October",  "November", "December"};

// ISO 8601 week-numbering: the number of weeks of a year.
int IsoWeeksInYear(int year) {
  auto p = [](int y) { return (y + y / 4 - y / 100 + y / 400) % 7; };
  return (p(year) == 4 || p(year - 1) == 3) ? 53 : 52;
}

void AppendNumber(std::string* out, long long value, int width, char pad, bool strip) {
  std::string digits = std::to_string(value < 0 ? -value : value);
  if (!strip) {
    while (static_cast<int>(digits.size()) < width) digits.insert(digits.begin(), pad);
  }
  if (value < 0) out->push_back('-');
  *out += digits;
}

bool IsBlank(char16_t ch) { return IsSpaceUnit(ch); }

// Reads a run of ASCII digits at *pos; stores its value and length. The
// value saturates well above any accepted field, so long runs cannot
// overflow.
int ReadDigits(std::u16string_view s, size_t* pos, int* value) {
  int length = 0;
  int v = 0;
  while (*pos < s.size() && s[*pos] >= u'0' && s[*pos] <= u'9') {
    if (v < 100000) v = v * 10 + (s[*pos] - u'0');
    ++*pos;
    ++length;
  }
  *value = v;
  return length;
}

}  // namespace

struct COleDateTime::Parts {
  int year, month, day, hour, minute, second;
  int day_of_week;  // 0 Sunday .. 6 Saturday
  int day_of_year;  // 1 ..
};

// ---- COleDateTimeSpan --------------------------------------------------------

COleDateTimeSpan::COleDateTimeSpan(long days, int hours, int minutes, int seconds) {
  SetDateTimeSpan(days, hours, minutes, seconds);
}

void COleDateTimeSpan::SetDateTimeSpan(long days, int hours, int minutes, int seconds) {
  span_ = static_cast<double>(days) + hours / 24.0 + minutes / 1440.0 + seconds / 86400.0;
  status_ = valid;
}

namespace {
// The span in whole seconds, rounded to the nearest; 0 for absurd values.
int64_t SpanSeconds(double span) {
  double s = span * 86400.0;
  if (!std::isfinite(s) || s > 9.0e18 || s < -9.0e18) return 0;
  return std::llround(s);
}
}  // namespace

long COleDateTimeSpan::GetDays() const {
  if (status_ != valid) return 0;
  return static_cast<long>(SpanSeconds(span_) / kSecondsPerDay);
}

long COleDateTimeSpan::GetHours() const {
  if (status_ != valid) return 0;
  return static_cast<long>(SpanSeconds(span_) / 3600 % 24);
}

long COleDateTimeSpan::GetMinutes() const {
  if (status_ != valid) return 0;
  return static_cast<long>(SpanSeconds(span_) / 60 % 60);
}

long COleDateTimeSpan::GetSeconds() const {
  if (status_ != valid) return 0;
  return static_cast<long>(SpanSeconds(span_) % 60);
}

COleDateTimeSpan COleDateTimeSpan::operator+(const COleDateTimeSpan& other) const {
  COleDateTimeSpan result;
  if (status_ == null || other.status_ == null) {
    result.status_ = null;
  } else if (status_ == invalid || other.status_ == invalid) {
    result.status_ = invalid;
  } else {
    result.span_ = span_ + other.span_;
  }
  return result;
}

COleDateTimeSpan COleDateTimeSpan::operator-(const COleDateTimeSpan& other) const {
  return *this + (-other);
}

COleDateTimeSpan COleDateTimeSpan::operator-() const {
  COleDateTimeSpan result(*this);
  result.span_ = -span_;
  return result;
}

bool COleDateTimeSpan::operator==(const COleDateTimeSpan& other) const {
  if (status_ != other.status_) return false;
  return status_ != valid || span_ == other.span_;
}

bool COleDateTimeSpan::operator<(const COleDateTimeSpan& other) const {
  return status_ == valid && other.status_ == valid && span_ < other.span_;
}

bool COleDateTimeSpan::operator<=(const COleDateTimeSpan& other) const {
  return status_ == valid && other.status_ == valid && span_ <= other.span_;
}

// ---- COleDateTime ------------------------------------------------------------

COleDateTime::COleDateTime(DATE value) {
  int64_t seconds;
  if (LinearToSeconds(ToLinear(value), &seconds)) {
    dt_ = value;
    status_ = valid;
  } else {
    dt_ = 0;
    status_ = invalid;
  }
}

COleDateTime::COleDateTime(int year, int month, int day, int hour, int minute, int second) {
  SetDateTime(year, month, day, hour, minute, second);
}

COleDateTime COleDateTime::GetCurrentTime() { return Clock::Now(); }

int COleDateTime::SetDateTime(int year, int month, int day, int hour, int minute, int second) {
  bool ok = year >= 100 && year <= 9999 && month >= 1 && month <= 12 && day >= 1 && hour >= 0 &&
            hour <= 23 && minute >= 0 && minute <= 59 && second >= 0 && second <= 59;
  if (ok) {
    chr::year_month_day ymd{chr::year{year}, chr::month{static_cast<unsigned>(month)},
                            chr::day{static_cast<unsigned>(day)}};
    ok = ymd.ok();
    if (ok) {
      int64_t days = (chr::sys_days{ymd} - kDayZero).count();
      double fraction = (hour * 3600 + minute * 60 + second) / 86400.0;
      dt_ = FromLinear(static_cast<double>(days) + fraction);
      status_ = valid;
      return valid;
    }
  }
  dt_ = 0;
  status_ = invalid;
  return invalid;
}

int COleDateTime::SetDate(int year, int month, int day) {
  return SetDateTime(year, month, day, 0, 0, 0);
}

int COleDateTime::SetTime(int hour, int minute, int second) {
  return SetDateTime(1899, 12, 30, hour, minute, second);
}

bool COleDateTime::GetParts(Parts* parts) const {
  if (status_ != valid) return false;
  int64_t seconds;
  if (!LinearToSeconds(ToLinear(dt_), &seconds)) return false;
  int64_t days = FloorDiv(seconds, kSecondsPerDay);
  int64_t of_day = seconds - days * kSecondsPerDay;
  chr::sys_days sd = kDayZero + chr::days{days};
  chr::year_month_day ymd{sd};
  parts->year = static_cast<int>(ymd.year());
  parts->month = static_cast<int>(static_cast<unsigned>(ymd.month()));
  parts->day = static_cast<int>(static_cast<unsigned>(ymd.day()));
  parts->hour = static_cast<int>(of_day / 3600);
  parts->minute = static_cast<int>(of_day / 60 % 60);
  parts->second = static_cast<int>(of_day % 60);
  parts->day_of_week = static_cast<int>(chr::weekday{sd}.c_encoding());
  parts->day_of_year =
      static_cast<int>((sd - chr::sys_days{ymd.year() / chr::January / 1}).count()) + 1;
  return true;
}

int COleDateTime::GetYear() const {
  Parts p;
  return GetParts(&p) ? p.year : -1;
}
int COleDateTime::GetMonth() const {
  Parts p;
  return GetParts(&p) ? p.month : -1;
}
int COleDateTime::GetDay() const {
  Parts p;
  return GetParts(&p) ? p.day : -1;
}
int COleDateTime::GetHour() const {
  Parts p;
  return GetParts(&p) ? p.hour : -1;
}
int COleDateTime::GetMinute() const {
  Parts p;
  return GetParts(&p) ? p.minute : -1;
}
int COleDateTime::GetSecond() const {
  Parts p;
  return GetParts(&p) ? p.second : -1;
}
int COleDateTime::GetDayOfWeek() const {
  Parts p;
  return GetParts(&p) ? p.day_of_week + 1 : -1;
}
int COleDateTime::GetDayOfYear() const {
  Parts p;
  return GetParts(&p) ? p.day_of_year : -1;
}

CString COleDateTime::Format(const CString& format) const {
  if (status_ == invalid) return CString("Invalid DateTime");
  if (status_ == null) return CString();
  Parts p;
  if (!GetParts(&p)) return CString("Invalid DateTime");

  // The output is ASCII except for literal text copied from the format, so
  // it is built as 16-bit units with ASCII pieces widened on append.
  std::u16string out;
  std::string piece;
  const std::u16string& f = format.str();
  const int hour12 = p.hour % 12 == 0 ? 12 : p.hour % 12;
  const int iso_weekday = (p.day_of_week + 6) % 7 + 1;  // 1 Monday .. 7 Sunday

  for (size_t i = 0; i < f.size(); ++i) {
    if (out.size() > static_cast<size_t>(kMaxFormatLength)) return CString();
    if (f[i] != u'%') {
      out.push_back(f[i]);
      continue;
    }
    size_t start = i;
    bool strip = false;
    if (i + 1 < f.size() && f[i + 1] == u'#') {
      strip = true;
      ++i;
    }
    if (i + 1 < f.size() && (f[i + 1] == u'E' || f[i + 1] == u'O')) ++i;
    if (i + 1 >= f.size()) {
      // A lone "%" at the end is copied as written.
      out.append(f, start, std::u16string::npos);
      break;
    }
    char16_t c = f[++i];
    piece.clear();
    switch (c) {
      case u'a':
        piece.assign(kDayNames[p.day_of_week], 3);
        break;
      case u'A':
        piece = kDayNames[p.day_of_week];
        break;
      case u'b':
      case u'h':
        piece.assign(kMonthNames[p.month - 1], 3);
        break;
      case u'B':
        piece = kMonthNames[p.month - 1];
        break;
      case u'c':
        piece.assign(kDayNames[p.day_of_week], 3);
        piece += ' ';
        piece.append(kMonthNames[p.month - 1], 3);
        piece += ' ';
        AppendNumber(&piece, p.day, 2, ' ', strip);
        piece += ' ';
        AppendNumber(&piece, p.hour, 2, '0', false);
        piece += ':';
        AppendNumber(&piece, p.minute, 2, '0', false);
        piece += ':';
        AppendNumber(&piece, p.second, 2, '0', false);
        piece += ' ';
        AppendNumber(&piece, p.year, 1, '0', false);
        break;
      case u'C':
        AppendNumber(&piece, p.year / 100, 2, '0', strip);
        break;
      case u'd':
        AppendNumber(&piece, p.day, 2, '0', strip);
        break;
      case u'e':
        AppendNumber(&piece, p.day, 2, ' ', strip);
        break;
      case u'D':
      case u'x':
        AppendNumber(&piece, p.month, 2, '0', strip);
        piece += '/';
        AppendNumber(&piece, p.day, 2, '0', strip);
        piece += '/';
        AppendNumber(&piece, p.year % 100, 2, '0', strip);
        break;
      case u'F':
        AppendNumber(&piece, p.year, 4, '0', strip);
        piece += '-';
        AppendNumber(&piece, p.month, 2, '0', strip);
        piece += '-';
        AppendNumber(&piece, p.day, 2, '0', strip);
        break;
      case u'g':
      case u'G':
      case u'V': {
        int year = p.year;
        int week = (p.day_of_year - iso_weekday + 10) / 7;
        if (week < 1) {
          --year;
          week = IsoWeeksInYear(year);
        } else if (week > IsoWeeksInYear(year)) {
          ++year;
          week = 1;
        }
        if (c == u'V') {
          AppendNumber(&piece, week, 2, '0', strip);
        } else if (c == u'g') {
          AppendNumber(&piece, year % 100, 2, '0', strip);
        } else {
          AppendNumber(&piece, year, 1, '0', strip);
        }
        break;
      }
      case u'H':
        AppendNumber(&piece, p.hour, 2, '0', strip);
        break;
      case u'I':
        AppendNumber(&piece, hour12, 2, '0', strip);
        break;
      case u'j':
        AppendNumber(&piece, p.day_of_year, 3, '0', strip);
        break;
      case u'm':
        AppendNumber(&piece, p.month, 2, '0', strip);
        break;
      case u'M':
        AppendNumber(&piece, p.minute, 2, '0', strip);
        break;
      case u'n':
        piece = "\n";
        break;
      case u't':
        piece = "\t";
        break;
      case u'p':
        piece = p.hour < 12 ? "AM" : "PM";
        break;
      case u'r':
        AppendNumber(&piece, hour12, 2, '0', strip);
        piece += ':';
        AppendNumber(&piece, p.minute, 2, '0', false);
        piece += ':';
        AppendNumber(&piece, p.second, 2, '0', false);
        piece += p.hour < 12 ? " AM" : " PM";
        break;
      case u'R':
        AppendNumber(&piece, p.hour, 2, '0', strip);
        piece += ':';
        AppendNumber(&piece, p.minute, 2, '0', false);
        break;
      case u'S':
        AppendNumber(&piece, p.second, 2, '0', strip);
        break;
      case u'T':
      case u'X':
        AppendNumber(&piece, p.hour, 2, '0', strip);
        piece += ':';
        AppendNumber(&piece, p.minute, 2, '0', false);
        piece += ':';
        AppendNumber(&piece, p.second, 2, '0', false);
        break;
      case u'u':
        AppendNumber(&piece, iso_weekday, 1, '0', strip);
        break;
      case u'U':
        AppendNumber(&piece, (p.day_of_year - 1 + 7 - p.day_of_week) / 7, 2, '0', strip);
        break;
      case u'w':
        AppendNumber(&piece, p.day_of_week, 1, '0', strip);
        break;
      case u'W':
        AppendNumber(&piece, (p.day_of_year - 1 + 7 - (iso_weekday - 1)) / 7, 2, '0', strip);
        break;
      case u'y':
        AppendNumber(&piece, p.year % 100, 2, '0', strip);
        break;
      case u'Y':
        AppendNumber(&piece, p.year, 1, '0', strip);
        break;
      case u'z':
      case u'Z':
        break;
      case u'%':
        piece = "%";
        break;
      default:
        // Unknown conversions are copied as written.
        out.append(f, start, i - start + 1);
        continue;
    }
    out.append(piece.begin(), piece.end());
  }
  if (out.size() > static_cast<size_t>(kMaxFormatLength)) return CString();
  return CString(std::move(out));
}

CString COleDateTime::Format() const {
  if (status_ == invalid) return CString("Invalid DateTime");
  if (status_ == null) return CString();
  Parts p;
  if (!GetParts(&p)) return CString("Invalid DateTime");
  const int hour12 = p.hour % 12 == 0 ? 12 : p.hour % 12;
  return CString::Formatted("%d/%d/%04d %d:%02d:%02d %s", p.month, p.day, p.year, hour12, p.minute,
                            p.second, p.hour < 12 ? "AM" : "PM");
}

bool COleDateTime::ParseDateTime(const CString& text, unsigned long /*flags*/,
                                 unsigned long /*locale*/) {
  dt_ = 0;
  status_ = invalid;
  // The reader takes a C string: it sees the text up to its first U+0000,
  // as the scanned forms of the date reader do.
  std::u16string_view s = text.view();
  s = s.substr(0, s.find(u'\0'));
  size_t pos = 0;
  auto skip_blanks = [&] {
    size_t before = pos;
    while (pos < s.size() && IsBlank(s[pos])) ++pos;
    return pos - before;
  };

  skip_blanks();
  int year = 0, month = 0, day = 0;
  int first;
  int first_length = ReadDigits(s, &pos, &first);
  if (first_length == 0 || pos >= s.size()) return false;
  if (s[pos] == u'/') {
    // M/D/YYYY or M/D/YY
    if (first_length > 2) return false;
    month = first;
    ++pos;
    int day_length = ReadDigits(s, &pos, &day);
    if (day_length < 1 || day_length > 2) return false;
    if (pos >= s.size() || s[pos] != u'/') return false;
    ++pos;
    int year_length = ReadDigits(s, &pos, &year);
    if (year_length == 2) {
      year += year < 30 ? 2000 : 1900;
    } else if (year_length != 4) {
      return false;
    }
  } else if (s[pos] == u'-') {
    // YYYY-MM-DD
    if (first_length != 4) return false;
    year = first;
    ++pos;
    if (ReadDigits(s, &pos, &month) != 2) return false;
    if (pos >= s.size() || s[pos] != u'-') return false;
    ++pos;
    if (ReadDigits(s, &pos, &day) != 2) return false;
  } else {
    return false;
  }

  int hour = 0, minute = 0, second = 0;
  size_t blanks = skip_blanks();
  if (pos < s.size()) {
    if (blanks == 0) return false;
    int hour_length = ReadDigits(s, &pos, &hour);
    if (hour_length < 1 || hour_length > 2) return false;
    if (pos >= s.size() || s[pos] != u':') return false;
    ++pos;
    if (ReadDigits(s, &pos, &minute) != 2) return false;
    if (pos < s.size() && s[pos] == u':') {
      ++pos;
      if (ReadDigits(s, &pos, &second) != 2) return false;
    }
    skip_blanks();
    if (pos < s.size()) {
      if (pos + 1 >= s.size()) return false;
      char16_t a = ToUpperUnit(s[pos]);
      char16_t m = ToUpperUnit(s[pos + 1]);
      if ((a != u'A' && a != u'P') || m != u'M') return false;
      pos += 2;
      skip_blanks();
      if (pos < s.size()) return false;
      if (hour < 1 || hour > 12) return false;
      if (a == u'A') {
        if (hour == 12) hour = 0;
      } else if (hour != 12) {
        hour += 12;
      }
    }
  }
  return SetDateTime(year, month, day, hour, minute, second) == valid;
}

void COleDateTime::SetFromLinear(double linear) {
  int64_t seconds;
  if (LinearToSeconds(linear, &seconds)) {
    dt_ = FromLinear(linear);
    status_ = valid;
  } else {
    dt_ = 0;
    status_ = invalid;
  }
}

COleDateTime COleDateTime::operator+(const COleDateTimeSpan& span) const {
  COleDateTime result;
  if (status_ == null || span.status_ == COleDateTimeSpan::null) {
    result.status_ = null;
  } else if (status_ == invalid || span.status_ == COleDateTimeSpan::invalid) {
    result.status_ = invalid;
  } else {
    result.SetFromLinear(ToLinear(dt_) + span.span_);
  }
  return result;
}

COleDateTime COleDateTime::operator-(const COleDateTimeSpan& span) const { return *this + (-span); }

COleDateTimeSpan COleDateTime::operator-(const COleDateTime& other) const {
  COleDateTimeSpan result;
  if (status_ == null || other.status_ == null) {
    result.status_ = COleDateTimeSpan::null;
  } else if (status_ == invalid || other.status_ == invalid) {
    result.status_ = COleDateTimeSpan::invalid;
  } else {
    result.span_ = ToLinear(dt_) - ToLinear(other.dt_);
  }
  return result;
}

bool COleDateTime::operator==(const COleDateTime& other) const {
  if (status_ != other.status_) return false;
  return status_ != valid || dt_ == other.dt_;
}

bool COleDateTime::operator<(const COleDateTime& other) const {
  return status_ == valid && other.status_ == valid && ToLinear(dt_) < ToLinear(other.dt_);
}

bool COleDateTime::operator<=(const COleDateTime& other) const {
  return status_ == valid && other.status_ == valid && ToLinear(dt_) <= ToLinear(other.dt_);
}

}  // namespace kordll
