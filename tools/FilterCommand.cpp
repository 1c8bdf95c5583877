// kordll filter TEXT [--check FILE.kdb]: what a stored filter text holds.
//
// Reads TEXT as SetFilter does (either form) and prints what the filter
// holds (status, mask, dates, keywords, the items of each relation and
// field, resources), the text it writes back, and its two sentences. With
// --check, runs the filter over every record of the record file, as a
// controller would over headers that are not loaded, and prints one line
// per accepted record: slot index, relation, GUID and title.
//
// Exit status: 0 done, 1 the text is malformed, 2 a usage error or a file
// that cannot be read.

#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "kordll/filter/ContentFilter.h"
#include "kordll/platform/CString.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/record/AZeusDB.h"
#include "kordll/record/DBTaskItem.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/Item.h"
#include "kordll/schema/GlobalRelationsCtrl.h"
#include "tools/ToolCommand.h"

namespace {

using kordll::CString;

// The controller id the checked headers are held by.
constexpr int kCheckController = 50;

// A text on one line: line breaks and tabs are written as \n, \r and \t.
std::string OneLine(const CString& text) {
  std::string out;
  for (char c : text.ToUtf8()) {
    if (c == '\n') {
      out += "\\n";
    } else if (c == '\r') {
      out += "\\r";
    } else if (c == '\t') {
      out += "\\t";
    } else {
      out += c;
    }
  }
  return out;
}

std::string DateText(const kordll::COleDateTime& date) {
  return date.GetStatus() == kordll::COleDateTime::invalid ? "(none)" : OneLine(date.Format());
}

void PrintFilter(kordll::ContentFilter& filter, std::ostream& out) {
  out << "status\t" << filter.GetFilterStatus() << "\n";
  out << "mask\t" << filter.GetFilterMask() << "\n";
  out << "start\t" << DateText(filter.GetStartDate()) << "\n";
  out << "end\t" << DateText(filter.GetEndDate()) << "\n";
  out << "date test\t" << (filter.IsDateIntervalSet() ? "on" : "off") << "\n";
  kordll::CStringArray keywords;
  filter.GetFilterKeywords(&keywords);
  for (const CString& keyword : keywords) out << "keyword\t" << OneLine(keyword) << "\n";
  for (const auto& [relation, fields] : filter.GetFilteredFields()) {
    if (fields.empty()) out << "relation\t" << relation << "\t(no fields)\n";
    for (const auto& [field, items] : fields) {
      if (items.empty()) out << "relation\t" << relation << "\tfield\t" << field << "\t(empty)\n";
      for (kordll::Item* item : items) {
        if (item == nullptr) continue;
        out << "relation\t" << relation << "\tfield\t" << field << "\t"
            << kordll_tool::FieldTypeName(item->GetItemTypeID()) << "\t"
            << OneLine(item->GetItemString()) << "\n";
      }
    }
  }
  for (int resource : filter.GetResources()) out << "resource\t" << resource << "\n";
  out << "text\t" << OneLine(filter.GetFilter()) << "\n";
  out << "sentence\t" << OneLine(filter.CreateStringDefinition()) << "\n";
  out << "notification\t" << OneLine(filter.GetFilterDefinition()) << "\n";
}

// Splits "dir/name.kdb" into the folder and the name the database takes.
void SplitPath(const std::string& path, CString* directory, CString* name) {
  std::string file = path;
  std::string folder;
  const size_t slash = path.rfind('/');
  if (slash != std::string::npos) {
    folder = path.substr(0, slash + 1);
    file = path.substr(slash + 1);
  }
  if (file.size() > 4 && file.compare(file.size() - 4, 4, ".kdb") == 0) {
    file.resize(file.size() - 4);
  }
  *directory = CString::FromUtf8(folder);
  *name = CString::FromUtf8(file);
}

int Check(kordll::ContentFilter& filter, const std::string& path, std::ostream& out,
          std::ostream& err) {
  if (path.size() < 5 || path.compare(path.size() - 4, 4, ".kdb") != 0 ||
      !kordll::FileSystem::IsFile(CString::FromUtf8(path))) {
    err << "kordll filter: not a record file: " << path << "\n";
    return 2;
  }
  // The layouts of the stored records come from the catalogue. If the
  // process already has one, this is a private copy of the same relations.
  kordll::GlobalRelationsCtrl catalogue;
  CString directory;
  CString name;
  SplitPath(path, &directory, &name);
  kordll::AZeusDB db(directory, name, 0, 0);
  const int opened = db.openDB(1);
  if (opened != 0) {
    err << "kordll filter: cannot read " << path << " (error " << opened << ")\n";
    db.closeDB();
    return 2;
  }
  // Collect the slot of every record first: the scan reads each head once.
  std::vector<std::pair<int, int>> slots;  // slot index, relation
  kordll::DBTaskItem scan;
  scan.DefineFieldTaskType(0, kordll::DBTaskItem::kTaskLoad);
  for (;;) {
    kordll::Focusable probe(-1, &db);
    if (db.readFocusableSlot(&probe, nullptr, &scan) != 1) break;
    slots.emplace_back(probe.GetDBSlotIndex(), probe.GetFocusableRelation());
  }
  int checked = 0;
  int accepted = 0;
  for (const auto& [slot, relation] : slots) {
    // A header held as a controller holds it: the filter reads what it
    // needs and gives it up again.
    auto* header = new kordll::Focusable(relation, &db);
    header->SetDBSlotIndex(slot);
    header->ReserveHeader(kCheckController);
    ++checked;
    if (filter.CheckFocusable(header, 0) != 0) {
      ++accepted;
      const bool loaded = header->GetReferenceCount() > 0;
      if (!loaded) header->LoadFocusable(nullptr);
      out << slot << "\t" << header->GetFocusableRelation() << "\t" << OneLine(header->GetGUID())
          << "\t" << OneLine(header->GetPostTitle()) << "\n";
    }
    while (header->GetReferenceCount() > 0) header->Release(nullptr);
    header->ReleaseHeader(kCheckController);
  }
  db.closeDB();
  out << accepted << " of " << checked << " record(s) accepted\n";
  return 0;
}

int RunFilter(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
  const bool check = args.size() == 3 && args[1] == "--check";
  if (args.size() != 1 && !check) {
    err << "usage: kordll filter TEXT [--check FILE.kdb]\n";
    return 2;
  }
  kordll::ContentFilter filter;
  if (filter.SetFilter(CString::FromUtf8(args[0])) == 0) {
    err << "kordll filter: malformed filter text\n";
    return 1;
  }
  if (!check) {
    PrintFilter(filter, out);
    out.flush();
    return out.good() ? 0 : 1;
  }
  return Check(filter, args[2], out, err);
}

const kordll_tool::Registration kFilter{
    "filter", "filter TEXT [--check FILE.kdb]",
    "show what a stored filter text holds, or run it over a record file", &RunFilter};

}  // namespace
