// Host: everything that used to be a window.
//
// The library keeps the logic of its dialogs, menus and progress reports
// (what they contain, what each button sends, what the result means); the
// host only shows them and answers. An application installs its own host
// (Host::Install) before it starts the user platform; until then, and after
// Install(nullptr), the library talks to a HeadlessHost, which answers as a
// user who closes everything would.
//
// The numbers below (message box styles and answers, menu flags, sound flags,
// the values of ShellExecute) are those of the Win32 API, so that logic
// written against them reads as designed. They are never written to disk.
//
// Threads: the library may call the host from any thread (a message box from
// a worker that failed to load an XML file, a progress repaint from a
// download thread). Every implementation must accept that; the ones shipped
// here do.

#ifndef KORDLL_PLATFORM_HOST_H_
#define KORDLL_PLATFORM_HOST_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "kordll/platform/CString.h"

namespace kordll {

// Message box styles (the low four bits choose the buttons, the next four
// the icon) and answers.
constexpr unsigned MB_OK = 0x0;
constexpr unsigned MB_OKCANCEL = 0x1;
constexpr unsigned MB_ABORTRETRYIGNORE = 0x2;
constexpr unsigned MB_YESNOCANCEL = 0x3;
constexpr unsigned MB_YESNO = 0x4;
constexpr unsigned MB_RETRYCANCEL = 0x5;
constexpr unsigned MB_ICONHAND = 0x10;
constexpr unsigned MB_ICONQUESTION = 0x20;
constexpr unsigned MB_ICONEXCLAMATION = 0x30;
constexpr unsigned MB_ICONASTERISK = 0x40;
constexpr int IDOK = 1;
constexpr int IDCANCEL = 2;
constexpr int IDABORT = 3;
constexpr int IDRETRY = 4;
constexpr int IDIGNORE = 5;
constexpr int IDYES = 6;
constexpr int IDNO = 7;

// Popup menu alignment: the point is the menu's right edge.
constexpr unsigned TPM_RIGHTALIGN = 0x8;

// Save dialog flags: hide the read-only box, ask before replacing a file.
constexpr unsigned OFN_OVERWRITEPROMPT = 0x2;
constexpr unsigned OFN_HIDEREADONLY = 0x4;

// PlaySound flags: return at once; the name is a file path.
constexpr unsigned SND_ASYNC = 0x1;
constexpr unsigned SND_FILENAME = 0x20000;

// ShellExecute answers: above 32 is success; these are the failures.
constexpr intptr_t SE_ERR_FNF = 2;           // file not found
constexpr intptr_t SE_ERR_PNF = 3;           // path not found
constexpr intptr_t SE_ERR_ACCESSDENIED = 5;  // refused
constexpr intptr_t SE_ERR_BAD_FORMAT = 11;   // unknown format
constexpr intptr_t SE_ERR_NOASSOC = 31;      // nothing can open it
constexpr intptr_t SE_ERR_ASSOCINCOMPLETE = 27;
constexpr int SW_SHOW = 5;

// One entry of a popup menu. An entry with a non-empty submenu is a popup of
// its own; a separator has no text and no command.
struct HostMenuItem {
  int command = 0;
  CString text;  // "&&" stands for one "&", as in menu captions
  bool separator = false;
  bool enabled = true;
  bool checked = false;
  std::vector<HostMenuItem> submenu;

  static HostMenuItem Command(int command, const CString& text) {
    HostMenuItem item;
    item.command = command;
    item.text = text;
    return item;
  }
  static HostMenuItem Separator() {
    HostMenuItem item;
    item.separator = true;
    return item;
  }
};

// A modal dialog with a text, up to three buttons and an optional check box.
// Buttons are numbered 1 to 3 from the left.
struct HostDialog {
  int templateId = 0;  // which dialog of the library this is (10006: talks)
  CString title;
  CString text;
  CString captions[3];
  bool visible[3] = {true, true, true};
  bool enabled[3] = {true, true, true};
  CString checkText;  // empty: no check box is shown
  int checkValue = 0;
};

// What a dialog asks of the library while it is shown. Called on the thread
// that called Host::DoModal.
class HostDialogHandler {
 public:
  virtual ~HostDialogHandler() = default;
  // Button 1, 2 or 3 was pressed. checkValue is the check box as the user
  // left it; (x, y) the screen position of the button's lower-left corner
  // (for a menu the button may open). Returns true to close the dialog.
  virtual bool OnDialogButton(int button, int checkValue, int x, int y) = 0;
  // A command of the application's own menu range was chosen while the dialog
  // was shown. Returns true to close the dialog.
  virtual bool OnDialogCommand(int command, int checkValue) = 0;
};

// The parts of the progress window that a repaint may concern.
enum class ProgressPart { kCaption, kBar, kButton1, kButton2, kButton3, kAll };

// What the progress window shows, and where its clicks go. Implemented by the
// progress report; every call may come from the host's own thread.
class HostProgressClient {
 public:
  virtual ~HostProgressClient() = default;
  virtual CString GetProgressCaption() = 0;
  virtual int GetProgressPercentage() = 0;
  virtual CString GetProgressButtonCaption(int button) = 0;  // 1 to 3
  virtual bool IsProgressButtonEnabled(int button) = 0;
  // A click on button 1 to 3, enabled or not: the client decides.
  virtual void OnProgressButton(int button) = 0;
};

// A progress window made by the host. Destroying the object destroys the
// window. Any thread may call Invalidate; Show and Hide come from the thread
// that created it.
class HostProgressWindow {
 public:
  virtual ~HostProgressWindow() = default;
  virtual void Show() = 0;  // centred on the screen
  virtual void Hide() = 0;
  virtual bool IsVisible() const = 0;
  // Asks for a repaint of one part; the window reads the client again.
  virtual void Invalidate(ProgressPart part) = 0;
};

// A notice on the desktop that does not wait for the user: a title, a text
// and actions, each standing for a button of a dialog (numbered as in
// HostDialog). Choosing an action calls onAction with its button, on any
// thread and possibly long after ShowNotice returned; onAction must stay
// safe to call for as long as the host may call it.
struct HostNotice {
  struct Action {
    int button = 3;
    CString caption;
  };
  CString title;
  CString text;
  std::vector<Action> actions;
  std::function<void(int button)> onAction;
};

// The save-file dialog.
struct HostFileDialog {
  CString title;
  CString fileName;          // proposed name
  CString defaultExtension;  // empty: none
  CString filter;            // "*.*" and the like
  unsigned flags = 0;        // OFN_ values
};

class Host {
 public:
  Host() = default;
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;
  virtual ~Host() = default;

  // Shows the dialog modally and reports its buttons to handler until the
  // handler answers true. Returns IDOK once the dialog is closed, or 0 if it
  // could not be shown (the handler then heard nothing). REQUIRES: handler
  // is not null and outlives the call.
  virtual int DoModal(const HostDialog& dialog, HostDialogHandler* handler) = 0;

  // Shows a popup menu at the screen point (x, y) for the window that the
  // application's panel named as owner (0 for none), and returns the command
  // chosen, or 0 when nothing was chosen.
  virtual int TrackPopupMenu(const std::vector<HostMenuItem>& menu, unsigned flags, int x, int y,
                             intptr_t owner) = 0;

  // Makes a progress window that shows client. The caller owns the result;
  // null when no window can be made. REQUIRES: client outlives the window.
  virtual std::unique_ptr<HostProgressWindow> CreateProgressWindow(HostProgressClient* client) = 0;

  // The save-file dialog: IDOK with the chosen path in *path, or IDCANCEL
  // (*path is then left alone).
  virtual int GetSaveFileName(const HostFileDialog& dialog, CString* path) = 0;

  // A message box with text and caption; type is MB_ values. Returns the
  // button chosen (IDOK, IDYES ...).
  virtual int MessageBox(const CString& text, const CString& caption, unsigned type) = 0;

  // Opens a document or an address as the desktop would. Returns a value
  // above 32 on success, or one of the SE_ERR_ values (0: nothing done).
  virtual intptr_t ShellExecute(const CString& operation, const CString& file,
                                const CString& parameters, const CString& directory,
                                int showCommand) = 0;

  // Plays a sound file (flags: SND_ values). Returns 1 if it is played (or,
  // with SND_ASYNC, started), 0 otherwise.
  virtual int PlaySound(const CString& path, unsigned flags) = 0;

  // Hides the application's main window, as the first step of logging off.
  virtual void HideMainWindow() = 0;

  // Shows notice on the desktop, if the host can. Returns 1 when shown, 0
  // otherwise. This default shows nothing.
  virtual int ShowNotice(const HostNotice& notice);

  // Makes host the one the library talks to, from now on and on every thread.
  // host is not owned and must stay alive until another is installed;
  // nullptr puts the headless default back. Returns the host it replaces
  // (never null).
  static Host* Install(Host* host);

  // The installed host, or the headless default; never null.
  static Host* Current();
};

}  // namespace kordll

#endif  // KORDLL_PLATFORM_HOST_H_
