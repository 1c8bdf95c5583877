#include "kordll/talk/TalkItem.h"

#include "kordll/control/GlobalResourceCtrl.h"
#include "kordll/control/IIPanel.h"
#include "kordll/control/_struct_RESCTRLNOTIFMSG.h"
#include "kordll/platform/Clock.h"
#include "kordll/record/RecordIds.h"
#include "kordll/record/SettingsEntryPoints.h"
#include "kordll/talk/CSystemTalkDlg.h"
#include "kordll/talk/ProgressData.h"
#include "kordll/talk/SystemTalkCtrl.h"

namespace kordll {

namespace {

// Commands of the file list and of the applications' channel lists that a
// talk's dialog sends back.
constexpr int kCommandRemoveChannel = 29107;
constexpr int kCommandDownloadFile = 29301;
constexpr int kCommandOpenFile = 29308;
constexpr int kCommandFileMore = 29313;
constexpr int kCommandDownloadMore = 29319;
constexpr int kCommandChannelMore = 29505;
// The setting "ask before downloading a file automatically".
constexpr int kAutoDownloadFileAskUserField = 94;

// Keeps a record alive for the length of one opening.
class Held {
 public:
  explicit Held(Focusable* record) : record_(record) {
    if (record_ != nullptr) record_->Reserve();
  }
  ~Held() {
    if (record_ != nullptr) record_->Release();
  }
  Held(const Held&) = delete;
  Held& operator=(const Held&) = delete;

 private:
  Focusable* record_;
};

}  // namespace

TalkItem::TalkItem() : Focusable(kTalkRelation, nullptr) { SetSavable(0); }

TalkItem::~TalkItem() {
  if (ProgressData* progress = GetProgress()) progress->Release();
}

ProgressData* TalkItem::GetProgress() {
  if (message_.message != kNotifyProgress) return nullptr;
  return reinterpret_cast<ProgressData*>(message_.object);
}

void TalkItem::SetTalkMsg(PANELVIEWMESSAGE* message) {
  if (message != nullptr) message_ = *message;
}

CString TalkItem::GetTalkTitle() { return GetFieldString(kTalkFieldTitle, 0); }

void TalkItem::SetTalkTitle(CString title) { SetValueStr(kTalkFieldTitle, title, 1); }

CString TalkItem::GetFocusableTitle() {
  const CString title = GetTalkTitle();
  ProgressData* progress = GetProgress();
  if (progress == nullptr) return title;
  const int percent = progress->GetProgressPercentage();
  if (percent == 100) return title + " Finished";
  return CString::Formatted("(%d %%) %s", percent, title);
}

int TalkItem::SendCommand(int command, Focusable* focusable, intptr_t object) {
  PANELVIEWMESSAGE message;
  message.message = command;
  message.focusable = focusable;
  message.object = object;
  int answer = 0;
  return GlobalResourceCtrl::InterpretGUICommand(&message, &answer);
}

void TalkItem::Remove() {
  // Panels first, so the line goes before the talk may be deleted; the
  // opening holds the talk until it ends.
  if (SystemTalkCtrl* ctrl = SystemTalkCtrl::Acquire()) {
    GlobalResourceCtrl::SendRC2PanelMessage(ctrl, kPanelMessageRecordRemoved, kPanelKindRemoved,
                                            this);
    ctrl->Release();
  }
  SendCommand(kCommandRemoveTalkRecord, this, 0);
}

int TalkItem::OpenFocusable() {
  Held self(this);
  // The message is read from a copy: answering removes the talk.
  const PANELVIEWMESSAGE message = message_;
  const int kind = message.message;
  if (kind == kNotifyProgress) return OpenProgress(GetProgress());
  if (kind == kNotifyMaintenanceApproval) return OpenQuestion(message);
  Focusable* record = message.focusable;
  Held about(kind == kTalkKindEnclosureReport ? nullptr : record);
  if (kind == kTalkKindEnclosureReport) {
    if (IIPanel* panel = GlobalResourceCtrl::GetPanel(kMainPanel)) {
      PANELVIEWMESSAGE shown = message;
      panel->SendPanelMessage(kPanelMessageShow, 0, reinterpret_cast<intptr_t>(&shown));
    }
    Remove();
    return 1;
  }
  CSystemTalkDlg dialog;
  PrepareDialog(&dialog);
  dialog.DoModal();
  if (kind == kNotifyDownloadApproval && dialog.checkValue != 0) {
    SettingsEntryPoints::Get()->SetCurrentPreferencesIntValue(kAutoDownloadFileAskUserField, 0);
  }
  if (kind == kNotifyChannelRemoval || kind == kNotifyDownloadApproval) {
    return dialog.result == kCommandRemoveTalkRecord ? 0 : 1;
  }
  return 1;
}

bool TalkItem::PrepareDialog(CSystemTalkDlg* dialog) {
  const int kind = message_.message;
  if (kind == kNotifyMaintenanceApproval || kind == kNotifyProgress ||
      kind == kTalkKindEnclosureReport) {
    return false;
  }
  Focusable* record = message_.focusable;
  dialog->talk = this;
  dialog->text = message_.text;
  if (kind == kNotifyChannelRemoval || kind == kNotifyDownloadApproval) {
    dialog->commandText = record != nullptr ? record->GetGUID() : CString();
    dialog->object = reinterpret_cast<intptr_t>(record);
    if (kind == kNotifyChannelRemoval) {
      dialog->firstCaption = "Remove";
      dialog->openCommand = kCommandRemoveChannel;
      dialog->moreCommand = kCommandChannelMore;
    } else {
      dialog->firstCaption = "Download";
      dialog->checkText = "Next time start download automatically";
      dialog->openCommand = kCommandDownloadFile;
      dialog->moreCommand = kCommandDownloadMore;
    }
  } else if (kind == kNotifyDownloadFinished) {
    dialog->commandText = record != nullptr ? record->GetGUID() : CString();
    if (record != nullptr && (record->GetFocusableStatus() & kFileStatusOnDisk) != 0) {
      dialog->openCommand = kCommandOpenFile;
    } else {
      dialog->firstCaption = "Retry";
      dialog->openCommand = kCommandDownloadFile;
    }
    dialog->moreCommand = kCommandFileMore;
  }
  return true;
}

void TalkItem::ForgetRecords() {
  if (message_.focusable != this) message_.focusable = nullptr;
  if (message_.message == kNotifyMaintenanceApproval) message_.object = 0;
}

namespace {

// A notice's action: the talk of guid, if still held, answers as its
// dialog's button would.
void ActOnNotice(const CString& guid, int button) {
  SystemTalkCtrl* ctrl = SystemTalkCtrl::Acquire();
  if (ctrl == nullptr) return;
  TalkItem* talk = ctrl->ReserveTalk(guid);
  ctrl->Release();
  if (talk == nullptr) return;
  const PANELVIEWMESSAGE message = *talk->GetTalkMsg();
  if (message.message == kNotifyMaintenanceApproval) {
    // Yes is the second button, no the third.
    talk->AnswerQuestion(button == 2);
  } else {
    CSystemTalkDlg dialog;
    if (talk->PrepareDialog(&dialog)) {
      Held about(message.focusable != talk ? message.focusable : nullptr);
      if (button == 1) {
        dialog.OnFirstButton();
      } else if (button == 2) {
        dialog.OnSecondButton(0, 0);
      } else {
        dialog.OnThirdButton();
      }
    }
  }
  talk->Release();
}

}  // namespace

HostNotice TalkItem::MakeNotice() {
  HostNotice notice;
  notice.title = GetFocusableTitle();
  notice.text = message_.text;
  const int kind = message_.message;
  CSystemTalkDlg dialog;
  if (kind == kNotifyMaintenanceApproval) {
    notice.actions.push_back({2, "Yes"});
    notice.actions.push_back({3, "No"});
  } else if (PrepareDialog(&dialog)) {
    const HostDialog shown = dialog.BuildDialog();
    for (int button = 1; button <= 3; ++button) {
      if (shown.visible[button - 1] && shown.enabled[button - 1]) {
        notice.actions.push_back({button, shown.captions[button - 1]});
      }
    }
  }
  if (!notice.actions.empty()) {
    const CString guid = GetGUID();
    notice.onAction = [guid](int button) { ActOnNotice(guid, button); };
  }
  return notice;
}

int TalkItem::OpenQuestion(const PANELVIEWMESSAGE& message) {
  if (message.text.IsEmpty()) return 1;
  AnswerQuestion(CSystemTalkDlg::SystemAsk(message.text, CString(), nullptr) != 0);
  return 1;
}

void TalkItem::AnswerQuestion(bool yes) {
  Held self(this);
  const PANELVIEWMESSAGE message = message_;
  // The record the answer is about must outlive the talk's removal.
  Focusable* about = reinterpret_cast<Focusable*>(message.object);
  Held hold(about);
  if (yes) {
    Remove();
    SendCommand(message.command, about, 0);
  } else {
    // The receiver reads object 0 as "yes" and 1 as "no".
    SendCommand(message.command, about, 1);
    Remove();
  }
}

int TalkItem::OpenProgress(ProgressData* progress) {
  if (progress == nullptr) return 1;
  // The talk holds the report until it goes; the opening holds the talk.
  if (progress->GetProgressPercentage() == 100 && progress->IsOpenAtEnd() != 0) {
    progress->SendOpenMessage();
    SendCommand(kCommandRemoveTalk, nullptr, reinterpret_cast<intptr_t>(progress));
  } else {
    progress->ShowProgressWnd();
  }
  return 1;
}

}  // namespace kordll
