// The catalogue against the schema tables, checked from the tables' own text
// (not from the loader's data): the loader order, every relation's name,
// title and field counts, and several fields of each relation with every
// attribute. A slip in the loader's table shows up here as a mismatch.

#include <gtest/gtest.h>

#include <set>
#include <vector>

#include "kordll/record/FieldInfo.h"
#include "kordll/record/RGDBTemplate.h"
#include "kordll/schema/GlobalRelationsCtrl.h"
#include "kordll/schema/Relation.h"

namespace kordll {
namespace {

constexpr int I = 0;  // int
constexpr int F = 1;  // double
constexpr int D = 2;  // date
constexpr int B = 3;  // bool
constexpr int S = 4;  // string

class DefaultRelationsTest : public ::testing::Test {
 protected:
  const Relation* Rel(int id) {
    const Relation* relation = catalogue_.GetRelation(id);
    EXPECT_NE(relation, nullptr) << "relation " << id;
    return relation;
  }

  // Checks one field with every attribute. Edit kind follows the type unless
  // the relation sets edit properties.
  void ExpectField(int relation, int id, int type, int size, int indexable, int cdata,
                   const char* defaultValue, const char* key) {
    SCOPED_TRACE(testing::Message() << "relation " << relation << " field " << id);
    const Relation* rel = Rel(relation);
    if (rel == nullptr) return;
    ASSERT_NE(rel->GetRGDBTemplate(), nullptr);
    const FieldInfo* field = rel->GetRGDBTemplate()->GetField(id);
    ASSERT_NE(field, nullptr);
    EXPECT_EQ(field->id, id);
    EXPECT_EQ(field->type, type);
    EXPECT_EQ(field->size, size);
    EXPECT_EQ(field->indexable, indexable);
    EXPECT_EQ(field->cdata, cdata);
    EXPECT_EQ(field->defaultValue.ToUtf8(), defaultValue);
    EXPECT_EQ(field->decoration.ToUtf8(), key);
    EXPECT_EQ(rel->GetFieldDecorationName(id).ToUtf8(), key);
    EXPECT_EQ(rel->GetFieldDefaultValueName(id).ToUtf8(), defaultValue);
  }

  void ExpectHole(int relation, int id) {
    const Relation* rel = Rel(relation);
    if (rel == nullptr) return;
    EXPECT_EQ(rel->GetRGDBTemplate()->GetField(id), nullptr)
        << "relation " << relation << " field " << id;
  }

  void ExpectEdit(int relation, int id, const char* label, int kind) {
    const Relation* rel = Rel(relation);
    if (rel == nullptr) return;
    const FieldInfo* field = rel->GetRGDBTemplate()->GetField(id);
    ASSERT_NE(field, nullptr) << "relation " << relation << " field " << id;
    EXPECT_EQ(field->editLabel.ToUtf8(), label) << "relation " << relation << " field " << id;
    EXPECT_EQ(field->editKind, kind) << "relation " << relation << " field " << id;
  }

  GlobalRelationsCtrl catalogue_;
};

TEST_F(DefaultRelationsTest, LoaderOrderIsTheTablesOrder) {
  const std::vector<int> expected = {1,  30, 29, 31, 28, 12, 2, 27, 22, 23, 3,  4,  25, 26, 11, 5,
                                     13, 6,  14, 7,  15, 8,  9, 10, 16, 17, 18, 20, 19, 21, 24};
  EXPECT_EQ(GlobalRelationsCtrl::GetDefaultRelationOrder(), expected);
  // The ids in use are 1 to 31 without gaps.
  std::vector<int> ids;
  for (int id = 1; id <= 31; ++id) ids.push_back(id);
  EXPECT_EQ(catalogue_.GetRelationIDs(), ids);
  EXPECT_EQ(catalogue_.GetRelationCount(), 31);
}

// Per relation: catalogue name, display title, defined fields, and the
// template's field count (highest id plus one).
TEST_F(DefaultRelationsTest, EveryRelationHasItsNameTitleAndFieldCounts) {
  struct Expect {
    int id;
    const char* name;
    const char* title;
    int defined;
    int count;
  };
  const Expect table[] = {
      {1, "", "", 25, 28},
      {30, "", "", 3, 6},
      {29, "", "", 16, 16},
      {31, "preferences", "", 49, 549},
      {28, "", "", 61, 256},
      {12, "", "", 105, 116},
      {2, "", "", 21, 21},
      {27, "", "", 22, 22},
      {22, "", "", 8, 8},
      {23, "", "", 13, 13},
      {3, "channel", "", 24, 26},
      {4, "post", "", 17, 17},
      {25, "note", "", 10, 10},
      {26, "savedpost", "", 20, 20},
      {11, "post", "", 20, 20},
      {5, "author", "", 16, 16},
      {13, "person", "", 10, 11},
      {6, "category", "", 16, 16},
      {14, "categoryentry", "", 7, 8},
      {7, "", "", 18, 18},
      {15, "", "", 6, 6},
      {8, "", "", 4, 4},
      {9, "", "", 12, 12},
      {10, "", "", 13, 13},
      {16, "helpsection", "Help Section", 8, 9},
      {17, "helptopic", "Help Topic", 13, 14},
      {18, "file", "", 15, 15},
      {20, "notification", "", 5, 6},
      {19, "talk", "", 5, 6},
      {21, "bookmark", "", 6, 8},
      {24, "tip", "", 5, 7},
  };
  ASSERT_EQ(std::size(table), 31u);
  for (const Expect& e : table) {
    SCOPED_TRACE(testing::Message() << "relation " << e.id);
    const Relation* rel = Rel(e.id);
    if (rel == nullptr) continue;
    EXPECT_EQ(rel->GetRelationID(), e.id);
    EXPECT_EQ(rel->GetRelationName().ToUtf8(), e.name);
    EXPECT_EQ(rel->GetRelationTitle().ToUtf8(), e.title);
    const RGDBTemplate* layout = rel->GetRGDBTemplate();
    ASSERT_NE(layout, nullptr);
    EXPECT_EQ(layout->GetRelationID(), e.id);
    EXPECT_EQ(layout->GetFieldCount(), e.count);
    int defined = 0;
    for (int i = 0; i < layout->GetFieldCount(); ++i) {
      const FieldInfo* field = layout->GetField(i);
      if (field == nullptr) continue;
      ++defined;
      EXPECT_EQ(field->id, i);
      // Bool, date and double fields always have sizes 1, 30 and 10.
      if (field->type == B) {
        EXPECT_EQ(field->size, 1) << "field " << i;
      }
      if (field->type == D) {
        EXPECT_EQ(field->size, 30) << "field " << i;
      }
      if (field->type == F) {
        EXPECT_EQ(field->size, 10) << "field " << i;
      }
      // Only string fields can be indexable or wrapped.
      if (field->type != S) {
        EXPECT_EQ(field->indexable, 0) << "field " << i;
        EXPECT_EQ(field->cdata, 0) << "field " << i;
      }
    }
    EXPECT_EQ(defined, e.defined);
  }
}

TEST_F(DefaultRelationsTest, UserPreferencesRelation1) {
  ExpectField(1, 0, S, 20, 0, 0, "", "");
  ExpectHole(1, 1);
  ExpectHole(1, 3);
  ExpectField(1, 5, S, 10, 0, 0, "", "");
  ExpectField(1, 13, I, 7, 0, 0, "0", "");
  ExpectField(1, 14, I, 5, 0, 0, "0", "");
  ExpectField(1, 19, I, 7, 0, 0, "0", "");
  ExpectField(1, 20, D, 30, 0, 0, "", "");
  ExpectField(1, 21, S, 50, 0, 0, "1@DelRey", "");
  ExpectField(1, 24, S, 200, 0, 0, "Notify.wav", "");
  ExpectField(1, 25, I, 5, 0, 0, "0", "");
  ExpectField(1, 27, I, 7, 0, 0, "0", "");
}

TEST_F(DefaultRelationsTest, TreeAndActivityRelations30And29) {
  ExpectField(30, 0, S, 10, 0, 0, "", "");
  ExpectField(30, 4, S, 50, 0, 0, "", "");
  ExpectField(30, 5, S, 200, 0, 0, "", "");
  ExpectHole(30, 1);
  ExpectField(29, 1, I, 7, 0, 0, "0", "");
  ExpectField(29, 3, D, 30, 0, 0, "", "");
  ExpectField(29, 9, S, 50, 0, 0, "", "");
  ExpectField(29, 11, S, 100, 0, 0, "", "");
  ExpectField(29, 12, S, 10, 0, 0, "", "");
  ExpectField(29, 13, F, 10, 0, 0, "0.000000", "");
  ExpectField(29, 15, I, 7, 0, 0, "0", "");
}

TEST_F(DefaultRelationsTest, SearchSettingsRelation31) {
  ExpectHole(31, 0);
  ExpectField(31, 4, S, 100, 0, 0, "", "Username");
  ExpectField(31, 85, I, 10, 0, 0, "0", "LastDBID");
  ExpectField(31, 500, I, 10, 0, 0, "5", "SimDownloadCount");
  ExpectField(31, 501, B, 1, 0, 0, "0", "HistoryPanelToggled");
  ExpectField(31, 508, B, 1, 0, 0, "1", "RunWhenSearchStarts");
  ExpectField(31, 513, I, 10, 0, 0, "10", "FindingsPageSize");
  ExpectField(31, 514, F, 10, 0, 0, "33.000000", "HistoryHeightRatio");
  ExpectField(31, 516, F, 10, 0, 0, "33.000000", "FindingsHeightRatio");
  ExpectField(31, 517, I, 10, 0, 0, "120", "TransparencyLevel");
  ExpectField(31, 518, B, 1, 0, 0, "1", "AutoHighlight");
  ExpectField(31, 523, I, 10, 0, 0, "-1", "HighlighterAutoCloseTimeout");
  ExpectHole(31, 525);
  ExpectHole(31, 526);
  ExpectField(31, 529, I, 10, 0, 0, "0", "SeachSpacePaneHeightTwoP");
  ExpectField(31, 535, I, 10, 0, 0, "0", "SeachSpacePaneHeightThrP");
  ExpectField(31, 539, B, 1, 0, 0, "1", "InterstsVisibleInTowerMode");
  ExpectField(31, 545, B, 1, 0, 0, "0", "SearchSpaceExpandedInTowerMode");
  ExpectField(31, 546, B, 1, 0, 0, "1", "SearchSpaceExpandedInSubMode");
  ExpectField(31, 548, B, 1, 0, 0, "1", "FindingsExpandedInSubMode");
}

TEST_F(DefaultRelationsTest, PodcastSettingsRelation28) {
  ExpectField(28, 4, S, 100, 0, 0, "", "Username");
  ExpectField(28, 8, B, 1, 0, 0, "0", "WelcomeDone");
  ExpectField(28, 26, B, 1, 0, 0, "1", "EnableNotifier");
  ExpectField(28, 42, S, 100, 0, 0, "", "NotifFile");
  ExpectField(28, 85, I, 10, 0, 0, "0", "LastDBID");
  ExpectField(28, 201, I, 10, 0, 0, "8080", "ProxyPort");
  ExpectField(28, 202, S, 20, 0, 0, "", "ProxyUsername");
  ExpectField(28, 206, S, 200, 0, 0, "", "SoundCaptureDevice");
  ExpectField(28, 207, I, 10, 0, 0, "-1", "SoundCaptureFormat");
  ExpectField(28, 208, S, 100, 0, 0, "MPEG Layer-3", "SoundEncoder");
  ExpectField(28, 209, S, 100, 0, 0, "24000:7000:1", "SoundCodec");
  ExpectField(28, 215, S, 30, 0, 0, "", "ScheduleInterval");
  ExpectField(28, 219, I, 10, 0, 0, "2", "StartUpVisualMode");
  ExpectField(28, 227, I, 10, 0, 0, "185", "PlayerHeight");
  ExpectField(28, 228, I, 10, 0, 0, "170", "ListingHeight");
  ExpectField(28, 232, I, 10, 0, 0, "150", "PopupNotifierHeight");
  ExpectField(28, 239, D, 30, 0, 0, "", "LastCorvaneSearch");
  ExpectField(28, 244, I, 10, 0, 0, "3", "SearchType");
  ExpectField(28, 248, B, 1, 0, 0, "1", "VideoPanelDocked");
  ExpectField(28, 251, I, 10, 0, 0, "228", "LeftPanelWidth");
  ExpectField(28, 253, I, 10, 0, 0, "160", "ListWidthWVideo");
  ExpectField(28, 255, S, 100, 0, 0, "", "LastReconfiguredVersion");
}

TEST_F(DefaultRelationsTest, NewsSettingsRelation12) {
  ExpectField(12, 4, S, 10, 0, 0, "GlobalUser", "UserLogin");
  ExpectField(12, 5, S, 10, 0, 0, "", "UserPassword");
  ExpectField(12, 9, I, 7, 0, 0, "0", "TidrelStartUpMode");
  ExpectField(12, 11, I, 7, 0, 0, "0", "RankMode");
  ExpectHole(12, 14);
  ExpectHole(12, 15);
  ExpectField(12, 17, I, 7, 0, 0, "0", "AtStartupAutoSyncState");
  ExpectHole(12, 18);
  ExpectField(12, 21, B, 1, 0, 0, "1", "NotifyChannelUpdates");
  ExpectField(12, 26, B, 1, 0, 0, "0", "DisableNotifier");
  ExpectHole(12, 27);
  ExpectField(12, 29, I, 7, 0, 0, "-1", "AutoRankWhenCheckingLink");
  ExpectField(12, 37, I, 7, 0, 0, "10", "MaximumSimultaneousThreadCount");
  ExpectField(12, 42, S, 100, 0, 0, "Notify.wav", "NotificationMelodyFile");
  ExpectField(12, 45, D, 30, 0, 0, "", "LastLoginDate");
  ExpectField(12, 46, S, 100, 0, 0, "DelRey", "SkinName");
  ExpectField(12, 49, I, 7, 0, 0, "8080", "ProxyPort");
  ExpectField(12, 51, B, 1, 0, 0, "1", "WhenOpeningResourceShowNewlyRetrievedPostsFirst");
  ExpectHole(12, 54);
  ExpectField(12, 65, I, 7, 0, 0, "2", "NewsBarLoopTimes");
  ExpectField(12, 70, I, 7, 0, 0, "3", "NewsBarSlidingSpeed");
  ExpectField(12, 75, I, 7, 0, 0, "7", "TrashBinCleanCycle");
  ExpectField(12, 77, S, 7, 0, 0, "", "AutoMaintenanceStartTime");
  ExpectField(12, 81, S, 100, 0, 0, "", "MySearchEngineDefinitions");
  ExpectField(12, 85, I, 7, 0, 0, "100", "LastDBID");
  ExpectField(12, 87, I, 7, 0, 0, "5", "MaxSimultaneDownloadCount");
  ExpectField(12, 92, D, 30, 0, 0, "", "LastTrashCleanDate");
  ExpectField(12, 93, S, 50, 0, 0, ".exe;.zip;.rar;.mp3;.mpg;.mov;.avi;.mpeg;.wmv",
              "AutoDownloadFileExts");
  ExpectField(12, 99, I, 7, 0, 0, "1", "NetworkRetryWait");
  ExpectField(12, 102, I, 7, 0, 0, "4", "SlideShowReadRange");
  ExpectField(12, 108, S, 100, 0, 0, "", "BloglinesUsername");
  ExpectField(12, 109, I, 7, 0, 0, "20", "HighlightsPageSize");
  ExpectField(12, 115, B, 1, 0, 0, "0", "NewsBarReroutedSource");
}

TEST_F(DefaultRelationsTest, TreeRelations2And27And22And23) {
  ExpectField(2, 4, I, 10, 0, 0, "-1", "");
  ExpectField(2, 6, S, 10, 0, 0, "", "");
  ExpectField(2, 12, S, 40, 0, 0, "", "");
  ExpectField(2, 13, I, 10, 0, 0, "10", "");
  ExpectField(2, 17, D, 30, 0, 0, "", "");
  ExpectField(2, 20, S, 10, 0, 0, "", "");
  ExpectField(27, 6, S, 50, 0, 0, "", "");
  ExpectField(27, 9, I, 10, 0, 0, "0", "");
  ExpectField(27, 18, I, 7, 0, 0, "0", "");
  ExpectField(27, 21, S, 10, 0, 0, "", "");
  ExpectField(22, 5, S, 30, 0, 0, "", "");
  ExpectField(22, 6, I, 10, 0, 0, "-1", "");
  ExpectField(22, 7, I, 10, 0, 0, "-1", "");
  ExpectField(23, 5, S, 50, 0, 0, "", "");
  ExpectField(23, 8, I, 7, 0, 0, "0", "");
  ExpectField(23, 9, S, 100, 0, 0, "", "");
  ExpectField(23, 12, S, 30, 0, 0, "", "");
}

TEST_F(DefaultRelationsTest, ChannelRelation3) {
  ExpectField(3, 0, S, 10, 0, 0, "", "guid");
  ExpectField(3, 1, I, 7, 0, 0, "0", "");
  ExpectHole(3, 2);
  ExpectHole(3, 3);
  ExpectField(3, 4, S, 50, 1, 1, "", "title");
  ExpectField(3, 5, S, 100, 1, 1, "", "desc");
  ExpectField(3, 7, S, 100, 0, 0, "", "feedaddress");
  ExpectField(3, 8, D, 30, 0, 0, "", "regdate");
  ExpectField(3, 9, S, 50, 1, 1, "", "managingdirector");
  ExpectField(3, 11, S, 50, 1, 0, "", "webmaster");
  ExpectField(3, 16, S, 15, 1, 0, "", "language");
  ExpectField(3, 18, S, 5000, 0, 0, "", "");
  ExpectField(3, 20, I, 7, 0, 0, "0", "totalretrivedpostcount");
  ExpectField(3, 22, D, 30, 0, 0, "", "firstpubdate");
  ExpectField(3, 23, S, 10, 0, 0, "|", "");
  ExpectField(3, 24, S, 20, 0, 0, "|", "");
  ExpectField(3, 25, I, 7, 0, 0, "5", "ttl");
}

TEST_F(DefaultRelationsTest, PostRelations4And26And11) {
  ExpectField(4, 0, S, 100, 0, 0, "", "guid");
  ExpectField(4, 2, D, 30, 0, 0, "", "recdate");
  ExpectField(4, 4, S, 50, 1, 1, "", "title");
  ExpectField(4, 5, S, 5, 0, 1, "", "");
  ExpectField(4, 6, S, 5, 0, 1, "", "");
  ExpectField(4, 7, S, 500, 1, 1, "", "desc");
  ExpectField(4, 9, I, 10, 0, 0, "0", "");
  ExpectField(4, 11, S, 300, 1, 1, "", "encodedcontent");
  ExpectField(4, 13, S, 150, 0, 0, "", "trackback");
  ExpectField(4, 14, D, 30, 0, 0, "", "");
  ExpectField(4, 15, S, 50, 0, 0, "", "enclosure");
  ExpectField(4, 16, S, 10, 0, 0, "", "tags");
  for (int relation : {26, 11}) {
    ExpectField(relation, 3, D, 30, 0, 0, "", "pubdate");
    ExpectField(relation, 8, S, 100, 1, 1, "", "sourcechannel");
    ExpectField(relation, 12, S, 50, 0, 0, "", "commentlink");
    ExpectField(relation, 15, S, 50, 0, 0, "", "enclosure");
    ExpectField(relation, 16, D, 30, 0, 0, "", "issued");
    ExpectField(relation, 17, D, 30, 0, 0, "", "modified");
    ExpectField(relation, 18, S, 20, 0, 0, "", "contributor");
    ExpectField(relation, 19, S, 10, 0, 0, "", "tags");
  }
}

TEST_F(DefaultRelationsTest, NoteRelation25) {
  ExpectField(25, 2, D, 30, 0, 0, "", "creationdate");
  ExpectField(25, 3, D, 30, 0, 0, "", "lastmodifieddate");
  ExpectField(25, 4, I, 7, 0, 0, "0", "");
  ExpectField(25, 5, S, 50, 1, 1, "", "title");
  ExpectField(25, 6, S, 200, 1, 1, "", "content");
  ExpectField(25, 7, S, 50, 1, 0, "", "source");
  ExpectField(25, 9, S, 10, 0, 0, "", "tag");
}

TEST_F(DefaultRelationsTest, AuthorPersonCategoryAndEntryRelations) {
  ExpectField(5, 0, S, 20, 0, 0, "", "guid");
  ExpectField(5, 4, S, 20, 1, 1, "", "authorname");
  ExpectField(5, 7, I, 5, 0, 0, "10", "priority");
  ExpectField(5, 9, I, 7, 0, 0, "0", "");
  ExpectField(5, 11, S, 20, 0, 0, "", "rank");
  ExpectField(5, 13, D, 30, 0, 0, "", "");
  ExpectField(5, 15, S, 10, 0, 0, "", "");
  ExpectField(13, 2, D, 30, 0, 0, "", "lastrecdate");
  ExpectHole(13, 3);
  ExpectField(13, 5, S, 30, 1, 0, "", "personname");
  ExpectField(13, 7, S, 100, 0, 1, "", "homepage");
  ExpectField(13, 9, I, 10, 0, 0, "0", "redirectedid");
  ExpectField(13, 10, I, 10, 0, 0, "0", "sourcentityid");
  ExpectField(6, 4, S, 20, 1, 1, "", "categoryname");
  ExpectField(6, 6, D, 30, 0, 0, "", "firstpubdate");
  ExpectField(6, 10, I, 7, 0, 0, "0", "unreadpostcount");
  ExpectField(6, 12, I, 7, 0, 0, "0", "totalretrivedpostcount");
  ExpectField(6, 14, S, 30, 0, 0, "", "");
  ExpectField(14, 2, D, 30, 0, 0, "", "encounterdate");
  ExpectHole(14, 3);
  ExpectField(14, 5, S, 30, 1, 0, "", "categoryname");
  ExpectField(14, 6, I, 10, 0, 0, "0", "redirecedid");
  ExpectField(14, 7, I, 10, 0, 0, "0", "sourcentityid");
}

TEST_F(DefaultRelationsTest, UnkeyedRelations7And15And8And9And10) {
  ExpectField(7, 0, S, 100, 0, 0, "", "");
  ExpectField(7, 4, S, 40, 0, 0, "", "");
  ExpectField(7, 6, S, 200, 1, 0, "", "");
  ExpectField(7, 7, I, 5, 0, 0, "0", "");
  ExpectField(7, 8, I, 10, 0, 0, "-1", "");
  ExpectField(7, 13, S, 1000, 0, 0, "", "");
  ExpectField(7, 16, S, 15, 0, 0, "", "");
  ExpectField(7, 17, S, 10, 0, 0, "", "");
  ExpectField(15, 4, D, 30, 0, 0, "", "");
  ExpectField(15, 5, S, 200, 1, 0, "", "");
  ExpectField(8, 0, S, 100, 0, 0, "", "");
  ExpectField(8, 1, I, 7, 0, 0, "-1", "");
  ExpectField(8, 2, I, 7, 0, 0, "-1", "");
  ExpectField(8, 3, I, 0, 0, 0, "0", "");  // size 0 stays in the table
  ExpectField(9, 4, S, 100, 0, 0, "", "");
  ExpectField(9, 7, S, 30, 0, 0, "", "");
  ExpectField(9, 10, D, 30, 0, 0, "", "");
  ExpectField(9, 11, S, 50, 1, 0, "", "");
  ExpectField(10, 4, D, 30, 0, 0, "", "");
  ExpectField(10, 6, S, 30, 1, 0, "", "");
  ExpectField(10, 8, D, 30, 0, 0, "", "");
  ExpectField(10, 11, S, 20, 0, 0, "", "");
  ExpectField(10, 12, I, 7, 0, 0, "0", "");
}

TEST_F(DefaultRelationsTest, HelpRelations16And17WithEditProperties) {
  ExpectField(16, 0, S, 30, 0, 0, "", "guid");
  ExpectHole(16, 2);
  ExpectField(16, 3, D, 30, 0, 0, "", "lastmotifdate");
  ExpectField(16, 4, S, 100, 1, 0, "", "helptitle");
  ExpectField(16, 5, S, 30, 0, 0, "", "");
  ExpectField(16, 6, S, 100, 1, 0, "", "helpdesc");
  ExpectField(16, 8, S, 100, 1, 0, "", "");
  ExpectEdit(16, 4, "Section Title", 1);
  ExpectEdit(16, 6, "Section Desc", 2);
  ExpectEdit(16, 7, "Related Help Topics", 5);
  ExpectEdit(16, 8, "Search Meta Tags", 1);
  ExpectEdit(16, 5, "", 1);  // untouched: kind from the type
  ExpectEdit(16, 1, "", 3);
  ExpectEdit(16, 3, "", 4);

  ExpectField(17, 5, S, 200, 1, 0, "", "helpcontent");
  ExpectField(17, 7, S, 100, 1, 0, "", "helpnotes");
  ExpectField(17, 9, S, 30, 0, 0, "", "");
  ExpectField(17, 11, S, 100, 1, 0, "", "helpexample");
  ExpectField(17, 12, S, 20, 0, 0, "", "");
  ExpectField(17, 13, S, 100, 1, 0, "", "shortdesc");
  ExpectEdit(17, 4, "Title", 1);
  ExpectEdit(17, 5, "Content", 2);
  ExpectEdit(17, 8, "Related Help Topics", 5);
  ExpectEdit(17, 7, "Additional Notes", 2);
  ExpectEdit(17, 10, "Search Meta Tags", 1);
  ExpectEdit(17, 11, "Example", 2);
  ExpectEdit(17, 13, "Short Desc", 2);
  ExpectEdit(17, 6, "", 1);
}

TEST_F(DefaultRelationsTest, FileRelation18) {
  ExpectField(18, 1, I, 7, 0, 0, "0", "filestatus");
  ExpectField(18, 2, D, 30, 0, 0, "", "filefirstseendate");
  ExpectField(18, 4, D, 30, 0, 0, "", "filedownloaddate");
  ExpectField(18, 5, S, 50, 0, 0, "", "filesavename");
  ExpectField(18, 8, S, 10, 0, 0, "", "");
  ExpectField(18, 9, S, 5, 0, 0, "", "filetype");
  ExpectField(18, 10, I, 7, 0, 0, "0", "filesize");
  ExpectField(18, 11, I, 7, 0, 0, "0", "filedownloadedsize");
  ExpectField(18, 12, S, 100, 0, 0, "", "filedescription");
  ExpectField(18, 13, S, 10, 0, 0, "", "filetags");
  ExpectField(18, 14, I, 7, 0, 0, "0", "folderid");
}

TEST_F(DefaultRelationsTest, NotificationTalkBookmarkAndTipRelations) {
  ExpectField(20, 2, D, 30, 0, 0, "", "notifdate");
  ExpectField(20, 4, S, 50, 0, 0, "", "notiftitle");
  ExpectField(20, 5, S, 100, 0, 0, "", "notifmessage");
  ExpectField(19, 2, D, 30, 0, 0, "", "notifdate");
  ExpectField(19, 4, S, 50, 0, 0, "", "talktitle");
  ExpectField(19, 5, S, 100, 0, 0, "", "talkmessage");
  ExpectField(21, 0, S, 100, 0, 0, "", "");
  ExpectField(21, 4, S, 50, 0, 0, "", "");
  ExpectField(21, 5, S, 10, 0, 0, "", "");
  ExpectField(21, 7, I, 7, 0, 0, "0", "");
  ExpectHole(21, 2);
  ExpectField(24, 4, S, 50, 1, 0, "", "tiptitle");
  ExpectField(24, 5, S, 150, 1, 0, "", "tipcontent");
  ExpectField(24, 6, S, 10, 0, 0, "", "pointedhelpguid");
  ExpectEdit(24, 4, "Title", 1);
  ExpectEdit(24, 5, "Content", 2);
  ExpectEdit(24, 6, "Pointed Help Section", 5);
}

// Only the fields the tables key are decorated; spot-check the whole set of
// keyed fields of a few relations, which catches a key put on a wrong row.
TEST_F(DefaultRelationsTest, KeyedFieldsOfSmallRelationsAreExactlyTheTables) {
  auto keyed = [&](int relation) {
    std::set<int> ids;
    const RGDBTemplate* layout = Rel(relation)->GetRGDBTemplate();
    for (int i = 0; i < layout->GetFieldCount(); ++i) {
      const FieldInfo* field = layout->GetField(i);
      if (field != nullptr && !field->decoration.IsEmpty()) ids.insert(i);
    }
    return ids;
  };
  EXPECT_EQ(keyed(4), (std::set<int>{0, 2, 3, 4, 7, 8, 10, 11, 12, 13, 15, 16}));
  EXPECT_EQ(keyed(3),
            (std::set<int>{0, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 20, 21, 22, 25}));
  EXPECT_EQ(keyed(13), (std::set<int>{0, 2, 5, 6, 7, 8, 9, 10}));
  EXPECT_EQ(keyed(18), (std::set<int>{0, 1, 2, 3, 4, 5, 6, 7, 9, 10, 11, 12, 13, 14}));
  EXPECT_EQ(keyed(17), (std::set<int>{0, 3, 4, 5, 7, 11, 13}));
  for (int relation : {1, 30, 29, 2, 27, 22, 23, 7, 15, 8, 9, 10, 21}) {
    EXPECT_TRUE(keyed(relation).empty()) << "relation " << relation;
  }
  // A settings relation keys every field.
  for (int relation : {31, 28, 12}) {
    const RGDBTemplate* layout = Rel(relation)->GetRGDBTemplate();
    int defined = 0;
    for (int i = 0; i < layout->GetFieldCount(); ++i) defined += layout->GetField(i) ? 1 : 0;
    EXPECT_EQ(static_cast<int>(keyed(relation).size()), defined) << "relation " << relation;
  }
}

// The CDATA flag marks exactly the fields the tables mark.
TEST_F(DefaultRelationsTest, CDataFieldsAreExactlyTheTables) {
  auto wrapped = [&](int relation) {
    std::set<int> ids;
    const RGDBTemplate* layout = Rel(relation)->GetRGDBTemplate();
    for (int i = 0; i < layout->GetFieldCount(); ++i) {
      const FieldInfo* field = layout->GetField(i);
      if (field != nullptr && field->cdata) ids.insert(i);
    }
    return ids;
  };
  EXPECT_EQ(wrapped(3), (std::set<int>{4, 5, 9}));
  EXPECT_EQ(wrapped(4), (std::set<int>{4, 5, 6, 7, 8, 11}));
  EXPECT_EQ(wrapped(26), (std::set<int>{4, 5, 6, 7, 8, 11}));
  EXPECT_EQ(wrapped(11), (std::set<int>{4, 5, 6, 7, 8, 11}));
  EXPECT_EQ(wrapped(25), (std::set<int>{5, 6}));
  EXPECT_EQ(wrapped(5), (std::set<int>{4}));
  EXPECT_EQ(wrapped(6), (std::set<int>{4}));
  EXPECT_EQ(wrapped(13), (std::set<int>{7}));
  int total = 0;
  for (int id : catalogue_.GetRelationIDs()) total += static_cast<int>(wrapped(id).size());
  EXPECT_EQ(total, 3 + 6 * 3 + 2 + 1 + 1 + 1);
}

}  // namespace
}  // namespace kordll
