// `kordll demo`, the talk step: a finished download fires a talk, the talk
// list shows it, opening it shows the talk dialog through the headless host
// (which answers "Close Talk", command 29752, and so removes it), and a
// second talk is removed by command 29752 sent as a panel would. The
// notifications of removed talks stay with the list, and so keep the file
// record, until the list is closed at log-off.
//
// Talks live in memory only and the demo's file record is never stored, so
// nothing is left behind and every run prints alike.

#include <ostream>

#include "kordll/control/GlobalResourceCtrl.h"
#include "kordll/control/PANELVIEWMESSAGE.h"
#include "kordll/control/_struct_RESCTRLNOTIFMSG.h"
#include "kordll/platform/HeadlessHost.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/RecordIds.h"
#include "kordll/talk/SystemTalkCtrl.h"
#include "kordll/talk/TalkItem.h"
#include "tools/DemoWalk.h"

namespace {

using kordll::CString;
using kordll::GlobalResourceCtrl;
using kordll::SystemTalkCtrl;
using kordll::TalkItem;

// The headless host, telling what it is asked to show.
class TellingHost : public kordll::HeadlessHost {
 public:
  explicit TellingHost(std::ostream& out) : out_(out) {}
  int DoModal(const kordll::HostDialog& dialog, kordll::HostDialogHandler* handler) override {
    out_ << "  dialog \"" << dialog.title.ToUtf8() << "\": " << dialog.text.ToUtf8() << " [";
    for (int i = 0; i < 3; ++i) {
      if (dialog.visible[i]) out_ << (i > 0 ? " | " : "") << dialog.captions[i].ToUtf8();
    }
    out_ << "]; the headless host answers \"" << dialog.captions[2].ToUtf8() << "\"\n";
    return HeadlessHost::DoModal(dialog, handler);
  }

 private:
  std::ostream& out_;
};

void ListTalks(std::ostream& out, SystemTalkCtrl* talks) {
  int count = 0;
  for (kordll::Focusable* record : talks->GetFocusables()) {
    if (record->GetFocusableRelation() != kordll::kTalkRelation) continue;
    out << "  listed: \"" << record->GetFocusableTitle().ToUtf8() << "\"\n";
    ++count;
  }
  if (count == 0) out << "  the talk list is empty\n";
}

void Talks(kordll_tool::Walk& walk) {
  walk.Step("A talk is fired, listed, opened and removed");
  std::ostream& out = walk.out();
  GlobalResourceCtrl::GetGlobalResourceCtrl();
  if (SystemTalkCtrl::Get() == nullptr) GlobalResourceCtrl::InitializeGlobalResourceCtrl();
  SystemTalkCtrl* talks = SystemTalkCtrl::Acquire();
  if (!walk.Expect(talks != nullptr, "there is no talk controller")) return;
  TellingHost host(out);
  kordll::Host* previous = kordll::Host::Install(&host);

  auto* file = new kordll::Focusable(kordll::kRelationFile, nullptr);
  file->SetSavable(0);
  file->SetValueStr(kordll::kFileFieldTitle, "episode-12.mp3", 1);
  file->Reserve();
  kordll::_struct_RESCTRLNOTIFMSG news;
  news.kind = kordll::kNotifyDownloadFinished;
  news.text = "Episode 12 is on disk.";
  news.focusables.push_back(file);
  TalkItem* talk = SystemTalkCtrl::FireNotification(&news, 0);
  walk.Expect(talk != nullptr && talk->GetTalkTitle() == CString("Downloaded : episode-12.mp3"),
              "the download talk has not its title");
  ListTalks(out, talks);
  if (talk != nullptr) talk->OpenFocusable();
  ListTalks(out, talks);

  news.kind = kordll::kNotifyWarning;
  news.text = "The channel moved.";
  news.focusables.clear();
  talk = SystemTalkCtrl::FireNotification(&news, 0);
  ListTalks(out, talks);
  kordll::PANELVIEWMESSAGE command;
  command.message = kordll::kCommandRemoveTalkRecord;
  command.focusable = talk;
  int result = 0;
  const int handled = GlobalResourceCtrl::InterpretGUICommand(&command, &result);
  out << "  command " << command.message << " handled: " << (handled != 0 ? "yes" : "no") << "\n";
  ListTalks(out, talks);
  bool listed = false;
  for (kordll::Focusable* record : talks->GetFocusables()) {
    listed = listed || record->GetFocusableRelation() == kordll::kTalkRelation;
  }
  walk.Expect(!listed, "a talk is still listed");
  // The notifications stay with the talk list, holding the file record,
  // until the list is closed at log-off.
  walk.Expect(file->GetReferenceCount() == 2, "the file record is not held by its notification");

  file->Release();
  kordll::Host::Install(previous);
  talks->Release();
}

const kordll_tool::DemoStepRegistration kTalks{100, &Talks};

}  // namespace
