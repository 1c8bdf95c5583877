// kordll tsf dump FILE | check FILE | export FILE DIR: the inside of a skin
// container (.tsf).
//
// dump walks the container as the writer lays it out (the 1,000-byte header
// record, then each 200-byte entry record and its bytes) and prints the
// header text and each entry with its offset and size; it exits 0, or 1 when
// the layout breaks off. check reads the container with the library's
// reader and exits 0 when the reader accepts it, 1 with the reason and the
// offset otherwise. export reads it with the library's reader and writes
// each entry the reader stored as a file in DIR (names that would leave DIR
// are passed over); it exits 0 when the reader accepted the container, 1
// otherwise. A usage error or a file that cannot be read exits 2.

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "kordll/platform/CString.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/settings/SkinFile.h"
#include "tools/ToolCommand.h"

namespace {

using kordll::CString;
using kordll::SkinFile;

// The text of a record: little-endian units up to the first NUL.
std::string RecordText(const std::string& bytes, size_t offset, size_t size) {
  std::u16string text;
  for (size_t i = offset; i < offset + size && i < bytes.size(); i += 2) {
    const uint16_t low = static_cast<uint8_t>(bytes[i]);
    const uint16_t high = i + 1 < bytes.size() ? static_cast<uint8_t>(bytes[i + 1]) : 0;
    const char16_t unit = static_cast<char16_t>(low | (high << 8));
    if (unit == 0) break;
    text.push_back(unit);
  }
  return CString(text).ToUtf8();
}

int Dump(const std::string& bytes, std::ostream& out) {
  out << "header: \"" << RecordText(bytes, 0, SkinFile::kHeaderRecordSize) << "\"\n";
  if (bytes.size() < static_cast<size_t>(SkinFile::kHeaderRecordSize)) {
    out << "the header record is cut short: " << bytes.size() << " byte(s)\n";
    return 1;
  }
  size_t offset = SkinFile::kHeaderRecordSize;
  int count = 0;
  while (offset < bytes.size()) {
    const std::string text = RecordText(bytes, offset, SkinFile::kEntryRecordSize);
    // "[name|size]": the name runs to the last "|", the size follows it.
    const size_t bar = text.rfind('|');
    const size_t start = !text.empty() && text[0] == '[' ? 1 : 0;
    const std::string name =
        bar == std::string::npos || bar < start ? std::string() : text.substr(start, bar - start);
    long long size = -1;
    if (bar != std::string::npos) {
      size = 0;
      for (size_t i = bar + 1; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
        size = size * 10 + (text[i] - '0');
        if (size > (int64_t{1} << 40)) break;
      }
    }
    const size_t data = offset + SkinFile::kEntryRecordSize;
    if (name.empty() || size < 0 || data > bytes.size() ||
        static_cast<unsigned long long>(size) > bytes.size() - data) {
      out << "entry record at offset " << offset << " is not an entry: \"" << text << "\"\n";
      return 1;
    }
    out << "entry \"" << name << "\" size " << size << " at offset " << data << "\n";
    offset = data + static_cast<size_t>(size);
    ++count;
  }
  out << count << " entr" << (count == 1 ? "y" : "ies") << ", " << bytes.size() << " bytes\n";
  return 0;
}

void SplitPath(const std::string& path, CString* folder, CString* name) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) {
    *folder = CString(".");
    *name = CString::FromUtf8(path);
  } else {
    *folder = CString::FromUtf8(slash == 0 ? std::string("/") : path.substr(0, slash));
    *name = CString::FromUtf8(path.substr(slash + 1));
  }
}

int RunTsf(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
  const bool two = args.size() == 2 && (args[0] == "dump" || args[0] == "check");
  const bool three = args.size() == 3 && args[0] == "export";
  if (!two && !three) {
    err << "usage: kordll tsf dump|check FILE | kordll tsf export FILE DIR\n";
    return 2;
  }
  std::string bytes;
  if (!kordll::FileSystem::IsFile(CString::FromUtf8(args[1])) ||
      !kordll::FileSystem::ReadWholeFile(CString::FromUtf8(args[1]), &bytes)) {
    err << "kordll tsf: cannot read " << args[1] << "\n";
    return 2;
  }
  if (args[0] == "dump") return Dump(bytes, out);

  CString folder, name;
  SplitPath(args[1], &folder, &name);
  SkinFile skin;
  kordll::SkinParseReport report;
  const int accepted = skin.ParseSkinFile(name, folder, &report);
  if (accepted) {
    out << "accepted: \"" << skin.GetHeaderText(0).ToUtf8() << "\", \""
        << skin.GetHeaderText(1).ToUtf8() << "\", \"" << skin.GetHeaderText(2).ToUtf8() << "\", "
        << report.entries << " entr" << (report.entries == 1 ? "y" : "ies") << "\n";
  } else {
    out << "refused at offset " << report.offset << ": " << report.reason.ToUtf8() << "\n";
  }
  if (args[0] == "export") {
    const CString target = CString::FromUtf8(args[2]);
    if (!kordll::FileSystem::IsFolder(target)) {
      err << "kordll tsf: no folder " << args[2] << "\n";
      return 2;
    }
    for (const CString& entry : skin.GetEntryNames()) {
      if (skin.ExportSkinFile(entry, target)) {
        out << "exported \"" << entry.ToUtf8() << "\"\n";
      } else {
        out << "passed over \"" << entry.ToUtf8() << "\"\n";
      }
    }
  }
  return accepted ? 0 : 1;
}

const kordll_tool::Registration kTsf{"tsf", "tsf dump|check FILE | tsf export FILE DIR",
                                     "show, check or unpack a skin container (.tsf)", &RunTsf};

}  // namespace
