// SamplePlugin.DLL: the plug-in of the sample application.
//
// An application of the family keeps its own data work in plug-ins: the
// application lists the plug-in names it trusts, and at start-up the library
// loads each listed "*.DLL" of the program folder and calls its export
// "LoadResources". This one plays the part of a feed reader's posts
// controller on its first start: it makes sure the posts database exists in
// the data root and holds the posts of a small sample feed, and tells the
// application through its profile where they are.
//
// What the plug-in may count on when LoadResources runs (the application
// sees to it): the library is started, the application object (CWinApp) is
// current, and the catalogue of relations stands. It shares all three with
// the application, because it links the library's shared object.
//
// What it leaves in the profile, section "SamplePlugin":
//   "PostsDatabase"  the database name (the file is <data root>/<name>.kdb)
//   "PostsAdded"     how many posts this start added (0 when all were there)
//   "Starts"         how many times LoadResources ran for this profile
// A failure leaves "PostsDatabase" empty and says why in "LastError".
//
// Under the user platform (KorUserResourcesCtrl, with the registry of
// controllers standing) it also makes the application's posts controller
// (id 3) and channels controller (id 7): controllers with a record database
// of their own, which hold the posts and the channels from then on. The platform closes it first of
// all at log-off; a plain application without the registry gets no controller.

#include <set>

#include "examples/reader/RecordsCtrl.h"
#include "kordll/control/KorUserResourcesCtrl.h"
#include "kordll/platform/COleDateTime.h"
#include "kordll/platform/CString.h"
#include "kordll/platform/CWinApp.h"
#include "kordll/platform/Clock.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/platform/Locations.h"
#include "kordll/record/AZeusDB.h"
#include "kordll/record/DBTaskItem.h"
#include "kordll/record/Focusable.h"
#include "kordll/schema/GlobalRelationsCtrl.h"
#include "kordll/toolkit/KorlanDateTime.h"

namespace {

using kordll::AZeusDB;
using kordll::CString;
using kordll::Focusable;

// The relation of a post, and the id of the application controller that
// owns posts: a post's GUID is "R3_G<serial>".
constexpr int kPostRelation = 4;
constexpr int kPostsController = 3;
// The controller of the channels the user subscribed to (relation 3 records,
// GUIDs "R7_G<serial>"), with a database of its own.
constexpr int kChannelsController = 7;

const char16_t kSection[] = u"SamplePlugin";
const char16_t kDatabaseName[] = u"SamplePosts";
const char16_t kChannelsDatabaseName[] = u"SampleChannels";

// One post of the sample feed, as a feed would deliver it: the publication
// date is the feed's own text.
struct SamplePost {
  int serial;
  const char* title;
  const char* link;
  const char* description;
  const char* published;
};

const SamplePost kFeed[] = {
    {1, "Tidrel reads your feeds offline", "http://example.com/tidrel/offline",
     "Posts are kept in a record database, so reading needs no network.",
     "Mon, 07 Nov 2005 10:00:00 GMT"},
    {2, "Marsek fetches podcasts overnight", "http://example.com/marsek/overnight",
     "Enclosures are queued and fetched while you sleep.", "2005-11-03T09:15:43-05:00"},
    {3, "Keyword rules for every reader", "http://example.com/rules",
     "A content filter picks the posts you care about, offline or not.", "07 Nov 2005 18:30 GMT"},
    {4, "A new look for the news bar", "http://example.com/newsbar",
     "Skins change colours and fonts of the news bar.", "11/10/05@08:45"},
};

// The GUIDs already stored, read with a scan over the database.
std::set<CString> StoredGUIDs(AZeusDB* db) {
  std::set<CString> guids;
  kordll::DBTaskItem task;
  task.allFields = 1;
  for (;;) {
    // A scan fills a blank record with the next stored head.
    Focusable record(-1, db);
    if (db->readFocusableSlot(&record, nullptr, &task) != 1) break;
    guids.insert(record.GetGUID());
  }
  return guids;
}

// Saves the posts of the feed that the database does not hold yet. Returns
// the number saved, or -1 (with *error set) when a save failed.
int AddMissingPosts(AZeusDB* db, CString* error) {
  // Opening reads the database header (a missing file is made). A file that
  // is not a record database of this version is left alone: the engine
  // would write into whatever it finds.
  const int header = db->openDB(1);
  db->closeDB();
  if (header != 0) {
    *error = kordll::Locations::GetFileName(db->GetDBPath()) +
             CString::Formatted(u" is not a record database (error %d)", header);
    return -1;
  }
  const std::set<CString> stored = StoredGUIDs(db);
  int added = 0;
  for (const SamplePost& item : kFeed) {
    const CString guid = CString::Formatted(u"R%d_G%d", kPostsController, item.serial);
    if (stored.count(guid) != 0) continue;
    // A new record of the post relation in this database. It is saved and
    // dropped here; nobody holds it, so it is the plug-in's to delete.
    Focusable post(kPostRelation, db);
    post.SetGUID(guid);
    post.SetOriginedResourceControllerID(kPostsController, 0);
    post.SetFocusableStatus(Focusable::kStatusUnread);
    post.SetReceiveDateTime(kordll::Clock::Now());
    // Dates from feeds are read by the library, zone and all, to local time.
    post.SetPublicationDateTime(
        kordll::KorlanDateTime::StringToDateTime(CString(item.published), 1));
    post.SetPostTitle(CString(item.title));
    post.SetValueStr(7, CString(item.description), 1);  // "desc"
    post.SetValueStr(10, CString(item.link), 1);        // "link"
    if (post.SaveFocusable() != 1) {
      *error = CString("saving \"") + CString(item.title) + CString("\" failed: ") +
               db->GetLastDBErrorMsg();
      return -1;
    }
    ++added;
  }
  return added;
}

}  // namespace

// The entry point the library calls. Runs on the application's thread,
// during start-up, before the application reads any data.
extern "C" void LoadResources() {
  kordll::CWinApp* app = kordll::AfxGetApp();
  if (app == nullptr) return;  // nobody to report to
  app->WriteProfileInt(kSection, u"Starts", app->GetProfileInt(kSection, u"Starts", 0) + 1);
  app->WriteProfileString(kSection, u"PostsDatabase", CString());

  // Records are laid out by their relation: without the catalogue no post
  // can be saved.
  if (kordll::GlobalRelationsCtrl::GetGlobalRelationsCtrl() == nullptr) {
    app->WriteProfileString(kSection, u"LastError", u"the catalogue of relations is missing");
    return;
  }
  const CString folder = kordll::Locations::GetDataRoot();
  if (kordll::FileSystem::CreateDirectoryTree(folder) != 1) {
    app->WriteProfileString(kSection, u"LastError", CString("cannot make ") + folder);
    return;
  }

  CString error;
  int added = -1;
  {
    // The database closes its file after every operation; the object only
    // has to outlive the records that use it.
    AZeusDB db(folder, CString(kDatabaseName), 0, 0);
    added = AddMissingPosts(&db, &error);
  }
  if (added < 0) {
    app->WriteProfileString(kSection, u"LastError", error);
    return;
  }
  app->WriteProfileInt(kSection, u"PostsAdded", added);
  app->WriteProfileString(kSection, u"LastError", CString());
  app->WriteProfileString(kSection, u"PostsDatabase", CString(kDatabaseName));
  if (kordll::KorUserResourcesCtrl::GetInstance() != nullptr) {
    sample::RecordsCtrl::Make(folder, kPostsController, kDatabaseName);
    sample::RecordsCtrl::Make(folder, kChannelsController, kChannelsDatabaseName);
  }
}
