// TalkItem: one talk of the talk list (relation 19).
//
// A talk keeps the message that raised it: the message's `message` field is
// the talk kind (0 plain, 5 a question whose answer goes back as the
// message's command, 7 a finished download, 8 a progress report held in
// object, 9 a download that asks for approval, 10 a channel to remove, 1115
// an enclosure report), its text is the talk's text, and focusable the
// record it is about. The title is record field 4.
//
// Opening a talk shows it through the host: a question for kind 5, the
// report's window for kind 8, the enclosure report in the main panel for
// kind 1115, the talk dialog otherwise. The talk and the record it is about
// are reserved for the length of the opening, so answering may remove the
// talk (which it usually does) without anything being used after it went.
//
// Thread safety: as for every record; the message is read and written by
// the thread that holds the talk.

#ifndef KORDLL_TALK_TALKITEM_H_
#define KORDLL_TALK_TALKITEM_H_

#include "kordll/control/PANELVIEWMESSAGE.h"
#include "kordll/platform/CString.h"
#include "kordll/platform/Host.h"
#include "kordll/record/Focusable.h"

namespace kordll {

class CSystemTalkDlg;
class ProgressData;

class TalkItem : public Focusable {
 public:
  // A talk with kind 0, no title and nothing to save (talks are never
  // stored).
  TalkItem();
  TalkItem(const TalkItem&) = delete;
  TalkItem& operator=(const TalkItem&) = delete;
  // Releases the progress report of a progress talk.
  ~TalkItem() override;

  // Answers by kind (see the file comment): for kinds 9 and 10, 0 when the
  // dialog closed by removing the talk, else 1; otherwise 1.
  int OpenFocusable() override;
  // A progress talk: "<title> Finished" at 100 percent, else
  // "(<percent> %) <title>". Any other talk: its title.
  CString GetFocusableTitle() override;

  // Copies message into the talk (the records it names are not reserved).
  void SetTalkMsg(PANELVIEWMESSAGE* message);
  PANELVIEWMESSAGE* GetTalkMsg() { return &message_; }
  int GetTalkKind() const { return message_.message; }
  CString GetTalkTitle();
  void SetTalkTitle(CString title);
  // The report of a progress talk, or null.
  ProgressData* GetProgress();

  // Sets dialog up as this talk's view: text, captions, commands, the
  // record's GUID as command text. False for the kinds that open without
  // the dialog (5, 8, 1115).
  bool PrepareDialog(CSystemTalkDlg* dialog);
  // The desktop notice of the talk: its title, text and the buttons of its
  // dialog (the yes and no of a question) as actions. An action finds the
  // talk again by its GUID and acts as the button would, or does nothing
  // once the talk is gone.
  HostNotice MakeNotice();
  // Forgets the records the message names, once the controller no longer
  // keeps them for the talk (a progress report stays: the talk holds it).
  void ForgetRecords();
  // Answers a question talk (kind 5): with yes the talk goes first and the
  // command follows with the record in focusable and object 0; with no the
  // command goes with object 1 and the talk goes after it.
  void AnswerQuestion(bool yes);

 private:
  // Asks the controllers to act on command for this talk.
  int SendCommand(int command, Focusable* focusable, intptr_t object);
  // Panels hear that the talk goes, and the talk is removed (29752).
  void Remove();
  int OpenQuestion(const PANELVIEWMESSAGE& message);
  int OpenProgress(ProgressData* progress);

  PANELVIEWMESSAGE message_;
};

}  // namespace kordll

#endif  // KORDLL_TALK_TALKITEM_H_
