#include "examples/reader/ReaderCommands.h"

#include <algorithm>
#include <condition_variable>
#include <cstdlib>
#include <set>

#include "examples/reader/FeedReader.h"
#include "kordll/control/GlobalResourceCtrl.h"
#include "kordll/control/PANELVIEWMESSAGE.h"
#include "kordll/control/ResourceController.h"
#include "kordll/control/_struct_RESCTRLNOTIFMSG.h"
#include "kordll/filter/ContentFilter.h"
#include "kordll/periodic/PeriodicUpdateManager.h"
#include "kordll/platform/CRuntime.h"
#include "kordll/platform/CWinApp.h"
#include "kordll/platform/CWinThread.h"
#include "kordll/platform/Clock.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/platform/Locations.h"
#include "kordll/record/Focusable.h"
#include "kordll/talk/SystemTalkCtrl.h"
#include "kordll/talk/TalkItem.h"
#include "kordll/toolkit/KorlanDateTime.h"
#include "kordll/transfer/FileItem.h"
#include "kordll/transfer/FileManagerCtrl.h"
#include "kordll/transfer/FileRequest.h"

namespace sample {

namespace {

using kordll::ContentFilter;
using kordll::Focusable;
using kordll::ResourceController;

constexpr int kPostRelation = 4;
constexpr int kChannelRelation = 3;
// Where the user's filters are kept in the application's profile.
const char16_t kSection[] = u"SampleReader";
const char16_t kAcceptKey[] = u"AcceptFilter";
const char16_t kRejectKey[] = u"RejectFilter";

std::string U8(const CString& text) { return text.ToUtf8(); }

// The records a controller holds, copied under its lock.
std::vector<Focusable*> Held(ResourceController* ctrl) {
  ctrl->LockResource();
  std::vector<Focusable*> held(ctrl->GetFocusables().begin(), ctrl->GetFocusables().end());
  ctrl->UnLockResource();
  return held;
}

// A field of a held record: the body is brought in (which reserves it),
// read and let go, as a reader's panel does.
CString Field(Focusable* record, int field) {
  if (record->IsFullyLoaded(1) == 0 && record->LoadFocusable(nullptr) == 0) return CString();
  const CString text = record->GetFieldString(field, 0);
  record->Release();
  return text;
}

// Tests a record against a filter; whatever reservation the test added is
// given back, so the record ends as it started.
bool Passes(ContentFilter* filter, Focusable* record) {
  const int before = record->GetReferenceCount();
  const int passed = filter->CheckFocusable(record, 0);
  for (int count = record->GetReferenceCount(); count > before; --count) record->Release();
  return passed != 0;
}

// Whether the user's filters let the item in. They test a copy of the post
// that belongs to no database: a filter reserves and releases what it
// tests, and the release of a changed record saves it.
bool Wanted(const FeedItem& item, const CString& channelTitle, ContentFilter* accept,
            ContentFilter* reject) {
  auto* probe = new Focusable(kPostRelation, nullptr);
  probe->Reserve();
  FillPost(item, channelTitle, probe);
  probe->SetFocusableStatus(Focusable::kStatusUnread);
  probe->SetFullyLoaded(1);  // every field is in memory: nothing to load
  const bool wanted =
      (accept == nullptr || Passes(accept, probe)) && (reject == nullptr || !Passes(reject, probe));
  probe->Release();  // the only holder: this deletes it
  return wanted;
}

// What tells a post from the others of its feed: its link, else the
// feed's id of it (stored in the link field too), else its title and
// enclosure.
CString PostKey(const CString& link, const CString& title, const CString& enclosure) {
  return !link.IsEmpty() ? link : title + CString("|") + enclosure;
}

// A filter for posts holding `word` in any field.
void KeywordFilter(const CString& word, ContentFilter* filter) {
  filter->ReSetFilterStatus(ContentFilter::kSearchFilter, 0);
  filter->AddFilteredStringItem(word, kPostRelation, -1, 0);
}

// The stored filter under key, or false when the user has none.
bool StoredFilter(const char16_t* key, ContentFilter* filter) {
  const CString line = kordll::AfxGetApp()->GetProfileString(kSection, key);
  return !line.IsEmpty() && filter->SetFilter(line) == 1;
}

// Both controllers of the plug-in, or false with the reason on err.
bool Controllers(ResourceController** channels, ResourceController** posts, std::ostream& err) {
  *channels = kordll::GlobalResourceCtrl::GetResourceController(kChannelsController);
  *posts = kordll::GlobalResourceCtrl::GetResourceController(kPostsController);
  if (*channels != nullptr && *posts != nullptr) return true;
  err << "the plug-in made no channel or posts controller: is SamplePlugin.DLL beside the "
         "program?\n";
  return false;
}

// Hands a new record, reserved by the caller, to its controller, which
// gives it its GUID and holds it (with that reservation) from now on, and
// saves it.
bool Store(ResourceController* ctrl, Focusable* record) {
  ctrl->AddFocusable(record);
  return !record->GetGUID().IsEmpty() && record->SaveFocusable() == 1;
}

// The download list, or null with the reason on err.
kordll::FileManagerCtrl* DownloadList(std::ostream& err) {
  kordll::FileManagerCtrl* files = kordll::FileManagerCtrl::GetFileManagerCtrl();
  if (files == nullptr) err << "the download list is not running\n";
  return files;
}

// The posts held that have an enclosure, in the order the posts controller
// holds them: "download N" counts from 1 in this order.
std::vector<Focusable*> Enclosed(ResourceController* posts) {
  std::vector<Focusable*> enclosed;
  for (Focusable* post : Held(posts)) {
    if (!Field(post, 15).IsEmpty()) enclosed.push_back(post);
  }
  return enclosed;
}

CString EnclosureAddress(Focusable* post) {
  const CString field = Field(post, 15);
  const int bar = field.Find(u'|');
  return bar < 0 ? field : field.Left(bar);
}

// The state of an entry in a few words, from its status word.
std::string StateOf(kordll::FileItem* item) {
  const int status = item->GetFocusableStatus();
  if (status & kordll::kFileDownloading) return "downloading";
  if (status & kordll::kFileDownloaded) return "on disk: " + U8(item->GetFileSavePath());
  if (status & kordll::kFileNotFound) return "not found on the server";
  if (status & (kordll::kFilePaused | kordll::kFilePausedToo)) return "paused";
  if (status & kordll::kFileFailed) return "failed";
  return "not downloaded";
}

// The titles of the talks standing.
std::vector<CString> TalkTitles() {
  std::vector<CString> titles;
  if (kordll::SystemTalkCtrl* talks = kordll::SystemTalkCtrl::Acquire()) {
    for (Focusable* record : Held(talks)) {
      if (auto* talk = dynamic_cast<kordll::TalkItem*>(record))
        titles.push_back(talk->GetTalkTitle());
    }
    talks->Release();
  }
  return titles;
}

// Tells the talks that came since `before` were standing.
void TellNewTalks(const std::vector<CString>& before, std::ostream& out) {
  for (const CString& title : TalkTitles()) {
    if (std::find(before.begin(), before.end(), title) == before.end()) {
      out << "talk fired: \"" << U8(title) << "\"\n";
    }
  }
}

// Hands the new posts to the download list, which makes an entry for each
// enclosure it does not know yet (and a talk that tells of them).
void MakeEntries(const std::vector<Focusable*>& fresh, std::ostream& out) {
  kordll::FileManagerCtrl* files = kordll::FileManagerCtrl::GetFileManagerCtrl();
  if (files == nullptr || fresh.empty()) return;
  const std::vector<CString> talks = TalkTitles();
  // The list reads the enclosure of each post: their bodies are brought in
  // (which reserves them) for the time of the news.
  kordll::_struct_RESCTRLNOTIFMSG news;
  for (Focusable* post : fresh) {
    if (post->IsFullyLoaded(1) != 0 || post->LoadFocusable(nullptr) != 0) {
      news.focusables.push_back(post);
    }
  }
  files->InsertMsg(&news);
  for (Focusable* post : news.focusables) {
    const CString field = post->GetFieldString(15, 0);
    const int bar = field.Find(u'|');
    const CString address = bar < 0 ? field : field.Left(bar);
    if (files->GetFileItem(address) != nullptr) out << "entry made: " << U8(address) << "\n";
    post->Release();
  }
  TellNewTalks(talks, out);
}

// What one read of a feed did.
struct Counts {
  int stored = 0, filtered = 0, known = 0;
};

// The held channel whose feed address is `address`, or null.
Focusable* FindChannel(ResourceController* channels, const CString& address) {
  for (Focusable* held : Held(channels)) {
    if (Field(held, 7) == address) return held;
  }
  return nullptr;
}

// Takes a fetched feed back from the network side: whatever ends the
// transfer (finished, failed, paused or cancelled) hands the request back
// here with its status.
class FetchReplies : public kordll::CWinThread {
 public:
  int OnThreadMessage(unsigned message, intptr_t, intptr_t lParam) override {
    if (message == kordll::kMsgDownloadResumed) return 1;
    auto* request = reinterpret_cast<kordll::FileRequest*>(lParam);
    std::lock_guard<std::mutex> hold(mutex_);
    if (request != nullptr) {
      status_ = request->httpStatus;
      words_ = request->GetHTTPStatusString();
      saved_ = request->GetFullFilePath2Save();
      if (words_.IsEmpty()) words_ = request->statusText;
      request->Release();
    }
    paused_ = message == kordll::kMsgDownloadPaused || message == kordll::kMsgDownloadAborted;
    done_ = true;
    cv_.notify_all();
    return 1;
  }
  // Waits for the reply; the network side always gives one (its own
  // timeouts end a transfer that stalls). 1 for a whole document.
  int Wait(CString* why, CString* saved) {
    std::unique_lock<std::mutex> hold(mutex_);
    cv_.wait(hold, [this] { return done_; });
    *saved = saved_;
    if (!paused_ && (status_ == 200 || status_ == 0)) return 1;
    *why = paused_ ? CString("the transfer was stopped")
                   : CString::Formatted(u"status %d", status_) +
                         (words_.IsEmpty() ? CString() : CString(" (") + words_ + CString(")"));
    return 0;
  }

 private:
  std::mutex mutex_;
  std::condition_variable cv_;
  bool done_ = false, paused_ = false;
  int status_ = 0;
  CString words_, saved_;
};

// Brings the document at a web address into `folder` through whatever
// network side answers the transfer commands: under the name `name`, or
// with an empty name under the one the address gives (numbered when
// taken). *saved is where it went. 1, or 0 with the reason on err.
int Fetch(const std::string& url, const CString& folder, const CString& name, CString* saved,
          std::ostream& err) {
  kordll::FileSystem::CreateDirectoryTree(folder);
  if (!name.IsEmpty()) kordll::FileSystem::DeleteFile(folder + CString("/") + name);
  auto* replies = new FetchReplies();
  replies->m_bAutoDelete = 0;
  if (kordll::AfxBeginThread(replies) == nullptr) {
    delete replies;
    err << "cannot reach " << url << ": no thread for the transfer\n";
    return 0;
  }
  auto* request = new kordll::FileRequest();
  request->url = CString::FromUtf8(url);
  request->folder = folder;
  if (!name.IsEmpty()) request->fullPath = folder + CString("/") + name;
  request->requestFlags = kordll::kRequestFlagsFileDownload;
  request->SetReplyThread(replies);
  // Made with a count of 1, reserved once for the network side: the
  // release of whoever ends the transfer (or ours below) deletes it.
  request->Reserve();
  kordll::PANELVIEWMESSAGE message;
  message.message = kordll::kCommandStartTransfer;
  message.object = reinterpret_cast<intptr_t>(request);
  err << "fetching " << url << "\r" << std::flush;
  CString why;
  int fetched = 0;
  if (kordll::GlobalResourceCtrl::InterpretGUICommand(&message, nullptr) == 0) {
    request->Release();
    why = CString("no network side is running");
  } else {
    fetched = replies->Wait(&why, saved);
  }
  replies->PostThreadMessage(18, 0, 0);
  replies->WaitForExit(-1);
  delete replies;
  err << "\r" << std::string(url.size() + 9, ' ') << "\r" << std::flush;
  if (fetched == 0) {
    if (!saved->IsEmpty()) kordll::FileSystem::DeleteFile(*saved);
    err << "cannot reach " << url << ": " << U8(why) << "\n";
  }
  return fetched;
}

// The address `ref` met in the feed at `base`, made whole: an address with
// a scheme stays as it is, one from the root of the site ("/x") keeps the
// scheme and host of the feed, any other is taken beside the feed.
CString Resolve(const CString& base, const CString& ref) {
  const std::string b = U8(base), r = U8(ref);
  if (r.empty() || r.find("://") != std::string::npos) return ref;
  const size_t scheme = b.find("://");
  if (scheme == std::string::npos) {
    const size_t slash = b.rfind('/');
    return CString::FromUtf8(
        r[0] == '/' || slash == std::string::npos ? r : b.substr(0, slash + 1) + r);
  }
  if (r[0] == '/') return CString::FromUtf8(b.substr(0, b.find('/', scheme + 3)) + r);
  return CString::FromUtf8(b.substr(0, b.rfind('/') + 1) + r);
}

// Reads the feed at `address` (a web or file address, or a path), stores its
// channel when no channel has the address yet (with subscribe; otherwise
// an unknown address fails) and every new post that passes the user's
// filters. Answers 1, or 0 with the reason on err.
int Refresh(const CString& address, bool subscribe, std::ostream& out, std::ostream& err,
            Counts* counts) {
  const std::string url = U8(address);
  const bool web = url.rfind("http://", 0) == 0 || url.rfind("https://", 0) == 0;
  CString path = url.rfind("file://", 0) == 0 ? CString::FromUtf8(url.substr(7)) : address;
  if (web && !Fetch(url, kordll::Locations::GetDataRoot() + CString("/feeds"),
                    CString("fetched.xml"), &path, err)) {
    return 0;
  }
  if (!web && !kordll::FileSystem::IsFile(path)) {
    err << "cannot reach " << url << ": no file at " << U8(path) << "\n";
    return 0;
  }
  Feed feed;
  CString error;
  const int read = ReadFeedFile(path, &feed, &error);
  if (web) kordll::FileSystem::DeleteFile(path);
  if (!read) {
    // A fetched document is told by its address, not by the file it went to.
    std::string why = U8(error);
    const std::string file = U8(path);
    if (web && why.find(file) != std::string::npos) why.replace(why.find(file), file.size(), url);
    err << why << "\n";
    return 0;
  }
  ResourceController *channels, *posts;
  if (!Controllers(&channels, &posts, err)) return 0;

  Focusable* channel = FindChannel(channels, address);
  if (channel == nullptr && !subscribe) {
    err << "no channel has the address " << url << " (\"add\" subscribes to it)\n";
    return 0;
  }
  if (channel == nullptr) {
    channel = channels->GenerateFocusable(kChannelRelation);
    channel->Reserve();
    FillChannel(feed, address, channel);
    channel->SetValueDate(8, kordll::Clock::Now(), 1);  // subscribed
    if (!Store(channels, channel)) {
      err << "cannot store the channel \"" << U8(feed.channel.title) << "\"\n";
      return 0;
    }
    out << "channel stored: " << U8(channel->GetGUID()) << " \"" << U8(feed.channel.title) << "\" ("
        << U8(feed.format) << ")\n";
  } else {
    out << "channel known: " << U8(channel->GetGUID()) << "\n";
  }

  std::set<CString> known;
  for (Focusable* held : Held(posts)) {
    known.insert(PostKey(Field(held, 10), Field(held, 4), Field(held, 15)));
  }
  ContentFilter accept, reject;
  const bool accepting = StoredFilter(kAcceptKey, &accept);
  const bool rejecting = StoredFilter(kRejectKey, &reject);
  Counts done;
  std::vector<Focusable*> fresh;  // new posts with an enclosure
  for (size_t i = 0; i < feed.items.size(); ++i) {
    const FeedItem& item = feed.items[i];
    err << "\rreading " << i + 1 << " of " << feed.items.size() << "\r" << std::flush;
    const CString key =
        PostKey(item.link.IsEmpty() ? item.id : item.link, item.title, item.enclosure);
    if (!known.insert(key).second) {
      ++done.known;
      continue;
    }
    if (!Wanted(item, feed.channel.title, accepting ? &accept : nullptr,
                rejecting ? &reject : nullptr)) {
      ++done.filtered;
      continue;
    }
    Focusable* post = posts->GenerateFocusable(kPostRelation);
    post->Reserve();
    FillPost(item, feed.channel.title, post);
    if (!item.enclosure.IsEmpty()) {
      // Enclosures may be named relative to the feed.
      const int bar = item.enclosure.Find(u'|');
      const CString ref = bar < 0 ? item.enclosure : item.enclosure.Left(bar);
      post->SetValueStr(15, Resolve(address, ref) + item.enclosure.Mid(ref.GetLength()), 1);
    }
    post->SetFocusableStatus(Focusable::kStatusUnread);
    post->SetReceiveDateTime(kordll::Clock::Now());
    if (!Store(posts, post)) {
      err << "cannot store the post \"" << U8(item.title) << "\"\n";
      return 0;
    }
    ++done.stored;
    out << "post stored: " << U8(post->GetGUID()) << " \"" << U8(item.title) << "\"\n";
    if (!item.enclosure.IsEmpty()) fresh.push_back(post);
  }
  MakeEntries(fresh, out);
  err << "\r                    \r" << std::flush;
  counts->stored += done.stored, counts->filtered += done.filtered, counts->known += done.known;
  return 1;
}

void PrintCounts(const Counts& counts, std::ostream& out) {
  out << counts.stored << " new post(s), " << counts.filtered << " filtered out, " << counts.known
      << " already stored\n";
}

int Add(const std::string& url, std::ostream& out, std::ostream& err) {
  Counts counts;
  if (!Refresh(CString::FromUtf8(url), true, out, err, &counts)) return 1;
  PrintCounts(counts, out);
  return 0;
}

// The refresh interval of a channel in minutes: its time to live, at least
// one minute; 5 when the feed gives none.
int Interval(Focusable* channel) {
  const CString ttl = Field(channel, 25);
  return ttl.IsEmpty() ? 5 : std::max(1, kordll::_wtoi(ttl));
}

// Refreshes the channels held whose interval is `minutes` (every channel
// for 0). Answers how many failed.
int RefreshChannels(int minutes, std::ostream& out, std::ostream& err, Counts* counts) {
  ResourceController *channels, *posts;
  if (!Controllers(&channels, &posts, err)) return 1;
  int failed = 0;
  for (Focusable* channel : Held(channels)) {
    if (minutes != 0 && Interval(channel) != minutes) continue;
    if (!Refresh(Field(channel, 7), false, out, err, counts)) ++failed;
  }
  return failed;
}

int Update(std::ostream& out, std::ostream& err) {
  ResourceController *channels, *posts;
  if (!Controllers(&channels, &posts, err)) return 1;
  if (Held(channels).empty()) {
    err << "no channel to update: \"add URL\" subscribes to a feed\n";
    return 1;
  }
  Counts counts;
  const int failed = RefreshChannels(0, out, err, &counts);
  PrintCounts(counts, out);
  if (failed != 0) out << failed << " channel(s) could not be read\n";
  return failed == 0 ? 0 : 1;
}

// run MINUTES: every channel now, then each at its interval on the
// scheduler, until MINUTES have passed on the clock.
int Run(const std::string& minutes, std::ostream& out, std::ostream& err) {
  char* end = nullptr;
  const long span = std::strtol(minutes.c_str(), &end, 10);
  if (minutes.empty() || *end != '\0' || span < 0 || span > 7 * 24 * 60) {
    err << "usage: run MINUTES (0 to " << 7 * 24 * 60 << ")\n";
    return 2;
  }
  const int status = Update(out, err);
  FeedWatch* watch = FeedWatch::Start(out, err);
  if (watch == nullptr) {
    err << "the scheduler is not running: channels are not refreshed on time\n";
    return 1;
  }
  out << "refreshing " << watch->GetChannelCount() << " channel(s) at their intervals for " << span
      << " minute(s)\n"
      << std::flush;
  const int64_t until = kordll::Clock::MonotonicMillis() + span * 60000;
  for (int64_t now; (now = kordll::Clock::MonotonicMillis()) < until;) {
    kordll::Clock::SleepMillis(std::min<int64_t>(until - now, 1000));
  }
  const int failed = watch->GetFailedCount();
  watch->Stop();
  out << "stopped refreshing\n";
  return status == 0 && failed == 0 ? 0 : 1;
}

int List(const std::vector<std::string>& args, std::ostream& out) {
  ResourceController* posts = kordll::GlobalResourceCtrl::GetResourceController(kPostsController);
  if (posts == nullptr) return 1;
  ContentFilter filter;
  if (args.size() > 1) KeywordFilter(CString::FromUtf8(args[1]), &filter);
  int shown = 0;
  for (Focusable* post : Held(posts)) {
    if (args.size() > 1 && !Passes(&filter, post)) continue;
    out << U8(post->GetGUID()) << "\t" << U8(Field(post, 3)) << "\t" << U8(Field(post, 4)) << "\t"
        << U8(Field(post, 8)) << "\n";
    ++shown;
  }
  out << shown << " post(s)\n";
  return 0;
}

int Show(const std::string& guid, std::ostream& out, std::ostream& err) {
  ResourceController *channels, *posts;
  if (!Controllers(&channels, &posts, err)) return 1;
  const CString wanted = CString::FromUtf8(guid);
  Focusable* record = posts->CheckFocusable(wanted, 0);
  if (record == nullptr) record = channels->CheckFocusable(wanted, 0);
  if (record == nullptr) {
    err << "no post or channel has the GUID " << guid << " (\"list\" shows them)\n";
    return 1;
  }
  struct Line {
    int field;
    const char* label;
  };
  static const Line kPost[] = {{4, "title"},      {8, "channel"},    {3, "published"},
                               {2, "received"},   {10, "link"},      {5, "authors"},
                               {6, "categories"}, {15, "enclosure"}, {12, "comments"}};
  static const Line kChannel[] = {{4, "title"},      {6, "link"},      {7, "feed address"},
                                  {8, "subscribed"}, {16, "language"}, {10, "published"},
                                  {9, "editor"},     {25, "ttl"}};
  const bool post = record->GetFocusableRelation() == kPostRelation;
  out << (post ? "post " : "channel ") << guid << "\n";
  for (const Line& line : post ? std::vector<Line>(std::begin(kPost), std::end(kPost))
                               : std::vector<Line>(std::begin(kChannel), std::end(kChannel))) {
    const CString value = Field(record, line.field);
    if (!value.IsEmpty()) out << "  " << line.label << ": " << U8(value) << "\n";
  }
  const CString text = PlainText(Field(record, post ? 7 : 5));
  if (!text.IsEmpty()) out << "\n" << U8(text) << "\n";
  return 0;
}

int Downloads(std::ostream& out, std::ostream& err) {
  ResourceController *channels, *posts;
  if (!Controllers(&channels, &posts, err)) return 1;
  kordll::FileManagerCtrl* files = DownloadList(err);
  if (files == nullptr) return 1;
  const std::vector<Focusable*> enclosed = Enclosed(posts);
  int saved = 0;
  for (size_t i = 0; i < enclosed.size(); ++i) {
    const CString address = EnclosureAddress(enclosed[i]);
    kordll::FileItem* item = files->GetFileItem(address);
    saved += item != nullptr && (item->GetFocusableStatus() & kordll::kFileDownloaded) ? 1 : 0;
    out << i + 1 << "\t" << U8(enclosed[i]->GetGUID()) << "\t" << U8(Field(enclosed[i], 4)) << "\t"
        << U8(address) << "\t" << (item != nullptr ? StateOf(item) : std::string("no entry"))
        << "\n";
  }
  out << enclosed.size() << " enclosure(s), " << saved << " on disk in "
      << U8(kordll::Locations::GetDownloadFolder()) << "\n";
  return 0;
}

// Starts the download of enclosure N through the download list, which
// hands it to the network side, and waits until the entry tells how it
// ended.
int Download(const std::string& number, std::ostream& out, std::ostream& err) {
  ResourceController *channels, *posts;
  if (!Controllers(&channels, &posts, err)) return 1;
  kordll::FileManagerCtrl* files = DownloadList(err);
  if (files == nullptr) return 1;
  const std::vector<Focusable*> enclosed = Enclosed(posts);
  char* end = nullptr;
  const long n = std::strtol(number.c_str(), &end, 10);
  if (number.empty() || *end != '\0' || n < 1 || n > long(enclosed.size())) {
    err << "no enclosure " << number << ": \"downloads\" numbers them from 1 to " << enclosed.size()
        << "\n";
    return 2;
  }
  const CString url = EnclosureAddress(enclosed[n - 1]);
  if (files->GetFileItem(url) == nullptr) MakeEntries({enclosed[n - 1]}, out);
  kordll::FileItem* item = files->GetFileItem(url);
  if (item == nullptr) {
    err << "the download list made no entry for " << U8(url) << "\n";
    return 1;
  }
  const std::vector<CString> talks = TalkTitles();
  // The network side saves into the download folder; it has to exist.
  kordll::FileSystem::CreateDirectoryTree(kordll::Locations::GetDownloadFolder());
  kordll::PANELVIEWMESSAGE message;
  message.message = kordll::kCommandDownloadFile;
  message.focusable = item;
  int result = 0;
  if (kordll::GlobalResourceCtrl::InterpretGUICommand(&message, &result) == 0) {
    err << "the download list did not take the download of " << U8(url) << "\n";
    return 1;
  }
  // The network side gives up on a transfer that stalls, so every download
  // ends; the bound below is only for a machine that hangs.
  const int ended = kordll::kFileDownloaded | kordll::kFileFailed | kordll::kFileNotFound |
                    kordll::kFilePaused | kordll::kFilePausedToo;
  const int64_t until = kordll::Clock::MonotonicMillis() + 60 * 60 * 1000;
  int status = 0;
  for (;;) {
    item = files->GetFileItem(url);
    status = item != nullptr ? item->GetFocusableStatus() : 0;
    if (item == nullptr || ((status & ended) && !(status & kordll::kFileDownloading))) break;
    if (kordll::Clock::MonotonicMillis() > until) break;
    const int received = item->GetFieldInt(kordll::kFileFieldDownloaded);
    err << "\rdownloading " << (received > 0 ? std::to_string(received) + " bytes" : "") << "\r"
        << std::flush;
    kordll::Clock::SleepMillis(20);
  }
  err << "\r                                        \r" << std::flush;
  if (item == nullptr || !(status & kordll::kFileDownloaded)) {
    err << "cannot reach " << U8(url) << ": "
        << (item == nullptr ? std::string("the entry went away") : StateOf(item)) << "\n";
    return 1;
  }
  const CString path = item->GetFileSavePath();
  out << "download finished: " << U8(Field(enclosed[n - 1], 4)) << " -> " << U8(path) << " ("
      << kordll::FileSystem::GetFileSize(path) << " bytes)\n";
  // The list fires its talk once it has left its lock, just after the
  // entry changed.
  for (int64_t wait = kordll::Clock::MonotonicMillis() + 5000;
       TalkTitles().size() <= talks.size() && kordll::Clock::MonotonicMillis() < wait;) {
    kordll::Clock::SleepMillis(10);
  }
  TellNewTalks(talks, out);
  return 0;
}

// The talks of this run; with "open", each is opened as the user would, and
// the host's answer ("Close Talk" for a host that shows nothing) removes it.
int Talks(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
  if (args.size() > 2 || (args.size() == 2 && args[1] != "open")) {
    err << "usage: talks [open]\n";
    return 2;
  }
  kordll::SystemTalkCtrl* talks = kordll::SystemTalkCtrl::Acquire();
  if (talks == nullptr) {
    err << "no talk controller is running\n";
    return 1;
  }
  std::vector<kordll::TalkItem*> held;
  for (Focusable* record : Held(talks)) {
    if (record->GetFocusableRelation() == kordll::kTalkRelation) {
      held.push_back(static_cast<kordll::TalkItem*>(record));
    }
  }
  for (kordll::TalkItem* talk : held) out << "talk: \"" << U8(talk->GetTalkTitle()) << "\"\n";
  out << held.size() << " talk(s)\n";
  if (args.size() == 2) {
    for (kordll::TalkItem* talk : held) {
      const CString guid = talk->GetGUID();
      out << "talk opened: \"" << U8(talk->GetTalkTitle()) << "\"\n";
      talk->OpenFocusable();
      talks->LockResource();
      const bool gone = talks->CheckFocusable(guid, 0) == nullptr;
      talks->UnLockResource();
      out << (gone ? "talk removed\n" : "talk kept\n");
    }
  }
  talks->Release();
  return 0;
}

int Filters(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
  kordll::CWinApp* app = kordll::AfxGetApp();
  if (args.size() == 3 && (args[1] == "accept" || args[1] == "reject") && !args[2].empty()) {
    ContentFilter filter;
    KeywordFilter(CString::FromUtf8(args[2]), &filter);
    if (args[1] == "reject") filter.SetFilterOut(1);
    app->WriteProfileString(kSection, args[1] == "accept" ? kAcceptKey : kRejectKey,
                            filter.GetFilter());
  } else if (args.size() == 2 && args[1] == "clear") {
    app->WriteProfileString(kSection, kAcceptKey, CString());
    app->WriteProfileString(kSection, kRejectKey, CString());
  } else if (args.size() != 1) {
    err << "usage: filters [accept WORD | reject WORD | clear]\n";
    return 2;
  }
  for (const char16_t* key : {kAcceptKey, kRejectKey}) {
    ContentFilter filter;
    out << (key == kAcceptKey ? "accept: " : "reject: ");
    if (StoredFilter(key, &filter)) {
      out << U8(filter.CreateStringDefinition()) << "\n  stored as " << U8(filter.GetFilter())
          << "\n";
    } else {
      out << "none\n";
    }
  }
  return 0;
}

}  // namespace

// The watch is one registration with the scheduler per interval that a
// channel has, the kind being the interval in minutes (channels living more
// than 999 minutes are refreshed every 999).
FeedWatch* FeedWatch::Start(std::ostream& out, std::ostream& err) {
  if (kordll::PeriodicUpdateManager::GetPeriodicUpdateManager() == nullptr) return nullptr;
  ResourceController *channels, *posts;
  if (!Controllers(&channels, &posts, err)) return nullptr;
  auto* watch = new FeedWatch(out, err);
  for (Focusable* channel : Held(channels)) {
    watch->minutes_.insert(std::min(Interval(channel), kLongestInterval));
    ++watch->channels_;
  }
  for (int minutes : watch->minutes_) {
    kordll::PeriodicUpdateManager::AddMaintenanceRCItem(watch, minutes * 60L, minutes);
  }
  return watch;
}

FeedWatch::FeedWatch(std::ostream& out, std::ostream& err) : out_(out), err_(err) {
  SetResourceControllerID(kWatchController);
}

void FeedWatch::PerformMaintenance(int minutes) {
  std::lock_guard<std::mutex> hold(mutex_);
  if (stopped_) return;
  Counts counts;
  out_ << "refreshing the channels of every " << minutes << " minute(s)\n";
  failed_ += RefreshChannels(minutes, out_, err_, &counts);
  PrintCounts(counts, out_);
  out_ << std::flush;
  ++refreshes_;
}

int FeedWatch::GetRefreshCount() {
  std::lock_guard<std::mutex> hold(mutex_);
  return refreshes_;
}

int FeedWatch::GetFailedCount() {
  std::lock_guard<std::mutex> hold(mutex_);
  return failed_;
}

void FeedWatch::Stop() {
  {
    // Waits for a refresh under way; none starts after this.
    std::lock_guard<std::mutex> hold(mutex_);
    stopped_ = true;
  }
  for (int minutes : minutes_)
    kordll::PeriodicUpdateManager::RemoveMaintenanceRCItem(this, minutes);
  Release();
}

bool IsReaderCommand(const std::vector<std::string>& args) {
  static const char* const kCommands[] = {"add",       "update",   "run",   "list",   "show",
                                          "downloads", "download", "talks", "filters"};
  if (args.empty()) return false;
  for (const char* command : kCommands) {
    if (args[0] == command) return true;
  }
  return false;
}

int RunReaderCommand(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
  // Commands joined by "+" run in order in this one start, until one fails.
  const auto plus = std::find(args.begin(), args.end(), "+");
  if (plus != args.end()) {
    const int status = RunReaderCommand({args.begin(), plus}, out, err);
    return status != 0 ? status : RunReaderCommand({plus + 1, args.end()}, out, err);
  }
  if (args.size() == 1 && args[0] == "downloads") return Downloads(out, err);
  if (args.size() == 2 && args[0] == "download") return Download(args[1], out, err);
  if (!args.empty() && args[0] == "talks") return Talks(args, out, err);
  if (args.size() == 2 && args[0] == "add") return Add(args[1], out, err);
  if (args.size() == 1 && args[0] == "update") return Update(out, err);
  if (args.size() == 2 && args[0] == "run") return Run(args[1], out, err);
  if (args.size() <= 2 && args[0] == "list") return List(args, out);
  if (args.size() == 2 && args[0] == "show") return Show(args[1], out, err);
  if (!args.empty() && args[0] == "filters") return Filters(args, out, err);
  err << "usage: add URL | update | run MINUTES | list [WORD] | show GUID | downloads | "
         "download N | talks [open] | filters [accept WORD | reject WORD | clear], joined by +\n";
  return 2;
}

}  // namespace sample
