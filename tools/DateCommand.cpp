// `kordll date [--local] TEXT...`: how the library reads a date taken from a
// feed. For each text it prints the date read (or "invalid"), the shape that
// took it, the zone it found, and the same moment in the library's words.
// With --local the date is moved to local time as the reader's second
// argument asks (by the zone of the text, then by the machine's bias).
//
// Exit status: 0 when every text read as a date, 1 when one did not, 2 for a
// usage error.

#include <climits>
#include <ostream>
#include <string>
#include <vector>

#include "kordll/platform/COleDateTime.h"
#include "kordll/platform/CString.h"
#include "kordll/platform/TimeZone.h"
#include "kordll/toolkit/KorlanDateTime.h"
#include "tools/ToolCommand.h"

namespace {

using kordll::COleDateTime;
using kordll::CString;
using kordll::KorlanDateTime;

const char* ShapeOf(int form) {
  switch (form) {
    case 0:
      return "the plain local reader (M/D/YYYY, M/D/YY or YYYY-MM-DD, time, AM/PM)";
    case 1:
      return "form 1 \"%s %d %s %d %d:%d:%d %s\" (weekday, day, month, year, h:m:s, zone)";
    case 2:
      return "form 2 \"%s %d %s %d %d:%d %s\" (weekday, day, month, year, h:m, zone)";
    case 3:
      return "form 3 \"%d-%d-%dT%d:%d:%d%s\" (ISO date, h:m:s, zone)";
    case 4:
      return "form 4 \"%d-%d-%dT%d:%d:%d-%d:%d\" (ISO date, h:m:s, -hh:mm)";
    case 5:
      return "form 5 \"%d %s %d %d:%d:%d %s\" (day, month, year, h:m:s, zone)";
    case 6:
      return "form 6 \"%d/%d/%d @%d:%d\" (the stored shape, no zone)";
    case 7:
      return "form 7 \"%d/%d/%d %d:%d %s\" (m/d/y, h:m, zone)";
    case 8:
      return "form 8 \"%d-%d-%dT%d:%d%s\" (ISO date, h:m, zone; seconds are not kept)";
    case 9:
      return "form 9 \"%s %s %d, %d @ %d:%d\" (weekday, month, day, year @ h:m, no zone)";
    case 10:
      return "form 10 \"%d %s %d %d:%d %s\" (day, month, year, h:m, zone)";
    default:
      return "none: no shape took this text";
  }
}

std::string Offset(int hours, int minutes) {
  return CString::Formatted("%02d:%02d", hours, minutes).ToUtf8();
}

// Whether the zone reader recognised the word at all: it writes only what
// it recognises, and "Z" stands for GMT without writing anything.
bool Understood(const CString& word) {
  constexpr int kUnwritten = INT_MIN;
  int hours = kUnwritten, minutes = kUnwritten, west = kUnwritten;
  KorlanDateTime::GetTimeZoneInfo(word.c_str(), &hours, &minutes, &west);
  return hours != kUnwritten || minutes != kUnwritten || west != kUnwritten ||
         word.CompareNoCase(CString("Z")) == 0;
}

std::string ZoneOf(const KorlanDateTime::ReadInfo& info) {
  bool has_word = info.form == 1 || info.form == 2 || info.form == 3 || info.form == 5 ||
                  info.form == 7 || info.form == 8 || info.form == 10;
  std::string text;
  if (info.form == 4) {
    text = "the offset fields";
  } else if (has_word) {
    text.append(1, '"').append(info.zone_word.ToUtf8()).append(1, '"');
  } else {
    return "none in this shape: taken as GMT";
  }
  if (info.zone_hours == 0) {
    if (info.zone_minutes != 0) {
      return text + ": " + Offset(0, info.zone_minutes) +
             ", dropped since it has no whole hours: taken as GMT";
    }
    if (info.form == 4 || Understood(info.zone_word)) return text + ": GMT itself";
    return text + ": not understood: no offset, taken as GMT";
  }
  return text + ": " + Offset(info.zone_hours, info.zone_minutes) +
         (info.zone_west == 1 ? " behind GMT (added to reach GMT)"
                              : " ahead of GMT (subtracted to reach GMT)");
}

std::string Show(const COleDateTime& d) {
  if (d.GetStatus() != COleDateTime::valid) return "invalid";
  return d.Format("%Y-%m-%d %H:%M:%S (%A)").ToUtf8();
}

int Run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
  int to_local = 0;
  std::vector<std::string> texts;
  bool options_done = false;
  for (const std::string& arg : args) {
    if (!options_done && arg == "--local") {
      to_local = 1;
    } else if (!options_done && arg == "--") {
      options_done = true;
    } else {
      texts.push_back(arg);
    }
  }
  if (texts.empty()) {
    err << "usage: kordll date [--local] TEXT...\n";
    return 2;
  }

  int status = 0;
  for (size_t i = 0; i < texts.size(); ++i) {
    if (i > 0) out << "\n";
    CString text = CString::FromUtf8(texts[i]);
    KorlanDateTime::ReadInfo info;
    COleDateTime date = KorlanDateTime::StringToDateTimeExplained(text, to_local, &info);
    out << "text:   " << texts[i] << "\n";
    out << "read:   " << Show(date);
    if (to_local) {
      int bias = kordll::TimeZone::GetBias();
      out << "  local time (machine bias " << bias << " minutes, standard time)";
    }
    out << "\n";
    out << "shape:  " << ShapeOf(info.form) << "\n";
    if (info.form < 0) {
      status = 1;
      continue;
    }
    out << "zone:   " << ZoneOf(info) << "\n";
    if (date.GetStatus() != COleDateTime::valid) {
      out << "        the shape matched but the date is not in the calendar "
             "(month 1-12, day of the month, year from 1901)\n";
      status = 1;
      continue;
    }
    out << "stored: " << KorlanDateTime::DateTimeToSimpleString(date, 0).ToUtf8() << "\n";
    out << "full:   " << KorlanDateTime::DateTimeToFullString(date, 0).ToUtf8() << "\n";
    out << "shown:  " << KorlanDateTime::DateTimeToPublicationString(date, 0, 1).ToUtf8() << "\n";
    out << "age:    " << KorlanDateTime::GetAgo_COleDateTime(date, 0, 1, 0, 1).ToUtf8() << "\n";
  }
  return status;
}

const kordll_tool::Registration kReg{"date", "date [--local] TEXT...",
                                     "show how the library reads feed dates", &Run};

}  // namespace
