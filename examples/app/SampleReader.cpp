// kordll_sample_reader: how an application uses KorDLL today.
//
// A tutorial in one file. It walks through the start of a feed reader of the
// family, reads the posts its plug-in keeps, tests them with a keyword
// filter and shuts the library down:
//
//   1. install a host (what the library shows goes through it);
//   2. make the application object, which names the profile;
//   3. make the catalogue of relations (record layouts come from it);
//   4. load the listed plug-ins of the program folder, whose LoadResources
//      makes the application's data;
//   5. read the posts back and tell their dates in the library's words;
//   6. run a keyword filter over them;
//   7. shut down in the reverse order.
//
// Usage: kordll_sample_reader [--desktop] [--keyword WORD] [--program-folder DIR]
//   --desktop         use the desktop host instead of the headless one, and
//                     open the link of the first matching post with the
//                     desktop's opener
//   --keyword WORD    the word the filter looks for (default "offline")
//   --program-folder  where the plug-ins are (default: the folder of this
//                     program, where the build puts SamplePlugin.DLL)
//
// Where data goes: with KORDLL_ROOT set, the profile is below
// $KORDLL_ROOT/config and the posts below $KORDLL_ROOT/data; otherwise the
// user's XDG folders. The application never names a folder of its own.
//
// Exit status: 0 when the plug-in made the posts and they were read and
// filtered; 1 when a step failed; 2 for a usage error.

#include <iostream>
#include <string>
#include <vector>

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
#include "kordll/platform/PluginLoader.h"
#include "kordll/platform/Registry.h"
#include "kordll/record/AZeusDB.h"
#include "kordll/record/DBTaskItem.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/LibraryLifetime.h"
#include "kordll/schema/GlobalRelationsCtrl.h"
#include "kordll/toolkit/KorlanDateTime.h"

namespace {

using kordll::CString;
using kordll::Focusable;

// The plug-ins this application trusts. Only a listed name is loaded, and
// the name must match exactly; any other "*.DLL" in the program folder is
// passed over.
const char* const kPlugins[] = {"SamplePlugin.DLL"};

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
    } else {
      std::cerr << "usage: kordll_sample_reader [--desktop] [--keyword WORD]"
                   " [--program-folder DIR]\n";
      return false;
    }
  }
  if (options->keyword.IsEmpty()) {
    std::cerr << "kordll_sample_reader: the keyword must not be empty\n";
    return false;
  }
  return true;
}

// Loads each listed plug-in found in the program folder, as the user
// platform does at log-in. Returns how many ran their LoadResources.
int LoadListedPlugins() {
  const CString folder = kordll::Locations::GetProgramFolder();
  std::cout << "Plug-ins in " << folder.ToUtf8() << ":\n";
  int loaded = 0;
  kordll::FileFind finder;
  int more = finder.FindFile(folder, CString("*.DLL"));
  if (more == 0) std::cout << "  none found\n";
  while (more != 0) {
    more = finder.FindNextFile();
    const CString name = finder.GetFileName();
    bool listed = false;
    for (const char* plugin : kPlugins) listed = listed || name == CString(plugin);
    if (!listed) {
      std::cout << "  " << name.ToUtf8() << ": not listed, passed over\n";
      continue;
    }
    // LoadPlugin refuses anything that is not a regular file directly in the
    // program folder, and answers why when it cannot load a library.
    CString why;
    switch (kordll::PluginLoader::LoadPlugin(finder.GetFilePath(), &why)) {
      case kordll::PluginLoader::kLoaded:
        std::cout << "  " << name.ToUtf8() << ": loaded, LoadResources ran\n";
        ++loaded;
        break;
      case kordll::PluginLoader::kNoEntry:
        std::cout << "  " << name.ToUtf8() << ": no LoadResources, closed again\n";
        break;
      default:
        std::cout << "  " << name.ToUtf8() << ": not loaded: " << why.ToUtf8() << "\n";
        break;
    }
  }
  return loaded;
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

// Steps 4 to 6, with the library started and the catalogue standing. With
// openFirstMatch, the link of the first post that passes is handed to the
// host to open.
int ReadAndFilter(kordll::CWinApp* app, const CString& keyword, bool openFirstMatch) {
  // 4. Plug-ins.
  if (LoadListedPlugins() == 0) {
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
            << name.ToUtf8() << ".kdb\n\n";

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

    status = ReadAndFilter(&app, options.keyword, options.desktop);

    // 7. Shut-down, in the reverse order: the catalogue and the application
    // object go at the end of this block.
  }
  kordll::Host::Install(nullptr);
  kordll::Registry::CloseCurrent();
  kordll::KordllProcessDetach();
  if (status == 0) std::cout << "Shut down cleanly.\n";
  return status;
}
