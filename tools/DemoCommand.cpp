// `kordll demo`: a short walk through what the library does, on the data
// root of the process (the Makefile points KORDLL_ROOT at build/demo-root).
//
// Each step says what it does and prints what came out. The walk leaves the
// data root as it found it but for the profile's run counter, so any number
// of runs in a row behave alike. Exit status: 0 when every step gave what
// it should, 1 when one did not (the step says which on standard error).

#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "kordll/filter/ContentFilter.h"
#include "kordll/platform/COleDateTime.h"
#include "kordll/platform/CRuntime.h"
#include "kordll/platform/CString.h"
#include "kordll/platform/CWinApp.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/platform/LibraryInfo.h"
#include "kordll/platform/Locations.h"
#include "kordll/record/AZeusDB.h"
#include "kordll/record/DBTaskItem.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/RGDBTemplate.h"
#include "kordll/schema/GlobalRelationsCtrl.h"
#include "kordll/schema/Relation.h"
#include "kordll/toolkit/CXMLFile.h"
#include "kordll/toolkit/IXMLDOMNode.h"
#include "kordll/toolkit/KorlanDateTime.h"
#include "kordll/toolkit/KorlanHTMLCtrl.h"
#include "kordll/toolkit/PrintTemplate.h"
#include "tools/DemoWalk.h"
#include "tools/ToolCommand.h"

namespace {

using kordll::COleDateTime;
using kordll::CString;
using kordll::Focusable;
using kordll::KorlanDateTime;

constexpr int kPostRelation = 4;
// The application controller that holds the demo's post (GUID "R3_G...").
constexpr int kPostsController = 3;
const char16_t kDatabaseName[] = u"demo";

using kordll_tool::Walk;

std::string Quoted(const CString& text) {
  std::string quoted(1, '"');
  quoted.append(text.ToUtf8()).append(1, '"');
  return quoted;
}

void TextAndRuntime(Walk& walk) {
  walk.Step("Text is 16-bit units, formatted without C varargs");
  std::ostream& out = walk.out();
  CString guid = CString::Formatted(u"R%d_G%d", 7, 1234);
  out << "  GUID of record 1234 of controller 7: " << guid.ToUtf8() << "\n";
  walk.Expect(guid == CString("R7_G1234"), "the GUID is not R7_G1234");
  CString title(u"Über die Brücke");
  CString lower = title;
  lower.MakeLower();
  out << "  " << Quoted(title) << " lower-cased unit by unit: " << Quoted(lower) << "\n";
  walk.Expect(lower == CString(u"über die brücke"), "lower-casing went wrong");

  walk.Step("The record files keep numbers in brackets, read back with C meaning");
  int id = 0, relation = 0, length = 0;
  int fields =
      kordll::swscanf(CString(u"[40:4:120]"), CString(u"[%d:%d:%d]"), {&id, &relation, &length});
  out << "  \"[40:4:120]\" -> " << fields << " fields: sub-table " << id << ", relation "
      << relation << ", length " << length << "\n";
  walk.Expect(fields == 3 && id == 40 && relation == 4 && length == 120, "the scan went wrong");
  const int apples = kordll::_wtoi(CString(u"  -17 apples"));
  out << "  _wtoi(\"  -17 apples\") = " << apples << "\n";
  walk.Expect(apples == -17, "_wtoi went wrong");
}

void FeedDates(Walk& walk) {
  walk.Step("Feed dates in several shapes, read and told in words");
  const char* const texts[] = {
      "Mon, 07 Nov 2005 10:00:00 GMT",  // RSS
      "2005-11-03T09:15:43-05:00",      // Atom, with an offset
      "11/07/05@10:00",                 // the shape stored in records
      "Monday November 7, 2005 @ 10:00",
  };
  for (const char* text : texts) {
    KorlanDateTime::ReadInfo info;
    COleDateTime date = KorlanDateTime::StringToDateTimeExplained(CString(text), 1, &info);
    walk.out() << "  " << Quoted(CString(text)) << "\n";
    if (!walk.Expect(date.GetStatus() == COleDateTime::valid,
                     std::string("\"") + text + "\" did not read as a date")) {
      continue;
    }
    walk.out() << "      shape " << info.form << ", zone "
               << (info.zone_word.IsEmpty() ? std::string("none (GMT)") : Quoted(info.zone_word))
               << "; local " << date.Format(u"%Y-%m-%d %H:%M:%S").ToUtf8() << "\n"
               << "      stored " << KorlanDateTime::DateTimeToSimpleString(date, 0).ToUtf8()
               << "; full " << Quoted(KorlanDateTime::DateTimeToFullString(date, 0)) << "\n"
               << "      shown " << Quoted(KorlanDateTime::DateTimeToPublicationString(date, 0, 1))
               << "; " << KorlanDateTime::GetAgo_COleDateTime(date, 0, 1, 1, 1).ToUtf8() << "\n";
  }
  COleDateTime bad = KorlanDateTime::StringToDateTime(CString("next Tuesday-ish"), 1);
  walk.out() << "  \"next Tuesday-ish\" -> "
             << (bad.GetStatus() == COleDateTime::valid ? "a date?" : "not a date") << "\n";
  walk.Expect(bad.GetStatus() != COleDateTime::valid, "nonsense read as a date");
}

void HtmlText(Walk& walk) {
  walk.Step("HTML in a feed snippet: entities decoded, markup removed");
  const CString snippet(u"<p>Fish &amp; chips &#8220;today&#8221; &lt;3</p>");
  const CString decoded = kordll::KorlanHTMLCtrl::DecodeString(snippet);
  const CString plain = kordll::KorlanHTMLCtrl::EscapeHTML(decoded, nullptr, 0);
  walk.out() << "  snippet: " << snippet.ToUtf8() << "\n"
             << "  decoded: " << decoded.ToUtf8() << "\n"
             << "  text:    " << plain.ToUtf8() << "\n";
  walk.Expect(decoded.Find(CString(u"Fish & chips")) >= 0 && decoded.Find(CString(u"&#")) < 0 &&
                  decoded.Find(CString(u"<3")) >= 0,
              "the entities were not decoded");
  // Named letters are decoded group by group, and a group is reached only
  // when the guards before it are in the text: without a numeric reference
  // the letters stay as they are. Feeds have always been shown that way.
  const CString letters(u"Caf&eacute; cr&egrave;me");
  walk.out() << "  letters: " << letters.ToUtf8() << " -> "
             << kordll::KorlanHTMLCtrl::DecodeString(letters).ToUtf8()
             << " (no \"&#\" in the text: the letter groups are not reached)\n";
  const CString link = kordll::KorlanHTMLCtrl::URLDecode(CString("search?q=feed+reader%21"));
  walk.out() << "  address \"search?q=feed+reader%21\" decoded: " << link.ToUtf8() << "\n";
  walk.Expect(link == CString("search?q=feed reader!"), "the address was not decoded");
}

// Tests a held record; gives back any reservation the filter left with us.
int Passes(kordll::ContentFilter* filter, Focusable* record) {
  const int before = record->GetReferenceCount();
  const int passed = filter->CheckFocusable(record, 0);
  for (int count = record->GetReferenceCount(); count > before; --count) record->Release();
  return passed;
}

// The number of records a scan of db finds.
int CountRecords(kordll::AZeusDB* db) {
  kordll::DBTaskItem task;
  task.allFields = 0;
  task.DefineFieldTaskType(0, kordll::DBTaskItem::kTaskLoad);
  int count = 0;
  for (;;) {
    Focusable record(-1, db);
    if (db->readFocusableSlot(&record, nullptr, &task) != 1) break;
    ++count;
  }
  return count;
}

// Steps with the catalogue: a post made, saved, read back, filtered,
// printed, and removed again.
void Records(Walk& walk) {
  walk.Step("The catalogue of relations");
  // The first catalogue made is the one of the process: records are laid
  // out by it.
  kordll::GlobalRelationsCtrl catalogue;
  const kordll::Relation* relation = catalogue.GetRelation(kPostRelation);
  if (!walk.Expect(relation != nullptr && relation->GetRGDBTemplate() != nullptr,
                   "relation 4 is missing")) {
    return;
  }
  const int fieldCount = relation->GetRGDBTemplate()->GetFieldCount();
  walk.out() << "  " << catalogue.GetRelationCount() << " relations; relation 4 is "
             << Quoted(relation->GetRelationName()) << " with " << fieldCount << " fields:\n   ";
  for (int field = 0; field < fieldCount; ++field) {
    const CString tag = relation->GetFieldDecorationName(field);
    walk.out() << " " << field;
    if (!tag.IsEmpty()) walk.out() << "=" << tag.ToUtf8();
  }
  walk.out() << "\n";

  walk.Step("A post saved in a record database of the data root and read back");
  const CString folder = kordll::Locations::GetDataRoot();
  if (!walk.Expect(kordll::FileSystem::CreateDirectoryTree(folder) == 1,
                   "cannot make the data root " + folder.ToUtf8())) {
    return;
  }
  kordll::AZeusDB db(folder, CString(kDatabaseName), 0, 0);
  // Opening reads the database header (a missing file is made). A file that
  // is not a record database of this version is left alone: the engine
  // would write into whatever it finds.
  const int header = db.openDB(1);
  db.closeDB();
  if (!walk.Expect(header == 0, db.GetDBPath().ToUtf8() + " is not a record database (error " +
                                    std::to_string(header) + "); it is left as it is")) {
    return;
  }
  const int before = CountRecords(&db);
  int slot = -1;
  {
    // A new record nobody holds: saved, then dropped by its owner (here).
    Focusable post(kPostRelation, &db);
    post.SetGUID(CString::Formatted(u"R%d_G%d", kPostsController, 1));
    post.SetOriginedResourceControllerID(kPostsController, 0);
    post.SetFocusableStatus(Focusable::kStatusUnread | Focusable::kStatusFlagged);
    post.SetReceiveDateTime(COleDateTime::GetCurrentTime());
    post.SetPublicationDateTime(
        KorlanDateTime::StringToDateTime(CString("Mon, 07 Nov 2005 10:00:00 GMT"), 1));
    post.SetPostTitle(CString(u"A record store of its own & no server"));
    post.SetValueStr(7, CString(u"Posts are <b>slots</b> chained over sub-tables."), 1);
    post.SetValueStr(10, CString(u"http://example.com/kdb?a=1&b=2"), 1);
    post.SetValueStr(15, CString(u"http://example.com/talk.mp3|3145728|audio/mpeg"), 1);
    if (!walk.Expect(post.SaveFocusable() == 1,
                     "saving failed: " + db.GetLastDBErrorMsg().ToUtf8())) {
      return;
    }
    slot = post.GetDBSlotIndex();
  }
  walk.out() << "  saved in " << db.GetDBPath().ToUtf8() << " at slot " << slot << "\n";

  // Read back into a new object that knows only its place in the file. The
  // controller a record comes from holds it; that controller's
  // ReleaseHeader at the end deletes it.
  auto* back = new Focusable(kPostRelation, &db);
  back->SetDBSlotIndex(slot);
  back->SetOriginedResourceControllerID(kPostsController, 0);
  if (walk.Expect(back->LoadFocusable(nullptr) == 1,
                  "reading back failed: " + db.GetLastDBErrorMsg().ToUtf8())) {
    walk.out() << "  read back: " << back->GetGUID().ToUtf8() << ", status "
               << back->GetFocusableStatus() << ", " << Quoted(back->GetPostTitle()) << "\n"
               << "  published "
               << KorlanDateTime::DateTimeToPublicationString(back->GetPostPublicationDate(), 0, 1)
                      .ToUtf8()
               << "\n";
    walk.Expect(back->GetGUID() == CString("R3_G1") &&
                    back->GetPostTitle() == CString(u"A record store of its own & no server") &&
                    back->GetFocusableStatus() == 6,
                "the post read back differs from the one saved");

    walk.Step("A content filter tested against the post");
    kordll::ContentFilter filter;
    filter.ReSetFilterStatus(kordll::ContentFilter::kSearchFilter, 0);
    filter.AddFilteredStringItem(CString(u"slots"), kPostRelation, -1, 0);
    const int found = Passes(&filter, back);
    walk.out() << "  sentence: " << filter.CreateStringDefinition().ToUtf8() << "\n"
               << "  stored:   " << filter.GetFilter().ToUtf8() << "\n"
               << "  the post " << (found ? "passes" : "does not pass") << "\n";
    walk.Expect(found == 1, "the word \"slots\" was not found in the post");
    kordll::ContentFilter other;
    other.SetFilterOut(1);
    other.AddFilteredStringItem(CString(u"weather"), kPostRelation, -1, 0);
    const int rejected = Passes(&other, back);
    walk.out() << "  sentence: " << other.CreateStringDefinition().ToUtf8() << "\n"
               << "  the post " << (rejected ? "matches" : "does not match") << "\n";
    walk.Expect(rejected == 0, "the word \"weather\" was found in the post");

    walk.Step("The post printed through its relation's decoration");
    // The decoration names the post's controller in front of its GUID.
    // For the display text, values are made safe for XML by the decoration
    // itself (CDATA sections, escaped "&", "<" and ">").
    std::unique_ptr<kordll::PrintTemplate> shown(relation->DecorateFocusable(back, 1));
    if (walk.Expect(shown != nullptr, "the post gave no decoration")) {
      walk.out() << "  as display text:\n" << shown->FlushTemplate(0).ToUtf8() << "\n";
    }
    // For an XML document, values go in as they are: the document escapes.
    std::unique_ptr<kordll::PrintTemplate> printed(relation->DecorateFocusable(back, 0));
    kordll::CXMLFile xml;
    kordll::IXMLDOMNode* node = nullptr;
    CString text;
    if (walk.Expect(printed != nullptr, "the post gave no decoration") &&
        walk.Expect(printed->FlushTemplateIntoXMLFile(&xml, nullptr, &node, 0) == 1 &&
                        xml.GetXML(text) == 1,
                    "the decoration did not become XML")) {
      walk.out() << "  as an XML document:\n" << text.ToUtf8();
      if (!text.IsEmpty() && text[text.GetLength() - 1] != u'\n') walk.out() << "\n";
      CString title;
      walk.Expect(xml.GetSingleNodeValue(CString("title"), title) == 1 &&
                      title == CString(u"A record store of its own & no server"),
                  "the XML does not carry the title");
    }
    if (node != nullptr) node->Release();
    back->Release();
  }

  walk.Step("The post removed again, so the next run starts alike");
  walk.Expect(back->DeleteFocusable() == 1,
              "removing the post failed: " + db.GetLastDBErrorMsg().ToUtf8());
  walk.Expect(back->ReleaseHeader(kPostsController) == 1,
              "the post outlived the release of its last holder");
  const int after = CountRecords(&db);
  walk.out() << "  records in " << kordll::Locations::GetFileName(db.GetDBPath()).ToUtf8() << ": "
             << after << " (as before the step)\n";
  walk.Expect(after == before, "the database does not hold what it held before");
}

void Profile(Walk& walk) {
  walk.Step("A profile value written and read back");
  // The application object names the profile: "Software\Tidrel\Demo" of
  // the per-user registry in the profile folder. It is current while it
  // lives, unless the process already has one.
  kordll::CWinApp* app = kordll::AfxGetApp();
  std::unique_ptr<kordll::CWinApp> own;
  if (app == nullptr) {
    own = std::make_unique<kordll::CWinApp>(u"Tidrel", u"Demo");
    app = own.get();
  }
  const int runs = app->GetProfileInt(u"Walk", u"Runs", 0) + 1;
  const int written = app->WriteProfileInt(u"Walk", u"Runs", runs);
  const int read = app->GetProfileInt(u"Walk", u"Runs", -1);
  walk.out() << "  " << app->GetSectionKey(u"Walk").ToUtf8() << "\\Runs = " << read << " (in "
             << kordll::Locations::GetProfileFolder().ToUtf8() << ")\n";
  walk.Expect(written == 1 && read == runs, "the run counter did not read back");
  app->WriteProfileString(u"Walk", u"LastTitle", u"Über die Brücke");
  const CString title = app->GetProfileString(u"Walk", u"LastTitle");
  walk.out() << "  " << app->GetSectionKey(u"Walk").ToUtf8() << "\\LastTitle = " << Quoted(title)
             << "\n";
  walk.Expect(title == CString(u"Über die Brücke"), "the text did not read back");
}

int Run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
  if (!args.empty()) {
    err << "usage: kordll demo\n";
    return 2;
  }
  out << "KorDLL " << kordll::GetLibraryVersion() << " demo\n"
      << "data root " << kordll::Locations::GetDataRoot().ToUtf8() << "\n";
  Walk walk(out, err);
  for (const kordll_tool::DemoStep& step : kordll_tool::DemoSteps()) step.run(walk);
  out << "\n" << (walk.failed() ? "Some steps failed." : "All steps done.") << "\n";
  return walk.failed() ? 1 : 0;
}

const kordll_tool::DemoStepRegistration kText{10, &TextAndRuntime};
const kordll_tool::DemoStepRegistration kDates{20, &FeedDates};
const kordll_tool::DemoStepRegistration kHtml{30, &HtmlText};
const kordll_tool::DemoStepRegistration kRecords{40, &Records};
const kordll_tool::DemoStepRegistration kProfile{50, &Profile};

const kordll_tool::Registration kReg{"demo", "demo", "walk through what the library does", &Run};

}  // namespace
