#include "kordll/talk/SystemTalkCtrl.h"

#include <algorithm>
#include <mutex>

#include "kordll/control/GlobalResourceCtrl.h"
#include "kordll/control/IIPanel.h"
#include "kordll/control/PANELVIEWMESSAGE.h"
#include "kordll/control/_struct_RESCTRLNOTIFMSG.h"
#include "kordll/platform/Clock.h"
#include "kordll/platform/Host.h"
#include "kordll/talk/ErrorMsg.h"
#include "kordll/talk/NotificationItem.h"
#include "kordll/talk/ProgressData.h"
#include "kordll/talk/TalkItem.h"

namespace kordll {

namespace {

std::mutex g_currentMutex;
SystemTalkCtrl* g_current = nullptr;  // guarded by g_currentMutex

// The registry's factory: a new talk controller each time the registry
// starts. A controller left over from a registry that was deleted without
// being cleared is closed first, so its talks do not outlive it.
ResourceController* MakeTalkController() {
  if (SystemTalkCtrl* stale = SystemTalkCtrl::Acquire()) {
    stale->CloseResourceCtrl();
    stale->Release();
  }
  return new SystemTalkCtrl();
}

[[maybe_unused]] const bool kFactoryInstalled =
    (GlobalResourceCtrl::SetTalkControllerFactory(&MakeTalkController), true);

}  // namespace

SystemTalkCtrl::SystemTalkCtrl() {
  SetResourceControllerID(kTalkControllerID);
  {
    std::lock_guard<std::mutex> hold(g_currentMutex);
    g_current = this;
  }
  GlobalResourceCtrl::RegisterResourceCtrl(this);
  SetLoaded(1);
}

SystemTalkCtrl::~SystemTalkCtrl() {
  {
    std::lock_guard<std::mutex> hold(g_currentMutex);
    if (g_current == this) g_current = nullptr;
  }
  RemoveAll();
  LockResource();
  for (auto& [code, list] : errors_) {
    for (ErrorMsg* error : *list) delete error;
    delete list;
  }
  errors_.clear();
  UnLockResource();
}

SystemTalkCtrl* SystemTalkCtrl::Get() {
  std::lock_guard<std::mutex> hold(g_currentMutex);
  return g_current;
}

SystemTalkCtrl* SystemTalkCtrl::Acquire() {
  std::lock_guard<std::mutex> hold(g_currentMutex);
  if (g_current != nullptr) g_current->Reserve();
  return g_current;
}

CString SystemTalkCtrl::GetTalkTitle(int kind) {
  switch (kind) {
    case kNotifyWarning:
      return "Tidrel Warning Report";
    case kNotifyError:
      return "Tidrel Error Report";
    case kNotifyNewChannel:
      return "New Channel Report";
    case kNotifyNewOPML:
      return "New OPML Report";
    case kNotifyNewEnclosure:
      return "New Enclosure Report";
    case kNotifyMaintenanceApproval:
      return "Auto-Maintenance Approval Needed";
    case kNotifyRecommendation:
      return "Tidrel Recommends";
    case kNotifyDownloadFinished:
      return "Download Finished";
    case kNotifyDownloadApproval:
      return "File Download Approval";
    case kNotifyChannelRemoval:
      return "Removal of Bloglines Channel";
    default:
      return CString();
  }
}

// --- Firing ------------------------------------------------------------------

TalkItem* SystemTalkCtrl::FireNotification(_struct_RESCTRLNOTIFMSG* message, int silent) {
  if (message == nullptr) return nullptr;
  SystemTalkCtrl* ctrl = Acquire();
  if (ctrl == nullptr) return nullptr;
  TalkItem* talk = ctrl->Fire(message, silent);
  ctrl->Release();
  return talk;
}

TalkItem* SystemTalkCtrl::Fire(_struct_RESCTRLNOTIFMSG* news, int silent) {
  auto* talk = new TalkItem();
  talk->SetFullyLoaded(1);
  talk->SetReceiveDateTime(Clock::Now());
  talk->SetTalkTitle(GetTalkTitle(news->kind));
  Focusable* first = news->focusables.empty() ? nullptr : news->focusables.front();
  PANELVIEWMESSAGE message;
  switch (news->kind) {
    case kNotifyMaintenanceApproval:
      message.message = kNotifyMaintenanceApproval;
      message.command = news->command;
      if (news->focusables.size() == 1) message.object = reinterpret_cast<intptr_t>(first);
      message.focusable = talk;
      break;
    case kNotifyDownloadFinished:
      message.message = kNotifyDownloadFinished;
      message.focusable = first;
      if (first != nullptr) {
        const CString file = first->GetFieldString(kFileFieldTitle, 0);
        if (!file.IsEmpty()) {
          const bool missing = (first->GetFocusableStatus() & kFileStatusNotFound) != 0;
          talk->SetTalkTitle(
              CString::Formatted(missing ? "File Not Found : %s" : "Downloaded : %s", file));
        }
      }
      break;
    case kNotifyDownloadApproval:
    case kNotifyChannelRemoval:
      message.message = news->kind;
      message.focusable = first;
      break;
    case kNotifyNewEnclosure:
      message.message = kTalkKindEnclosureReport;
      message.command = kNotifyNewEnclosure;
      message.focusable = talk;
      break;
    default:
      break;
  }
  message.text = news->text;
  talk->SetTalkMsg(&message);

  auto* notification = new NotificationItem();
  notification->SetFullyLoaded(1);
  notification->SetFireDate(Clock::Now());
  notification->SetValueStr(kTalkFieldTitle, news->text, 1);
  notification->SetNotifiedItems(&news->focusables);

  LockResource();
  const bool held = !closed_ && Hold(talk);
  if (held) {
    auto*& fired = firedItems_[talk];
    if (fired == nullptr) fired = new CArray<NotificationItem*, NotificationItem*>();
    fired->push_back(notification);
    if (!Hold(notification)) {
      fired->pop_back();
      delete notification;
    }
    talk->Reserve();  // until the panels and the host have been told
  }
  UnLockResource();
  if (!held) {
    // Closed meanwhile (or no identity could be given): nothing was kept.
    delete notification;
    delete talk;
    return nullptr;
  }
  if (silent == 0) {
    GlobalResourceCtrl::SendRC2PanelMessage(this, kPanelMessageRecordAdded, kPanelKindAdded, talk);
    Host::Current()->ShowNotice(talk->MakeNotice());
  }
  talk->Release();
  return talk;
}

ProgressData* SystemTalkCtrl::FireProgressNotification(CString title) {
  SystemTalkCtrl* ctrl = Acquire();
  if (ctrl == nullptr) return nullptr;
  ProgressData* progress = ctrl->FireProgress(title);
  ctrl->Release();
  return progress;
}

ProgressData* SystemTalkCtrl::FireProgress(const CString& title) {
  auto* progress = new ProgressData();
  progress->Reserve();
  auto* talk = new TalkItem();
  talk->SetFullyLoaded(1);
  talk->SetReceiveDateTime(Clock::Now());
  talk->SetTalkTitle(title);
  PANELVIEWMESSAGE message;
  message.message = kNotifyProgress;
  message.object = reinterpret_cast<intptr_t>(progress);
  talk->SetTalkMsg(&message);
  LockResource();
  const bool held = !closed_ && Hold(talk);
  if (held) progressTalks_[progress] = talk;
  UnLockResource();
  if (!held) {
    delete talk;  // gives up the report, which then goes too
    return nullptr;
  }
  return progress;
}

void SystemTalkCtrl::RegisterError(ErrorMsg* error) {
  if (error == nullptr) return;
  SystemTalkCtrl* ctrl = Acquire();
  if (ctrl == nullptr) {
    delete error;
    return;
  }
  ctrl->LockResource();
  auto*& list = ctrl->errors_[error->errorCode];
  if (list == nullptr) list = new CArray<ErrorMsg*, ErrorMsg*>();
  list->push_back(error);
  ctrl->UnLockResource();
  _struct_RESCTRLNOTIFMSG news;
  news.kind = kNotifyError;
  ctrl->Fire(&news, 0);
  ctrl->Release();
}

// --- Lookups -----------------------------------------------------------------

CArray<NotificationItem*, NotificationItem*>* SystemTalkCtrl::GetFiredItems(TalkItem* talk) {
  auto found = firedItems_.find(talk);
  return found != firedItems_.end() ? found->second : nullptr;
}

CArray<ErrorMsg*, ErrorMsg*>* SystemTalkCtrl::GetRegisteredErrors(int code) {
  auto found = errors_.find(code);
  return found != errors_.end() ? found->second : nullptr;
}

TalkItem* SystemTalkCtrl::GetProgressTalk(ProgressData* progress) {
  LockResource();
  auto found = progressTalks_.find(progress);
  TalkItem* talk = found != progressTalks_.end() ? found->second : nullptr;
  UnLockResource();
  return talk;
}

TalkItem* SystemTalkCtrl::ReserveTalk(const CString& guid) {
  LockResource();
  Focusable* record = CheckFocusable(guid, 0);
  TalkItem* talk = record != nullptr && Holds(record) ? static_cast<TalkItem*>(record) : nullptr;
  if (talk != nullptr) talk->Reserve();
  UnLockResource();
  return talk;
}

bool SystemTalkCtrl::Holds(Focusable* talk) {
  if (data_ == nullptr || talk == nullptr) return false;
  const auto& all = data_->focusables;
  // The pointer is compared before the record is read: a talk that left is
  // never touched.
  return std::find(all.begin(), all.end(), talk) != all.end() &&
         talk->GetFocusableRelation() == kTalkRelation;
}

// --- Commands ----------------------------------------------------------------

int SystemTalkCtrl::InterpretGUICommand(PANELVIEWMESSAGE* message, int*) {
  if (message == nullptr) return 0;
  switch (message->message) {
    case kCommandRedrawTalk: {
      LockResource();
      auto found = progressTalks_.find(reinterpret_cast<ProgressData*>(message->object));
      TalkItem* talk = found != progressTalks_.end() ? found->second : nullptr;
      if (talk != nullptr) talk->Reserve();
      UnLockResource();
      if (talk != nullptr) {
        GlobalResourceCtrl::SendRC2PanelMessage(this, kPanelMessageRecordChanged, kPanelKindChanged,
                                                talk);
        talk->Release();
      }
      return 1;
    }
    case kCommandRemoveTalk:
      if (TalkItem* talk = GetProgressTalk(reinterpret_cast<ProgressData*>(message->object))) {
        RemoveTalk(talk);
      }
      return 0;
    case kCommandRemoveTalkRecord:
      RemoveTalk(message->focusable);  // any record may come with the command
      return 1;
    default:
      return 0;
  }
}

int SystemTalkCtrl::RemoveTalk(Focusable* record) {
  LockResource();
  if (!Holds(record)) {
    UnLockResource();
    return 0;
  }
  // Held here with the talk relation: one of this list's talks.
  TalkItem* talk = static_cast<TalkItem*>(record);
  talk->Reserve();  // for the length of the removal
  UnLockResource();
  GlobalResourceCtrl::SendRC2PanelMessage(this, kPanelMessageRecordRemoved, kPanelKindRemoved,
                                          talk);
  LockResource();
  // Another thread may have removed it while the panels were told.
  // Only the talk goes: its notifications stay with the controller, and
  // keep their records, until the list is closed at log-off.
  const bool still = Holds(talk);
  if (still) {
    Forget(talk);
    Drop(talk);
  }
  UnLockResource();
  talk->Release();
  return still ? 1 : 0;
}

// --- Holding records ---------------------------------------------------------

bool SystemTalkCtrl::Hold(Focusable* record) {
  if (!RegisterFocusable(record, 0, 0)) return false;
  // Talks are kept in memory only: the body stays while the controller
  // holds the record, whoever else reads it.
  record->Reserve();
  return true;
}

void SystemTalkCtrl::Drop(Focusable* record) {
  // The hold on the body goes first; dropping the header then deletes the
  // record unless somebody else still holds it.
  record->Release();
  DeRegisterFocusable(record, nullptr, 1);
}

void SystemTalkCtrl::Forget(TalkItem* talk) {
  auto found = firedItems_.find(talk);
  if (found != firedItems_.end()) {
    delete found->second;
    firedItems_.erase(found);
  }
  for (auto it = progressTalks_.begin(); it != progressTalks_.end();) {
    it = it->second == talk ? progressTalks_.erase(it) : std::next(it);
  }
  talk->ForgetRecords();
}

void SystemTalkCtrl::RemoveAll() {
  if (data_ == nullptr) return;
  LockResource();
  for (Focusable* record : CArray<Focusable*, Focusable*>(data_->focusables)) {
    if (Holds(record)) Forget(static_cast<TalkItem*>(record));
  }
  // Notifications and talks alike; the copy, since dropping changes the
  // array.
  for (Focusable* record : CArray<Focusable*, Focusable*>(data_->focusables)) Drop(record);
  for (auto& [talk, fired] : firedItems_) delete fired;
  firedItems_.clear();
  progressTalks_.clear();
  UnLockResource();
}

void SystemTalkCtrl::CloseResourceCtrl() {
  {
    std::lock_guard<std::mutex> hold(g_currentMutex);
    if (g_current == this) g_current = nullptr;
  }
  LockResource();
  const bool first = !closed_;
  closed_ = true;
  UnLockResource();
  if (!first) return;
  ResourceController::CloseResourceCtrl();
  RemoveAll();
  GlobalResourceCtrl::DeRegisterResourceCtrl(this);
  Release();
}

}  // namespace kordll
