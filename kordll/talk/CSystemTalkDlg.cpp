#include "kordll/talk/CSystemTalkDlg.h"

#include "kordll/control/GlobalResourceCtrl.h"
#include "kordll/control/PANELVIEWMESSAGE.h"
#include "kordll/talk/TalkItem.h"

namespace kordll {

CSystemTalkDlg::CSystemTalkDlg(CWnd* parent) : parent_(parent) {}

HostDialog CSystemTalkDlg::BuildDialog() {
  HostDialog dialog;
  dialog.templateId = kTalkDialogTemplate;
  if (talk != nullptr) {
    const CString title = talk->GetFocusableTitle();
    if (!title.IsEmpty()) dialog.title = CString("System Talks :: ") + title;
  }
  dialog.text = text;
  dialog.captions[0] = firstCaption;
  dialog.captions[1] = secondCaption;
  dialog.captions[2] = thirdCaption;
  if (moreCommand == -1 && openCommand == -1) dialog.visible[0] = dialog.visible[1] = false;
  dialog.checkText = checkText;
  dialog.checkValue = checkValue;
  if (askMode != 0) {
    // The second button is the yes answer, next to the third.
    dialog.visible[1] = dialog.enabled[1] = true;
  } else if (openCommand == -1) {
    dialog.enabled[1] = false;
  }
  return dialog;
}

int CSystemTalkDlg::DoModal() {
  const HostDialog dialog = BuildDialog();
  return Host::Current()->DoModal(dialog, this);
}

int CSystemTalkDlg::SystemTalk(CString text) {
  CSystemTalkDlg dialog;
  dialog.text = text;
  return dialog.DoModal();
}

int CSystemTalkDlg::SystemAsk(CString text, CString checkText, int* checkValue) {
  CSystemTalkDlg dialog;
  dialog.text = text;
  dialog.checkText = checkText;
  dialog.secondCaption = "Yes";
  dialog.thirdCaption = "No";
  dialog.askMode = checkValue != nullptr ? *checkValue : 1;
  dialog.DoModal();
  if (checkValue != nullptr) *checkValue = dialog.checkValue;
  return dialog.result == 0 ? 1 : 0;
}

void CSystemTalkDlg::Send(int command, const int* x, const int* y) {
  PANELVIEWMESSAGE message;
  message.message = command;
  message.text = commandText;
  message.focusable = reinterpret_cast<Focusable*>(object);
  if (x != nullptr && y != nullptr) {
    message.point = CPoint(*x, *y);
    message.value = reinterpret_cast<intptr_t>(this);
  }
  int answer = 0;
  GlobalResourceCtrl::InterpretGUICommand(&message, &answer);
}

void CSystemTalkDlg::RemoveTalk() {
  if (talk == nullptr) return;
  PANELVIEWMESSAGE message;
  message.message = kCommandRemoveTalkRecord;
  message.focusable = talk;
  int answer = 0;
  GlobalResourceCtrl::InterpretGUICommand(&message, &answer);
}

bool CSystemTalkDlg::OnFirstButton() {
  if (openCommand != -1) Send(openCommand);
  result = openCommand;
  RemoveTalk();
  return true;
}

bool CSystemTalkDlg::OnSecondButton(int x, int y) {
  if (moreCommand != -1) {
    Send(moreCommand, &x, &y);
    return false;
  }
  if (askMode == 0) return OnThirdButton();
  result = 0;
  return true;
}

bool CSystemTalkDlg::OnThirdButton() {
  RemoveTalk();
  result = askMode != 0 ? 1 : kCommandRemoveTalkRecord;
  return true;
}

bool CSystemTalkDlg::OnRegisteredGUICommands(unsigned int command) {
  Send(static_cast<int>(command));
  result = static_cast<int>(command);
  RemoveTalk();
  return true;
}

void CSystemTalkDlg::SetTextFont(const char16_t* face, int size, int, int, int) {
  fontFace_ = face != nullptr ? CString(face) : CString();
  fontSize_ = size;
}

bool CSystemTalkDlg::OnDialogButton(int button, int check, int x, int y) {
  checkValue = check;
  switch (button) {
    case 1:
      return OnFirstButton();
    case 2:
      return OnSecondButton(x, y);
    case 3:
      return OnThirdButton();
    default:
      return false;
  }
}

bool CSystemTalkDlg::OnDialogCommand(int command, int check) {
  checkValue = check;
  return OnRegisteredGUICommands(static_cast<unsigned int>(command));
}

}  // namespace kordll
