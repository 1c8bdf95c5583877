// kordll_sample_reader: how an application uses KorDLL today.
//
// A tutorial in one file. It walks through the start of a feed reader of the
// family, reads the posts its plug-in keeps, tests them with a keyword
// filter and shuts the library down:
//
//   1. install a host (what the library shows goes through it);
//   2. make the application object, which names the profile;
//   3. make the catalogue of relations (record layouts come from it);
//   4. start the user platform for the reader's user: the user is found in
//      the profile (or made, with its folder below the program folder), the
//      scheduler and the activity list start, and the listed plug-ins of the
//      program folder are loaded: their LoadResources makes the
//      application's data and its posts controller;
//   5. read the posts back and tell their dates in the library's words;
//   6. run a keyword filter over them;
//   7. log the user off, which closes every controller in order, and shut
//      down in the reverse order.
//
// Usage: kordll_sample_reader [--desktop] [--keyword WORD] [--program-folder DIR]
//                             [COMMAND ARG...]
//   --desktop         use the desktop host instead of the headless one, and
//                     open the link of the first matching post with the
//                     desktop's opener
//   --keyword WORD    the word the filter looks for (default "offline")
//   --program-folder  where the plug-ins are (default: the folder of this
//                     program, where the build puts SamplePlugin.DLL)
//
//   COMMAND           instead of steps 5 and 6, the reader's commands (add
//                     URL, update, run MINUTES, list [WORD], show GUID,
//                     downloads, download N, talks [open], filters ...;
//                     several joined by "+" run in one start; see
//                     examples/reader/ReaderCommands.h), run while logged in
//
// Where data goes: with KORDLL_ROOT set, the profile is below
// $KORDLL_ROOT/config and the posts below $KORDLL_ROOT/data; otherwise the
// user's XDG folders. The user's own folder (its activity list) lies in the
// program folder, as every user's of an installation does. The application
// never names a folder of its own.
//
// Exit status: 0 when the plug-in made the posts and they were read and
// filtered; 1 when a step failed; 2 for a usage error.

#include <iostream>
#include <string>
#include <vector>

#include "examples/net/NetworkSide.h"
#include "examples/reader/ReaderCommands.h"
#include "kordll/control/GlobalResourceCtrl.h"
#include "kordll/control/KorUserResourcesCtrl.h"
#include "kordll/filter/ContentFilter.h"
#include "kordll/platform/COleDateTime.h"
#include "kordll/platform/CString.h"
#include "kordll/platform/CWinApp.h"
#include "kordll/platform/DesktopHost.h"
#include "kordll/platform/FileFind.h"
#include "kordll/platform/HeadlessHost.h"
#include "kordll/platform/Host.h"
#include "kordll/platform/LibraryInfo.h"
#include "kordll/platform/Locations.h"
#include "kordll/platform/Registry.h"
#include "kordll/record/AZeusDB.h"
#include "kordll/record/DBTaskItem.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/LibraryLifetime.h"
#include "kordll/record/SettingsEntryPoints.h"
#include "kordll/schema/GlobalRelationsCtrl.h"
#include "kordll/settings/Preferences.h"
#include "kordll/settings/UserPlatformWiring.h"
#include "kordll/toolkit/KorlanDateTime.h"
#include "kordll/transfer/FileManagerCtrl.h"

namespace {

using kordll::CString;
using kordll::Focusable;

// The plug-ins this application trusts. Only a listed name is loaded, and
// the name must match exactly; any other "*.DLL" in the program folder is
// passed over.
const char* const kPlugins[] = {"SamplePlugin.DLL"};
// The account the platform makes when the profile knows no user yet.
const char16_t kDefaultLogin[] = u"reader";

// The relation of a post.
constexpr int kPostRelation = 4;
// The controller id under which the application holds its posts (the
// application's posts controller: a post's GUID is "R3_G<serial>").
constexpr int kPostsController = 3;
// The profile section where the plug-in reports.
const char16_t kPluginSection[] = u"SamplePlugin";

struct Options {
  bool desktop = false;
  CString keyword = CString("offline");
  CString programFolder;
  std::vector<std::string> command;  // a reader command and its arguments
};

// Reads the command line into *options; false (with a message) on a usage
// error.
bool ParseOptions(int argc, char** argv, Options* options) {
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--desktop") {
      options->desktop = true;
    } else if ((arg == "--keyword" || arg == "--program-folder") && i + 1 < argc) {
      (arg == "--keyword" ? options->keyword : options->programFolder) = CString(argv[++i]);
    } else if (sample::IsReaderCommand({arg})) {
      options->command.assign(argv + i, argv + argc);
      break;
    } else {
      std::cerr << "usage: kordll_sample_reader [--desktop] [--keyword WORD]"
                   " [--program-folder DIR] [COMMAND ARG... [+ COMMAND ARG...]...]\n"
                   "commands: add URL | update | run MINUTES | list [WORD] | show GUID |"
                   " downloads | download N | talks [open] | filters ...\n";
      return false;
    }
  }
  if (options->keyword.IsEmpty()) {
    std::cerr << "kordll_sample_reader: the keyword must not be empty\n";
    return false;
  }
  return true;
}

// Tells which "*.DLL" of the program folder the platform loaded at log-in:
// those whose LoadResources ran; every other one was passed over (not
// listed, not loadable, or without the entry). Returns how many ran.
int ReportPlugins(const kordll::KorUserResourcesCtrl& platform) {
  const CString folder = kordll::Locations::GetProgramFolder();
  std::cout << "Plug-ins in " << folder.ToUtf8() << ":\n";
  const kordll::CStringArray& loaded = platform.GetLoadedPlugins();
  kordll::FileFind finder;
  int more = finder.FindFile(folder, CString("*.DLL"));
  if (more == 0) std::cout << "  none found\n";
  while (more != 0) {
    more = finder.FindNextFile();
    const CString name = finder.GetFileName();
    bool ran = false;
    for (const CString& plugin : loaded) ran = ran || plugin == name;
    std::cout << "  " << name.ToUtf8()
              << (ran ? ": loaded, LoadResources ran\n" : ": passed over\n");
  }
  return static_cast<int>(loaded.size());
}

// Every stored post of the database, each held by the posts controller it
// comes from, with its body unloaded. The caller gives each back with
// ReleaseHeader(kPostsController), which deletes it.
std::vector<Focusable*> ReadPosts(kordll::AZeusDB* db) {
  std::vector<Focusable*> posts;
  kordll::DBTaskItem task;
  task.allFields = 1;
  for (;;) {
    // A scan fills a blank record with the next stored record and its place
    // in the file; it ends with 0 (and error 10) after the last one.
    auto* post = new Focusable(-1, db);
    if (db->readFocusableSlot(post, nullptr, &task) != 1) {
      delete post;  // never held by anybody: ours to delete
      break;
    }
    // The controller a record comes from holds it: from now on only its
    // ReleaseHeader (or a Release once no controller holds it) deletes the
    // record. Let the body go: the readers below load what they need, as a
    // real reader's panels would.
    post->SetOriginedResourceControllerID(kPostsController, 0);
    post->IsFullyLoaded(1);
    post->Release();
    posts.push_back(post);
  }
  return posts;
}

// The reader's pattern for a held record: make sure the body is in memory
// (which reserves it), read, release. Gives the title and the two dates in
// the words a reader of posts sees.
void PrintPost(Focusable* post) {
  if (post->IsFullyLoaded(1) == 0 && post->LoadFocusable(nullptr) == 0) {
    std::cout << "  (" << post->GetGUID().ToUtf8() << " cannot be read)\n";
    return;
  }
  using kordll::KorlanDateTime;
  std::cout
      << "  \"" << post->GetPostTitle().ToUtf8() << "\"\n"
      << "      published "
      << KorlanDateTime::DateTimeToPublicationString(post->GetPostPublicationDate(), 0, 1).ToUtf8()
      << "\n      received "
      << KorlanDateTime::DateTimeToPublicationString(post->GetPostReceivedDate(), 0, 1).ToUtf8()
      << "\n";
  post->Release();
}

// Tests one held post against the filter. The filter reads only the fields
// it needs from the file. On some roads an accepted record is left loaded
// and reserved for the caller; whatever reservation the call added is given
// back here, so the post ends as it started.
bool Passes(kordll::ContentFilter* filter, Focusable* post) {
  const int before = post->GetReferenceCount();
  const int passed = filter->CheckFocusable(post, 0);
  for (int count = post->GetReferenceCount(); count > before; --count) post->Release();
  return passed != 0;
}

// Steps 5 and 6, with the user logged in and the plug-ins loaded. With
// openFirstMatch, the link of the first post that passes is handed to the
// host to open.
int ReadAndFilter(kordll::CWinApp* app, const kordll::KorUserResourcesCtrl& platform,
                  const CString& keyword, bool openFirstMatch) {
  if (ReportPlugins(platform) == 0) {
    std::cout << "No plug-in ran: the application has no data.\n";
    return 1;
  }
  // What the plug-in left in the profile tells where its posts are.
  const CString name = app->GetProfileString(kPluginSection, u"PostsDatabase");
  if (name.IsEmpty()) {
    std::cout << "The plug-in made no posts database: "
              << app->GetProfileString(kPluginSection, u"LastError").ToUtf8() << "\n";
    return 1;
  }
  std::cout << "The plug-in added " << app->GetProfileInt(kPluginSection, u"PostsAdded", -1)
            << " new posts (start " << app->GetProfileInt(kPluginSection, u"Starts", 0) << ") to "
            << name.ToUtf8() << ".kdb\n";
  // Under the platform the plug-in also made the posts controller, which
  // holds the posts from now on; this application reads its own copies.
  std::cout << "Posts controller (" << kPostsController << "): "
            << (kordll::GlobalResourceCtrl::GetResourceController(kPostsController) != nullptr
                    ? "made by the plug-in"
                    : "none")
            << "\n\n";

  // 5. The posts, read back.
  kordll::AZeusDB db(kordll::Locations::GetDataRoot(), name, 0, 0);
  std::vector<Focusable*> posts = ReadPosts(&db);
  std::cout << "Posts (" << posts.size() << "):\n";
  for (Focusable* post : posts) PrintPost(post);

  // 6. A keyword filter over posts (relation 4), any field (-1).
  kordll::ContentFilter filter;
  filter.ReSetFilterStatus(kordll::ContentFilter::kSearchFilter, 0);
  filter.AddFilteredStringItem(keyword, kPostRelation, -1, 0);
  std::cout << "\nFilter: " << filter.CreateStringDefinition().ToUtf8() << "\n";
  std::cout << "Stored as: " << filter.GetFilter().ToUtf8() << "\n";
  int matched = 0;
  CString firstLink;
  for (Focusable* post : posts) {
    if (!Passes(&filter, post)) continue;
    ++matched;
    if (post->IsFullyLoaded(1) == 0 && post->LoadFocusable(nullptr) == 0) continue;
    std::cout << "  match: " << post->GetPostTitle().ToUtf8() << "\n";
    if (firstLink.IsEmpty()) firstLink = post->GetPostLink();
    post->Release();
  }
  std::cout << matched << " of " << posts.size() << " posts passed the filter\n";
  if (openFirstMatch && !firstLink.IsEmpty()) {
    // The host decides what may be opened: the desktop host starts the
    // desktop's opener for web addresses and downloads only, and answers a
    // value above 32 when it did.
    const intptr_t answer = kordll::Host::Current()->ShellExecute(u"open", firstLink, CString(),
                                                                  CString(), kordll::SW_SHOW);
    std::cout << "Opening " << firstLink.ToUtf8() << ": "
              << (answer > 32 ? std::string("started") : "refused (" + std::to_string(answer) + ")")
              << "\n";
  }

  // The posts go before their database: the last holder's call deletes each.
  int left = 0;
  for (Focusable* post : posts) left += post->ReleaseHeader(kPostsController) == 1 ? 0 : 1;
  if (left != 0) std::cout << left << " posts outlived their holder\n";
  return posts.empty() || left != 0 ? 1 : 0;
}

// Steps 4 to 7: the user platform started for the reader's user, the posts
// read and filtered while the user is logged in, and the log-off. The
// platform is the first controller the application makes; its last Release
// (in CloseResourceCtrl) deletes it.
int RunUserPlatform(kordll::CWinApp* app, const Options& options) {
  // 4. The platform reaches accounts and the scheduler through hooks that
  // the settings layer installs.
  kordll::InstallUserPlatformWiring();
  auto* platform =
      new kordll::KorUserResourcesCtrl(kordll::Preferences::kNewsRelation, kDefaultLogin, u"");
  for (const char* plugin : kPlugins) platform->AddDLLValidFileName(CString(plugin));
  // The profile's list of users, empty before the first start.
  const bool known = !app->GetProfileString(u"", u"Users").IsEmpty();
  if (platform->StartUserPlatform(0) != 1) {
    std::cout << "No user could log in.\n";
    platform->CloseResourceCtrl();
    return 1;
  }
  const CString login = kordll::SettingsEntryPoints::Get()->GetCurrentLogin();
  const bool services = kordll::GlobalResourceCtrl::GetResourceController(
                            kordll::kSchedulerControllerID) != nullptr &&
                        platform->GetActivityCtrl() != nullptr;
  std::cout << "User \"" << login.ToUtf8() << "\" " << (known ? "found" : "made")
            << " and logged in; folder "
            << kordll::KorUserResourcesCtrl::GetUserFolder(login).ToUtf8() << "\n"
            << "Scheduler and activity list: " << (services ? "running" : "missing") << "\n";
  // The network side answers the library's transfer commands while the user
  // is logged in: downloads of enclosures go through it.
  kordll_net::NetworkSide* network = kordll_net::NetworkSide::Start(kordll_net::NetworkOptions());
  std::cout << "Network side: " << (network != nullptr ? "ready" : "missing") << "\n";
  // The download list (controller 14) keeps the entries of enclosures in the
  // user's folder; the log-off closes it with the other controllers.
  kordll::FileManagerCtrl* files = kordll::FileManagerCtrl::Start();
  std::cout
      << "Download list: "
      << (files != nullptr
              ? (CString("ready, files go to ") + kordll::Locations::GetDownloadFolder()).ToUtf8()
              : std::string("missing"))
      << "\n";

  const int status = options.command.empty()
                         ? ReadAndFilter(app, *platform, options.keyword, options.desktop)
                         : sample::RunReaderCommand(options.command, std::cout, std::cerr);

  // Transfers still running are reported paused to the download list,
  // which finds them paused at the next start.
  if (network != nullptr) network->CloseResourceCtrl(), network->Release();
  // 7. The log-off closes the posts controller first, the scheduler apart
  // from the rest, then every other controller, waiting (bounded) for them.
  platform->LogoffActiveUser();
  // A closed download list goes on its own thread: wait for it (bounded) so
  // that nothing of it runs past the shut-down.
  if (files != nullptr) kordll::FileManagerCtrl::WaitUntilGone(10000);
  const bool closed = kordll::GlobalResourceCtrl::IsAllResourcesClosed(nullptr) != 0;
  std::cout << "\nLogged off: " << (closed ? "every controller closed" : "a controller was left")
            << "\n";
  platform->CloseResourceCtrl();
  return closed && services ? status : 1;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (!ParseOptions(argc, argv, &options)) return 2;
  std::cout << "Sample reader on KorDLL " << kordll::GetLibraryVersion() << "\n";

  // The library starts when it is loaded (KordllProcessAttach runs by
  // itself); an application may call it again to be explicit about it.
  kordll::KordllProcessAttach();

  // 1. The host first: even opening the profile may have something to tell
  // the user (a damaged registry file is set aside and reported).
  kordll::HeadlessHost headless;
  kordll::DesktopHost desktop;
  kordll::Host::Install(options.desktop ? &desktop : &headless);

  // Where the plug-ins are. Set before anything is loaded; the default is
  // the folder of this program.
  if (!options.programFolder.IsEmpty()) kordll::Locations::SetProgramFolder(options.programFolder);

  int status = 0;
  {
    // 2. The application object: its profile is the registry key
    // "Software\Tidrel\SampleReader". Constructing it makes it current, so
    // the library and the plug-ins reach it through AfxGetApp().
    kordll::CWinApp app(u"Tidrel", u"SampleReader");
    std::cout << "Profile: " << app.GetProfileKey().ToUtf8() << " in "
              << kordll::Locations::GetProfileFolder().ToUtf8() << "\n"
              << "Data root: " << kordll::Locations::GetDataRoot().ToUtf8() << "\n";

    // 3. The catalogue. The first one made is the catalogue of the process:
    // every record is laid out by the relation it names.
    kordll::GlobalRelationsCtrl catalogue;
    std::cout << "Catalogue: " << catalogue.GetRelationCount() << " relations\n\n";

    status = RunUserPlatform(&app, options);

    // 7. Shut-down, in the reverse order: the catalogue and the application
    // object go at the end of this block.
  }
  kordll::Host::Install(nullptr);
  kordll::Registry::CloseCurrent();
  kordll::KordllProcessDetach();
  if (status == 0) std::cout << "Shut down cleanly.\n";
  return status;
}
