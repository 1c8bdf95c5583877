// The record object through the entry points of the record core: saves,
// loads and deletes without a database, presentation, opening, broadcasting
// and the finders.

#include <gtest/gtest.h>

#include "kordll/platform/Clock.h"
#include "kordll/record/AZeusDB.h"
#include "kordll/record/DBTaskItem.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/IntItem.h"
#include "kordll/record/Item.h"
#include "kordll/record/LibraryLifetime.h"
#include "kordll/record/RGDBTemplate.h"
#include "tests/record/FocusableTestSupport.h"
#include "tests/support/TempRoot.h"

namespace kordll {
namespace {

using test::CountedRecord;
using test::FakeController;
using test::FakeRegistry;
using test::FakeSettings;
using test::ScopedEntry;

using test::FocusableTest;

// --- Records without a database -------------------------------------------------------

TEST_F(FocusableTest, SavesLoadsAndDeletesWithoutDatabaseFailPlainly) {
  Focusable record(4, nullptr);
  record.SetValueStr(4, CString(u"keep"), 1);
  EXPECT_EQ(record.SaveFocusable(), 0);
  EXPECT_EQ(record.LoadFocusable(nullptr), 0);
  EXPECT_EQ(record.DeleteFocusable(), 0);
  EXPECT_EQ(record.GetReferenceCount(), 0);
  EXPECT_EQ(record.NeedToSave(), 1);
  EXPECT_EQ(record.GetFieldString(4, 0), CString(u"keep"));
  record.SetSavable(0);
  EXPECT_EQ(record.SaveFocusable(), 1);  // not savable: succeeds untouched
  EXPECT_EQ(record.DeleteFocusable(), 1);
  EXPECT_EQ(record.NeedToSave(), 1);
}

// --- Entry points -----------------------------------------------------------------------

TEST_F(FocusableTest, DefaultEntryPointsAnswerAsNoOwner) {
  RegistryEntryPoints* registry = RegistryEntryPoints::Get();
  ASSERT_NE(registry, nullptr);
  EXPECT_EQ(registry->IsGlobalResourceValid(), 1);
  EXPECT_EQ(registry->AreDBsCleared(), 0);
  EXPECT_EQ(registry->GetPostCtrl(3), nullptr);
  EXPECT_EQ(registry->InterpretGUICommand(nullptr, nullptr), 0);
  EXPECT_EQ(SettingsEntryPoints::Get()->GetCurrentPreferencesIntValue(11), 0);
  EXPECT_EQ(SettingsEntryPoints::Get()->GetCurrentPreferences(), nullptr);
  Focusable post(4, nullptr);
  EXPECT_EQ(post.DecorateFocusable(0), nullptr);
  EXPECT_EQ(post.PrintFocusableBackup(), nullptr);
  // Install replaces and gives back the previous owner.
  FakeRegistry first;
  FakeRegistry second;
  EXPECT_EQ(RegistryEntryPoints::Install(&first), nullptr);
  EXPECT_EQ(RegistryEntryPoints::Get(), &first);
  EXPECT_EQ(RegistryEntryPoints::Install(&second), &first);
  EXPECT_EQ(RegistryEntryPoints::Install(nullptr), &second);
  EXPECT_NE(RegistryEntryPoints::Get(), &second);
  EXPECT_EQ(RegistryEntryPoints::Get()->IsGlobalResourceValid(), 1);
}

TEST_F(FocusableTest, FieldTypesComeFromTheTemplateTable) {
  Focusable post(4, nullptr);
  EXPECT_EQ(post.GetFieldType(0), 4);
  EXPECT_EQ(post.GetFieldType(1), 0);
  EXPECT_EQ(post.GetFieldType(2), 2);
  EXPECT_EQ(post.GetFieldType(3), 2);
  EXPECT_EQ(post.GetFieldType(4), -1);  // no template
  RGDBTemplate layout(4);
  layout.AddField(4, 60, 4, CString(), CString(), 0, 0);
  layout.AddField(6, 4, 3, CString(), CString(), 0, 0);
  RelationsEntryPoints::SetTemplate(4, &layout);
  EXPECT_EQ(post.GetFieldType(4), 4);
  EXPECT_EQ(post.GetFieldType(6), 3);
  EXPECT_EQ(post.GetFieldType(5), -1);
  EXPECT_EQ(Focusable(11, nullptr).GetFieldType(4), -1);
  RelationsEntryPoints::SetTemplate(4, nullptr);
  EXPECT_EQ(post.GetFieldType(4), -1);
  RelationsEntryPoints::SetTemplate(4, &layout);
  RelationsEntryPoints::ClearTemplates();
  EXPECT_EQ(RelationsEntryPoints::Get()->GetRGDBTemplate(4), nullptr);
}

// A catalogue that gives a dummy print template and records attributes.
class FakeCatalogue : public RelationsEntryPoints {
 public:
  PrintTemplate* DecorateFocusable(Focusable*, int escape) override {
    lastEscape = escape;
    return reinterpret_cast<PrintTemplate*>(&dummy);
  }
  int AddPrintTemplateAttribute(PrintTemplate* printed, CString name, CString value) override {
    EXPECT_EQ(printed, reinterpret_cast<PrintTemplate*>(&dummy));
    attributes.emplace_back(name, value);
    return 1;
  }
  int dummy = 0;
  int lastEscape = -1;
  std::vector<std::pair<CString, CString>> attributes;
};

TEST_F(FocusableTest, DecorationAddsThePostRankLevelByRankMode) {
  FakeCatalogue catalogue;
  FakeSettings settings;
  ScopedEntry<RelationsEntryPoints> c(&catalogue);
  ScopedEntry<SettingsEntryPoints> s(&settings);
  Focusable post(4, nullptr);
  struct Case {
    int mode, status;
    const char16_t* level;
  };
  const Case cases[] = {{1, 512, u"2"},         {1, 1024, u"3"}, {1, 256, u"1"},
                        {1, 0, u"1"},           {2, 256, u"5"},  {2, 512, u"6"},
                        {2, 1024 | 2048, u"7"}, {2, 2048, u"8"}, {2, 4, u"4"}};
  for (const Case& c : cases) {
    settings.rankMode = c.mode;
    post.SetFocusableStatus(c.status);
    catalogue.attributes.clear();
    EXPECT_NE(post.DecorateFocusable(1), nullptr);
    ASSERT_EQ(catalogue.attributes.size(), 1u);
    EXPECT_EQ(catalogue.attributes[0].first, CString(u"postranklevel"));
    EXPECT_EQ(catalogue.attributes[0].second, CString(c.level)) << c.mode << " " << c.status;
  }
  EXPECT_EQ(catalogue.lastEscape, 1);
  settings.rankMode = 3;
  catalogue.attributes.clear();
  post.DecorateFocusable(0);
  EXPECT_TRUE(catalogue.attributes.empty());
  settings.rankMode = 1;
  Focusable other(26, nullptr);
  other.DecorateFocusable(0);
  EXPECT_TRUE(catalogue.attributes.empty());
}

TEST_F(FocusableTest, OpeningAPostAsksPanelOneToShowItsLink) {
  FakeRegistry registry;
  int panelStandIn = 0;
  registry.panelOne = reinterpret_cast<IIPanel*>(&panelStandIn);
  ScopedEntry<RegistryEntryPoints> scope(&registry);
  Focusable post(4, nullptr);
  EXPECT_EQ(post.OpenFocusable(), 1);
  EXPECT_TRUE(registry.panelMessages.empty());  // no link
  post.SetValueStr(10, CString(u"http://a/"), 1);
  EXPECT_EQ(post.OpenFocusable(), 1);
  ASSERT_EQ(registry.panelMessages.size(), 1u);
  EXPECT_EQ(registry.panelMessages[0].panel, registry.panelOne);
  EXPECT_EQ(registry.panelMessages[0].message, 1039u);
  EXPECT_EQ(registry.panelMessages[0].request.message, 1081);
  EXPECT_EQ(registry.panelMessages[0].request.text, CString(u"http://a/"));
  Focusable tree(7, nullptr);
  tree.SetValueStr(10, CString(u"http://b/"), 1);
  EXPECT_EQ(tree.OpenFocusable(), 1);
  EXPECT_EQ(registry.panelMessages.size(), 1u);
}

TEST_F(FocusableTest, PropertiesCommandDependsOnTheRelation) {
  FakeRegistry registry;
  ScopedEntry<RegistryEntryPoints> scope(&registry);
  int panelStandIn = 0;
  auto* panel = reinterpret_cast<IIPanel*>(&panelStandIn);
  const std::pair<int, int> table[] = {{4, 29120}, {11, 29120}, {25, 29169}, {26, 29170}};
  for (auto [relation, command] : table) {
    Focusable record(relation, nullptr);
    EXPECT_EQ(record.OpenFocusableProperties(CPoint(3, 4), panel, 0), 1);
    ASSERT_FALSE(registry.commands.empty());
    const PanelViewRequest& request = registry.commands.back();
    EXPECT_EQ(request.message, command);
    EXPECT_EQ(request.focusable, &record);
    EXPECT_EQ(request.point, CPoint(3, 4));
    EXPECT_EQ(request.panel, panel);
    EXPECT_EQ(request.object, 1);
  }
  Focusable post(4, nullptr);
  post.OpenFocusableProperties(CPoint(), nullptr, 1);
  EXPECT_EQ(registry.commands.back().object, 0);
  const size_t before = registry.commands.size();
  EXPECT_EQ(Focusable(7, nullptr).OpenFocusableProperties(CPoint(), nullptr, 0), 0);
  EXPECT_EQ(registry.commands.size(), before);
}

TEST_F(FocusableTest, BroadcastGoesToTheOriginatingControllerWhileTheRegistryLives) {
  FakeRegistry registry;
  FakeController controller;
  registry.controllers[3] = &controller;
  ScopedEntry<RegistryEntryPoints> scope(&registry);
  Focusable post(4, nullptr);
  EXPECT_EQ(post.BroadCastUpdate(0, 1041), 0);  // no origin
  post.SetOriginedResourceControllerID(3, 0);
  EXPECT_EQ(post.BroadCastUpdate(0, 1041), 7);
  EXPECT_EQ(post.BroadCastUpdate(1, 1041), 9);
  ASSERT_EQ(registry.sent.size(), 2u);
  EXPECT_FALSE(registry.sent[0].posted);
  EXPECT_TRUE(registry.sent[1].posted);
  EXPECT_EQ(registry.sent[0].kind, 3);
  EXPECT_EQ(registry.sent[0].message, 1041);
  EXPECT_EQ(registry.sent[0].record, &post);
  registry.valid = 0;
  EXPECT_EQ(post.BroadCastUpdate(0, 1041), 0);
  EXPECT_EQ(registry.sent.size(), 2u);
  post.SetOriginedResourceControllerID(4, 0);  // unknown controller
  registry.valid = 1;
  EXPECT_EQ(post.BroadCastUpdate(0, 1041), 0);
}

// --- Finders ------------------------------------------------------------------------------

TEST_F(FocusableTest, FindByGuidAsksTheControllerByIdThenByGuid) {
  FakeRegistry registry;
  FakeController controller;
  registry.controllers[4] = &controller;
  ScopedEntry<RegistryEntryPoints> scope(&registry);
  Focusable byID(4, nullptr);
  Focusable byGUID(4, nullptr);
  controller.byID[7] = &byID;
  controller.byGUID[CString(u"R4_G8")] = &byGUID;
  EXPECT_EQ(Focusable::GetFocusable_wGUID(CString(u"R4_G7")), &byID);
  EXPECT_EQ(Focusable::GetFocusable_wGUID(CString(u"R4_G8")), &byGUID);
  EXPECT_EQ(Focusable::GetFocusable_wGUID(CString(u"R4_G9")), nullptr);
  EXPECT_EQ(Focusable::GetFocusable_wGUID(CString(u"R4")), nullptr);
  EXPECT_EQ(Focusable::GetFocusable_wGUID(CString(u"R4_G-1")), nullptr);
  EXPECT_EQ(Focusable::GetFocusable_wGUID(CString(u"R5_G7")), nullptr);  // no controller
  EXPECT_EQ(Focusable::GetFocusable_wGUID(CString()), nullptr);
}

// The finder by database location waits on the manual clock for a registry
// that tests script.
class DatabaseLocationTest : public FocusableTest {
 protected:
  ScopedManualClock clock_;
  FakeRegistry registry;
  ScopedEntry<RegistryEntryPoints> scope_{&registry};
  FakeController controller;
  Focusable known{4, nullptr};
};

TEST_F(DatabaseLocationTest, GivesUpWithoutControllerAfterItsBound) {
  EXPECT_EQ(Focusable::GetFocusable_wDBLocation(CString(u"R3_G1"), -1, 0), nullptr);
  EXPECT_EQ(registry.postCtrlQuestions, 0);
  const int64_t start = Clock::MonotonicMillis();
  EXPECT_EQ(Focusable::GetFocusable_wDBLocation(CString(u"R3_G1"), 120, 0), nullptr);
  const int64_t waited = Clock::MonotonicMillis() - start;
  EXPECT_GE(waited, 15000);
  EXPECT_LT(waited, 15100);
}

TEST_F(DatabaseLocationTest, StopsWaitingWhenTheRegistryCloses) {
  registry.onValidityQuestion = [&](int n) {
    if (n == 5) registry.valid = 0;
  };
  EXPECT_EQ(Focusable::GetFocusable_wDBLocation(CString(u"R3_G1"), 120, 0), nullptr);
  EXPECT_LT(Clock::MonotonicMillis(), 100);
}

TEST_F(DatabaseLocationTest, WaitsForTheControllerAndItsId) {
  controller.byGUID[CString(u"R3_G1")] = &known;
  // The controller appears after a few passes, and gets its id later.
  registry.onPostCtrlQuestion = [&](int n) {
    if (n == 20) registry.byDatabase[120] = &controller;
  };
  registry.onValidityQuestion = [&](int n) {
    if (n == 60) controller.id = 3;
  };
  EXPECT_EQ(Focusable::GetFocusable_wDBLocation(CString(u"R3_G1"), 120, 5), &known);
  EXPECT_EQ(controller.id, 3);
  EXPECT_LT(Clock::MonotonicMillis(), 15000);
  // Known controller, unknown record, no database: null.
  EXPECT_EQ(Focusable::GetFocusable_wDBLocation(CString(u"R3_G2"), 120, 5), nullptr);
}

TEST_F(DatabaseLocationTest, GivesTheIdOfALateControllerItsOwnBound) {
  const int64_t start = Clock::MonotonicMillis();
  // The controller appears after 14 seconds and takes its id (and with it
  // its records) 5 seconds later.
  registry.onPostCtrlQuestion = [&](int) {
    if (Clock::MonotonicMillis() - start >= 14000) registry.byDatabase[120] = &controller;
  };
  registry.onValidityQuestion = [&](int) {
    if (controller.id == -1 && Clock::MonotonicMillis() - start >= 19000) {
      controller.id = 3;
      controller.byGUID[CString(u"R3_G1")] = &known;
    }
  };
  EXPECT_EQ(Focusable::GetFocusable_wDBLocation(CString(u"R3_G1"), 120, 5), &known);
  EXPECT_LT(Clock::MonotonicMillis() - start, 29100);
}

}  // namespace
}  // namespace kordll
