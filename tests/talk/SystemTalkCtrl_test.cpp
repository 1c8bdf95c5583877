// Talks: a talk's life from firing to removal, questions, progress talks,
// errors, the log-off, records that their owner let go, the desktop notice,
// and firing and removing from several threads at once.
#include "kordll/talk/SystemTalkCtrl.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "kordll/control/_struct_RESCTRLNOTIFMSG.h"
#include "kordll/talk/ErrorMsg.h"
#include "kordll/talk/NotificationItem.h"
#include "kordll/talk/ProgressData.h"
#include "kordll/talk/TalkItem.h"
#include "tests/control/GlobalResourceCtrlTest.h"
#include "tests/support/TestHost.h"

namespace kordll {
namespace {

// The file list's stand-in: notes "command:object:text" of the commands it
// is offered (object as "has a record", or for 29999 the value itself).
struct Files : test::Ctrl {
  Files() : Ctrl(kFileManagerControllerID) {}
  int InterpretGUICommand(PANELVIEWMESSAGE* m, int*) override {
    if (m->message >= kCommandRedrawTalk && m->message <= kCommandRemoveTalkRecord) return 0;
    heard += std::to_string(m->message) + ":" +
             std::to_string(m->message == 29999 ? m->object : m->focusable != nullptr) + ":" +
             m->text.ToUtf8() + " ";
    return 1;
  }
  std::string heard;
};

class TalkTest : public test::RegistryTest {
 protected:
  TalkTest() {
    Host::Install(&host_);
    GlobalResourceCtrl::RegisterPanel(&panel_, kTalkControllerID, 0);
    files_ = new Files();
  }
  ~TalkTest() override {
    for (Focusable* r : records_) r->Release();
    End();
    Host::Install(nullptr);
  }
  static SystemTalkCtrl* Talks() { return SystemTalkCtrl::Get(); }
  // A file record held by the test, titled file, with status.
  Focusable* File(const char* file, int status = 0) {
    auto* r = new Focusable(kRelationFile, nullptr);
    r->SetGUID(CString::Formatted("R14_G%d", int(records_.size()))), r->SetSavable(0);
    r->SetValueStr(kFileFieldTitle, file, 1), r->SetFocusableStatus(status), r->Reserve();
    return records_.push_back(r), r;
  }
  TalkItem* Fire(int kind, std::vector<Focusable*> records = {}, const char* text = "t") {
    _struct_RESCTRLNOTIFMSG news;
    news.kind = kind, news.text = text, news.command = 29999, news.focusables = records;
    return SystemTalkCtrl::FireNotification(&news, 0);
  }
  int Command(int command, Focusable* focusable, intptr_t object = 0) {
    PANELVIEWMESSAGE m;
    m.message = command, m.focusable = focusable, m.object = object;
    return GlobalResourceCtrl::InterpretGUICommand(&m, nullptr);
  }
  // The talks listed (notifications left out).
  size_t Count() {
    size_t n = 0;
    for (Focusable* r : Talks()->GetFocusables()) n += r->GetFocusableRelation() == kTalkRelation;
    return n;
  }
  std::string Heard() {
    std::string out;
    for (auto& h : panel_.heard) out += std::to_string(h[0]) + "/" + std::to_string(h[1]) + " ";
    return panel_.heard.clear(), out;
  }
  TestHost host_;
  test::Panel panel_;
  Files* files_;
  std::vector<Focusable*> records_;
};

TEST_F(TalkTest, ADownloadTalkFromFiringToRemoval) {
  Focusable* file = File("a.mp3");
  TalkItem* talk = Fire(kNotifyDownloadFinished, {file});
  ASSERT_NE(talk, nullptr);
  EXPECT_EQ(talk->GetFocusableTitle(), CString("Downloaded : a.mp3"));
  EXPECT_EQ(Heard(), "1037/1 ");
  EXPECT_EQ(Count(), 1u);
  // The notice offers the dialog's buttons.
  const HostNotice notice = host_.calls()[0].notice;
  ASSERT_EQ(notice.actions.size(), 3u);
  // Opened: "Retry" sends the retry with the record, then the talk goes.
  host_.QueueDialog({TestHost::Press(2), TestHost::Press(1)});
  EXPECT_EQ(talk->OpenFocusable(), 1);
  EXPECT_EQ(files_->heard, "29313:0:R14_G0 29301:0:R14_G0 ");
  EXPECT_EQ(Heard(), "1035/2 ");
  EXPECT_EQ(Count(), 0u);
  // A notice's action for a talk that is gone does nothing.
  notice.onAction(1);
  EXPECT_EQ(files_->heard, "29313:0:R14_G0 29301:0:R14_G0 ");
}

TEST_F(TalkTest, NoticeActionsActAsTheDialogsButtonsAndPlainTalksShowOnlyClose) {
  Focusable* file = File("f", kFileStatusOnDisk);
  Fire(kNotifyDownloadFinished, {file});
  host_.LastOf(TestHost::CallKind::kShowNotice)->notice.onAction(1);
  EXPECT_EQ(files_->heard, "29308:0:R14_G0 ");
  EXPECT_EQ(Count(), 0u);
}

// The command of a question carries its record in focusable; object is 0
// for yes and 1 for no, whatever record the question was about.
TEST_F(TalkTest, AQuestionsCommandCarriesObjectZeroForYesAndOneForNo) {
  const struct {
    int button;  // 2 yes, 3 no
    const char* heard;
  } rows[] = {{2, "29999:0: "}, {3, "29999:1: "}};
  for (const auto& row : rows) {
    files_->heard.clear();
    host_.QueueDialog({TestHost::Press(row.button)});
    Fire(kNotifyMaintenanceApproval, {File("q")}, "Clean up?")->OpenFocusable();
    EXPECT_EQ(files_->heard, row.heard) << row.button;
  }
}

TEST_F(TalkTest, AFinishedProgressTalkOpensItsResultAndGoes) {
  ProgressData* progress = SystemTalkCtrl::FireProgressNotification("Scan");
  TalkItem* talk = Talks()->GetProgressTalk(progress);
  ASSERT_NE(talk, nullptr);
  progress->UpdateProgressPoint(100, 100, 0);
  EXPECT_EQ(Command(kCommandRedrawTalk, nullptr, reinterpret_cast<intptr_t>(progress)), 1);
  progress->SetOpenAtEnd(1);
  talk->OpenFocusable();                 // finished: opens the result and the talk goes
  EXPECT_EQ(Heard(), "1041/3 1035/2 ");  // no panel heard of the talk's firing
  EXPECT_EQ(Talks()->GetProgressTalk(progress), nullptr);
}

TEST_F(TalkTest, ErrorsGiveTalksAndLogOffEmptiesTheListReleasingTheRecordsOnce) {
  SystemTalkCtrl::RegisterError(new ErrorMsg(21, "a"));
  SystemTalkCtrl::RegisterError(new ErrorMsg(21, "b"));
  EXPECT_EQ(Talks()->GetRegisteredErrors(21)->size(), 2u);
  EXPECT_EQ(Heard(), "1037/1 1037/1 ");
  Focusable* file = File("x");
  Fire(kNotifyDownloadApproval, {file});
  SystemTalkCtrl::FireProgressNotification("Scan");
  GlobalResourceCtrl::SetGlobalResourceClosed(1);
  GlobalResourceCtrl::GetGlobalResourceCtrl()->OnClear(nullptr);
  EXPECT_EQ(Talks(), nullptr);
  EXPECT_EQ(Fire(kNotifyWarning), nullptr);  // fired during the log-off
  EXPECT_EQ(file->GetReferenceCount(), 1);
  GlobalResourceCtrl::InitializeGlobalResourceCtrl();
  ASSERT_NE(Talks(), nullptr);
  EXPECT_EQ(Count(), 0u);
}

// Removing a talk drops only the talk: its notifications stay with the
// controller, holding their records, until the log-off closes the list.
TEST_F(TalkTest, ARemovedTalksNotificationsHoldTheirRecordsUntilTheLogOff) {
  Focusable* file = File("k");
  EXPECT_EQ(Command(kCommandRemoveTalkRecord, Fire(kNotifyDownloadFinished, {file})), 1);
  EXPECT_EQ(Count(), 0u);
  ASSERT_EQ(Talks()->GetFocusables().size(), 1u);
  EXPECT_EQ(Talks()->GetFocusables()[0]->GetFocusableRelation(), kNotificationRelation);
  EXPECT_EQ(file->GetReferenceCount(), 2);
  // The command given a record that is not a talk (the notification, a file) removes nothing.
  EXPECT_EQ(Command(kCommandRemoveTalkRecord, Talks()->GetFocusables()[0]), 1);
  EXPECT_EQ(Command(kCommandRemoveTalkRecord, file), 1);
  EXPECT_EQ(Talks()->GetFocusables().size(), 1u);
  GlobalResourceCtrl::SetGlobalResourceClosed(1);
  GlobalResourceCtrl::GetGlobalResourceCtrl()->OnClear(nullptr);
  EXPECT_EQ(file->GetReferenceCount(), 1);
}

TEST_F(TalkTest, ATalkOutlivesTheOwnerLettingItsRecordGo) {
  auto* file = new Focusable(kRelationFile, nullptr);
  file->SetSavable(0), file->SetValueStr(kFileFieldTitle, "gone", 1);
  files_->RegisterFocusable(file, 0, 0);
  TalkItem* talk = Fire(kNotifyDownloadApproval, {file});
  files_->DeRegisterFocusable(file, nullptr, 0);  // the owner lets go; the talk still holds it
  host_.QueueDialog({TestHost::PressWithCheck(1, 1)});
  EXPECT_EQ(talk->OpenFocusable(), 1);
  EXPECT_EQ(files_->heard, "29301:1:R14_G0 ");
  EXPECT_EQ(Count(), 0u);
}

TEST_F(TalkTest, ConcurrentFiringAndRemovalKeepTheListWhole) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([this, t] {
      for (int i = 0; i < 25; ++i) {
        TalkItem* talk = Fire(kNotifyWarning);
        if (t % 2 == 1) Command(kCommandRemoveTalkRecord, talk);
        ProgressData* p = SystemTalkCtrl::FireProgressNotification("p");
        p->UpdateProgressPoint(1, 2, 1);
        Command(kCommandRemoveTalk, nullptr, reinterpret_cast<intptr_t>(p));
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(Count(), 50u);  // the talks of the two threads that kept them
}

}  // namespace
}  // namespace kordll
