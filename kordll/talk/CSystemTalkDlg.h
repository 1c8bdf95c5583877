// CSystemTalkDlg: the talk dialog, a message with up to three buttons and
// an optional check box, shown through the host.
//
// It serves as a plain notice (SystemTalk), as a yes-or-no question
// (SystemAsk) and as the view of a talk. It decides nothing itself: its
// buttons send numbered commands through the registry of controllers
// (GlobalResourceCtrl::InterpretGUICommand), each with commandText in the
// message's text and object in its focusable, and the dialog reports the
// command chosen in `result`.
//
// Buttons, left to right: the first ("Open") sends openCommand, removes the
// talk on view and closes; the second ("More") sends moreCommand with the
// button's screen position and stays open; without a more command it is
// the yes answer of a question (result 0), or else acts as the third; the
// third ("Close Talk") removes the talk on view and closes, with result 1
// in a question and 29752 otherwise. A dialog without commands shows only
// the third button. A command of the application's own range sends that
// command, removes the talk and closes. The talk on view is removed with
// command 29752.
//
// A dialog whose host cannot show it sends nothing and keeps result -1.
//
// Thread safety: one dialog belongs to the thread that shows it.

#ifndef KORDLL_TALK_CSYSTEMTALKDLG_H_
#define KORDLL_TALK_CSYSTEMTALKDLG_H_

#include <cstdint>

#include "kordll/platform/CString.h"
#include "kordll/platform/Host.h"

namespace kordll {

class CWnd;
class TalkItem;

// The dialog's template, and its controls.
constexpr int kTalkDialogTemplate = 10006;
constexpr int kTalkDialogImageList = 10007;
constexpr int kTalkDialogCheckBox = 10008;

class CSystemTalkDlg : private HostDialogHandler {
 public:
  explicit CSystemTalkDlg(CWnd* parent = nullptr);
  CSystemTalkDlg(const CSystemTalkDlg&) = delete;
  CSystemTalkDlg& operator=(const CSystemTalkDlg&) = delete;
  ~CSystemTalkDlg() override = default;

  // Shows the dialog until a button closes it. IDOK once closed, 0 when the
  // host could not show it.
  int DoModal();
  // What the host is asked to show: title, text, captions, which buttons
  // are shown and enabled, the check box.
  HostDialog BuildDialog();

  // Shows a notice with text. Returns what DoModal answered.
  static int SystemTalk(CString text);
  // Asks text as a question with the buttons "Yes" and "No" and, unless
  // checkText is empty, a check box. askMode is 1, or *checkValue when
  // checkValue is given; after the dialog the box's state is written to
  // *checkValue. 1 for yes (result 0), else 0.
  static int SystemAsk(CString text, CString checkText, int* checkValue);

  // The three buttons; (x, y) is where the second one's lower left corner
  // is on the screen. Each answers whether the dialog closes.
  bool OnFirstButton();
  bool OnSecondButton(int x, int y);
  bool OnThirdButton();
  // A command of the application's menu range, chosen while shown.
  bool OnRegisteredGUICommands(unsigned int command);
  // Kept for the host; the text is drawn in the host's own font.
  void SetTextFont(const char16_t* face, int size, int weight, int italic, int underline);

  int checkValue = 0;
  int askMode = 0;
  int reserved = 0;
  int moreCommand = -1;
  int openCommand = -1;
  int result = -1;
  CString firstCaption = "Open";
  CString secondCaption = "More";
  CString thirdCaption = "Close Talk";
  CString text;
  CString checkText;
  CString commandText;
  intptr_t object = 0;
  TalkItem* talk = nullptr;

 private:
  bool OnDialogButton(int button, int checkValue, int x, int y) override;
  bool OnDialogCommand(int command, int checkValue) override;
  // Sends command with commandText and object. With a point, the point and
  // this dialog (in value) go with it.
  void Send(int command, const int* x = nullptr, const int* y = nullptr);
  // Removes the talk on view, if any (command 29752).
  void RemoveTalk();

  CWnd* parent_;
  CString fontFace_ = "Tahoma";
  int fontSize_ = 85;
};

}  // namespace kordll

#endif  // KORDLL_TALK_CSYSTEMTALKDLG_H_
