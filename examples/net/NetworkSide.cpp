#include "examples/net/NetworkSide.h"

#include <curl/curl.h>

#include <map>
#include <memory>
#include <mutex>

#include "examples/net/CurlTransfer.h"
#include "kordll/control/GlobalResourceCtrl.h"
#include "kordll/control/PANELVIEWMESSAGE.h"
#include "kordll/platform/CWinThread.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/platform/Locations.h"
#include "kordll/record/Focusable.h"
#include "kordll/transfer/FileRequest.h"

namespace kordll_net {

using kordll::CString;
using kordll::CWinThread;
using kordll::FileRequest;

namespace {

// Messages of the network thread (thread messages, private to this file).
constexpr unsigned kMsgStart = 0x9001;        // lParam: FileRequest*, reserved once
constexpr unsigned kMsgPause = 0x9002;        // lParam: CString* (owned by the message)
constexpr unsigned kMsgResume = 0x9003;       // lParam: CString*
constexpr unsigned kMsgCancel = 0x9004;       // lParam: CString*
constexpr unsigned kMsgWorkerEnded = 0x9005;  // lParam: the Entry* whose worker ended
constexpr unsigned kMsgStopAll = 0x9006;      // stop everything, then quit

// Field ids of a download entry (the download list's records).
constexpr int kFieldFileName = 5;

void InitCurlOnce() {
  static std::once_flag once;
  std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

// The default resume: the download list's entry names the partial file, and
// the reply goes to the download list's thread.
FileRequest* ResumeFromDownloadList(const CString& url) {
  kordll::ResourceController* list =
      kordll::GlobalResourceCtrl::GetResourceController(kordll::kFileManagerControllerID);
  if (list == nullptr || list->GetResourceThread() == nullptr) return nullptr;
  list->LockResource();
  kordll::Focusable* entry = list->CheckFocusable(url, 0);
  CString name;
  if (entry != nullptr) name = entry->GetFieldString(kFieldFileName, 0);
  list->UnLockResource();
  if (entry == nullptr) return nullptr;
  auto* request = new FileRequest(nullptr, 0);
  request->url = url;
  request->folder = kordll::Locations::GetDownloadFolder();
  request->requestFlags = kordll::kRequestFlagsFileDownload;
  request->isFileTransfer = 1;
  if (!name.IsEmpty()) {
    // Only a plain name of the download folder is taken from the entry.
    const CString path = kordll::Locations::Join(request->folder, name);
    if (kordll::Locations::IsPathInside(request->folder, path) && name.Find(u'/') < 0) {
      request->fileName = name;
      request->fullPath = path;
    }
  }
  request->SetReplyThread(list->GetResourceThread());
  request->Reserve();
  return request;
}

}  // namespace

// The network thread: owns the table of transfers. Every change to the
// table happens on this thread, in the order the commands came.
class NetworkSide::Thread : public CWinThread {
 public:
  explicit Thread(NetworkSide* owner) : owner_(owner), options_(owner->options_) {}

  int OnThreadMessage(unsigned message, intptr_t, intptr_t lParam) override {
    switch (message) {
      case kMsgStart:
        Start(reinterpret_cast<FileRequest*>(lParam));
        return 1;
      case kMsgPause:
      case kMsgResume:
      case kMsgCancel: {
        std::unique_ptr<CString> url(reinterpret_cast<CString*>(lParam));
        if (message == kMsgPause) Pause(*url);
        if (message == kMsgResume) Resume(*url);
        if (message == kMsgCancel) Cancel(*url);
        return 1;
      }
      case kMsgWorkerEnded:
        WorkerEnded(reinterpret_cast<Entry*>(lParam));
        return 1;
      case kMsgStopAll:
        StopAll();
        return 1;
    }
    return 0;
  }

  void OnDiscardedMessage(const kordll::MSG& msg) override {
    if (msg.message == kMsgStart) reinterpret_cast<FileRequest*>(msg.lParam)->Release();
    if (msg.message == kMsgPause || msg.message == kMsgResume || msg.message == kMsgCancel) {
      delete reinterpret_cast<CString*>(msg.lParam);
    }
  }

 private:
  struct Entry {
    TransferJob job;
    CWinThread* worker = nullptr;  // owned while running
    bool running = false;
    // Commands that came while the worker ran: it may already have sent its
    // last message, so they are carried out once it has ended.
    FileRequest* pendingStart = nullptr;  // reserved once
    bool pendingResume = false;
    bool pendingCancel = false;
  };

  void Launch(Entry* entry, bool resume) {
    entry->job.resume = resume;
    entry->job.stop.store(0);
    entry->running = true;
    const NetworkOptions options = options_;
    const unsigned networkThread = GetThreadId();
    auto* worker = new CWinThread([entry, options, networkThread]() -> unsigned {
      RunTransfer(&entry->job, options);
      kordll::PostThreadMessage(networkThread, kMsgWorkerEnded, 0,
                                reinterpret_cast<intptr_t>(entry));
      return 0;
    });
    worker->m_bAutoDelete = 0;
    if (kordll::AfxBeginThread(worker) == nullptr) {
      delete worker;
      entry->running = false;
      // No thread: the transfer ends at once as an internal failure.
      entry->job.request->httpStatus = kNetErrorInternal;
      entry->job.request->finished = 1;
      if (entry->job.request->SendFinishedMessage() == 0) entry->job.request->Release();
      Forget(entry->job.url);
      return;
    }
    entry->worker = worker;
  }

  void Start(FileRequest* request) {
    if (request == nullptr) return;
    if (stopping_) {
      request->Release();
      return;
    }
    auto found = table_.find(request->url);
    if (found != table_.end()) {
      Entry* entry = found->second.get();
      if (entry->running) {
        // Started again while under way: taken up once this run has ended.
        if (entry->pendingStart != nullptr) entry->pendingStart->Release();
        entry->pendingStart = request;
        return;
      }
      // Started afresh: the paused request held for it is given up.
      found->second->job.request->Release();
      table_.erase(found);
      owner_->active_.fetch_sub(1);
    }
    auto entry = std::make_unique<Entry>();
    entry->job.request = request;
    entry->job.url = request->url;
    Entry* raw = entry.get();
    table_[request->url] = std::move(entry);
    owner_->active_.fetch_add(1);
    Launch(raw, false);
  }

  void Pause(const CString& url) {
    auto found = table_.find(url);
    if (found != table_.end() && found->second->running) {
      found->second->job.stop.store(static_cast<int>(StopReason::kPause));
      found->second->pendingResume = false;
    }
  }

  void Resume(const CString& url) {
    if (stopping_) return;
    auto found = table_.find(url);
    if (found != table_.end()) {
      if (found->second->running) {
        found->second->pendingResume = true;
      } else {
        Launch(found->second.get(), true);
      }
      return;
    }
    FileRequest* request =
        options_.makeResumeRequest ? options_.makeResumeRequest(url) : ResumeFromDownloadList(url);
    if (request == nullptr) return;
    // A resume is reported by the request that goes on: the reservation the
    // maker gave it stands for this run.
    auto entry = std::make_unique<Entry>();
    entry->job.request = request;
    entry->job.url = url;
    Entry* raw = entry.get();
    table_[url] = std::move(entry);
    owner_->active_.fetch_add(1);
    Launch(raw, true);
  }

  void Cancel(const CString& url) {
    auto found = table_.find(url);
    if (found == table_.end()) return;
    Entry* entry = found->second.get();
    if (entry->running) {
      entry->job.stop.store(static_cast<int>(StopReason::kCancel));
      entry->pendingCancel = true;
      entry->pendingResume = false;
      return;
    }
    CancelPaused(entry);
  }

  // A paused transfer: its partial files go, and the list hears the abort.
  void CancelPaused(Entry* entry) {
    const CString url = entry->job.url;
    FileRequest* r = entry->job.request;
    r->DeleteSavedFile();
    kordll::FileSystem::DeleteFile(r->GetFullFilePath2Save() + CString(kordll::kPartialFileSuffix));
    r->httpStatus = 0;
    r->receivedSize = 0;
    r->statusText = CString("Request canceled");
    if (r->SendAbortMsg(0) == 0) r->Release();
    Forget(url);
  }

  void WorkerEnded(Entry* entry) {
    entry->worker->WaitForExit(-1);
    delete entry->worker;
    entry->worker = nullptr;
    entry->running = false;
    const CString url = entry->job.url;
    FileRequest* start = entry->pendingStart;
    const bool resume = entry->pendingResume;
    const bool cancel = entry->pendingCancel;
    entry->pendingStart = nullptr;
    entry->pendingResume = entry->pendingCancel = false;
    if (stopping_) {
      if (start != nullptr) start->Release();
      if (entry->job.outcome == Outcome::kPaused) entry->job.request->Release();
      Forget(url);
      if (table_.empty()) kordll::PostQuitMessage(0);
      return;
    }
    if (entry->job.outcome == Outcome::kPaused) {
      if (cancel) {
        CancelPaused(entry);
      } else if (start == nullptr && resume) {
        Launch(entry, true);
      }
    } else {
      Forget(url);
    }
    if (start != nullptr) {
      Start(start);
    } else if (resume && table_.find(url) == table_.end()) {
      Resume(url);
    }
  }

  void Forget(const CString& url) {
    if (table_.erase(url) != 0) owner_->active_.fetch_sub(1);
  }

  // Running transfers are told to stop (they report a forced pause); held
  // paused requests are given back. The thread quits once every worker
  // has ended.
  void StopAll() {
    stopping_ = true;
    for (auto it = table_.begin(); it != table_.end();) {
      Entry* entry = it->second.get();
      if (entry->running) {
        entry->job.stop.store(static_cast<int>(StopReason::kShutdown));
        ++it;
      } else {
        entry->job.request->Release();
        it = table_.erase(it);
        owner_->active_.fetch_sub(1);
      }
    }
    if (table_.empty()) kordll::PostQuitMessage(0);
  }

  NetworkSide* owner_;
  NetworkOptions options_;
  std::map<CString, std::unique_ptr<Entry>> table_;
  bool stopping_ = false;
};

NetworkSide::NetworkSide(const NetworkOptions& options) : options_(options) {
  SetResourceControllerID(options.controllerID);
}

NetworkSide::~NetworkSide() { CloseResourceCtrl(); }

NetworkSide* NetworkSide::Start(const NetworkOptions& options) {
  InitCurlOnce();
  auto* side = new NetworkSide(options);
  auto* thread = new Thread(side);
  thread->m_bAutoDelete = 0;
  if (kordll::AfxBeginThread(thread) == nullptr) {
    delete thread;
    side->closed_.store(true);
    side->Release();
    return nullptr;
  }
  {
    std::lock_guard<std::mutex> hold(side->threadMu_);
    side->thread_ = thread;
  }
  kordll::GlobalResourceCtrl::RegisterResourceCtrl(side);
  return side;
}

int NetworkSide::InterpretGUICommand(kordll::PANELVIEWMESSAGE* message, int*) {
  if (message == nullptr) return 0;
  const int command = message->message;
  if (command == kordll::kCommandShowNetworkSettings) {
    settingsRequests_.fetch_add(1);
    return 1;
  }
  if (command < kordll::kCommandStartTransfer || command > kordll::kCommandCancelTransfer) {
    return 0;
  }
  std::lock_guard<std::mutex> hold(threadMu_);
  if (command == kordll::kCommandStartTransfer) {
    auto* request = reinterpret_cast<FileRequest*>(message->object);
    if (request == nullptr) return 1;
    if (thread_ == nullptr ||
        thread_->PostThreadMessage(kMsgStart, 0, reinterpret_cast<intptr_t>(request)) == 0) {
      request->Release();  // never started: the reservation given to us ends here
    }
    return 1;
  }
  const unsigned code = command == kordll::kCommandPauseTransfer    ? kMsgPause
                        : command == kordll::kCommandResumeTransfer ? kMsgResume
                                                                    : kMsgCancel;
  auto* url = new CString(message->text);
  if (thread_ == nullptr ||
      thread_->PostThreadMessage(code, 0, reinterpret_cast<intptr_t>(url)) == 0) {
    delete url;
  }
  return 1;
}

void NetworkSide::CloseResourceCtrl() {
  if (closed_.exchange(true)) return;
  ResourceController::CloseResourceCtrl();
  Thread* thread = nullptr;
  {
    // From now on commands find no thread and give their payload back.
    std::lock_guard<std::mutex> hold(threadMu_);
    std::swap(thread, thread_);
  }
  if (thread != nullptr) {
    thread->PostThreadMessage(kMsgStopAll, 0, 0);
    thread->WaitForExit(-1);
    delete thread;
  }
  kordll::GlobalResourceCtrl::DeRegisterResourceCtrl(this);
}

}  // namespace kordll_net
