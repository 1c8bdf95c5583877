// Utility: the library's drawer of small static tools.
//
// Three of them carry real weight: the text file readers and writer (how the
// encoding of a file of unknown origin is decided, and how UTF-8 is read and
// written by hand), the reversible scrambling of stored text, and the
// ordering of records by date. The rest are one-liners: keyboard shortcuts
// kept in the profile, sounds, message pumping, white space, the system's
// version text.
//
// Failures are answers, never messages: a read that fails gives the empty
// text, a write that fails does nothing, and nothing here throws.
//
// Thread safety: every operation may run on any thread, except PeekAndPump,
// which belongs to the thread that runs the application's message loop. The
// charset table is read-only once built.

#ifndef KORDLL_TOOLKIT_UTILITY_H_
#define KORDLL_TOOLKIT_UTILITY_H_

#include "kordll/platform/CString.h"

namespace kordll {

class Focusable;
class CImageList;  // the window layer's image list; none exists in this library

// Pointer to a wide, NUL-terminated text, as the folder operations take it.
using LPCWSTR = const char16_t*;

// One entry of the charset table: a lower-case charset name and the code page
// it stands for. The table ends in an entry with an empty name and code page 0.
struct CharsetInfo {
  CString name;
  unsigned codePage = 0;
};

class Utility {
 public:
  Utility() = default;
  Utility(const Utility&) = default;
  Utility& operator=(const Utility&) = default;
  virtual ~Utility() = default;

  // ---- Sounds and messages -------------------------------------------------

  // Plays a sound file through the host without waiting for it
  // (SND_FILENAME | SND_ASYNC). A value holding "/" is a path of its own;
  // any other value names a file of the shared sounds folder,
  // "SoundNotification" below the program folder. An empty value plays
  // nothing.
  static void PlaySoundFile(CString path);

  // While a message waits in the calling thread's queue, dispatches one.
  // When the one dispatched was the request to quit, leaves a new quit
  // request with code 0 (so that the thread's own loop still ends) and
  // returns. A thread without a queue gets one and returns at once.
  static void PeekAndPump();

  // ---- Code pages and text files -------------------------------------------

  // The charset table: 407 lower-case charset names with their code pages,
  // sorted by code page, followed by the end entry (empty name, code page 0).
  // Built once, on first use; never changes afterwards.
  static const CharsetInfo* GetCharsetTable();

  // The code page of a charset name, compared after lower-casing the name
  // and otherwise exactly ("UTF-8" gives 65001, "utf8" 0). 0 for a name the
  // table does not hold, which callers read as "no code page known".
  static unsigned GetCodePage(CString name);

  // Writes `text` as UTF-8, encoding each 16-bit unit by itself: units below
  // 127 as one byte, below 2048 as two, all others (each half of a surrogate
  // pair included) as three. U+007F goes out in two bytes (0xC1 0xBF); this
  // is the file format's rule and must not change.
  // With `truncate` non-zero the file is made anew. Otherwise an existing
  // file is written at its end (a missing one is made); a file that was not
  // empty is an append, and an append never gets a byte order mark. With
  // `writeBOM` non-zero and no append, EF BB BF goes first. A file that
  // cannot be opened is left alone, silently.
  static void SaveIntoFile_wUTF8(CString path, CString text, int truncate, int writeBOM);

  // Reads a text file of unknown encoding. The file is read in blocks of
  // 10,000 bytes, each kept only up to its first NUL byte, so a UTF-16 file
  // is cut short right at its start. The first block decides the code page:
  //   - longer than 3 bytes and starting with EF BB BF: UTF-8 (65001);
  //   - otherwise, holding both "<?xml " and "encoding": the name behind the
  //     first "encoding", looked up with GetCodePage. The name starts after
  //     the first quotation mark, apostrophe or ASCII letter (which is not
  //     kept, so an unquoted utf-8 reads as "tf-8") and runs to the next
  //     quotation mark, apostrophe or "?";
  //   - otherwise, or for an unknown name, the ANSI code page (1252).
  // The whole content is then converted in that code page; a byte order mark
  // is not skipped and gives U+FEFF. A code page the converter does not know
  // gives "". A file that cannot be opened, or whose content exceeds 1 GB,
  // gives "". Linear in the size of the file.
  static CString ReadFileContent(CString path);

  // Reads a file in the same blocks and decodes it as UTF-8 by hand: a byte
  // below 0x80 is a character; a lead byte 110xxxxx takes the low 6 bits of
  // the next byte, 1110xxxx those of the next two, without checking them;
  // every other byte (continuation bytes, four-byte leads) is dropped, so a
  // four-byte sequence vanishes. A group cut off by the end of the file is
  // dropped. The byte order mark is not skipped. A file that cannot be
  // opened, or whose content exceeds 1 GB, gives "". Linear.
  static CString ReadFile_wUTF8(CString path);

  // Would fill `list` with the images of a 24-bit bitmap resource cut into
  // pieces `imageWidth` wide. This library holds no bitmap resources and
  // draws no images (the application's window layer does), so the bitmap
  // never loads and the answer is always 0, as on a machine without a
  // screen. `list` is not touched.
  static int GetTrueColorImageList(CImageList* list, unsigned bitmapId, int imageWidth);

  // ---- Scrambling of stored text -------------------------------------------

  // Always 0, whatever the text: it tells nothing.
  static int IsStringEncripted(CString text);

  // A reversible scrambling of a stored text (a password in the profile), no
  // protection against anyone who holds the library. The result is "::["
  // followed by one unit per unit of the text: the unit exclusive-or'ed with
  // the next character of a fixed key of 11 letters (the key restarts every
  // 11 units), plus 1, in 16 bits. Results may hold U+0000 and lone
  // surrogates.
  static CString EncriptString(CString text);
  // The reverse of EncriptString. A text that does not start with "::["
  // gives "" (a text stored in plain does not come back).
  static CString DecriptString(CString text);
  // Do nothing and answer 0.
  static int EncriptChar(int, int);
  static int DecriptChar(int, int);

  // ---- Records and folders -------------------------------------------------

  // Sorts list[low..high] in place by date: the publication date when
  // `byPublication` is non-zero, else the receive date; ascending when
  // `ascending` is non-zero, else descending. A date that is not valid counts
  // as earlier than every valid one and as equal to every other date that
  // is not valid; a null entry counts as such a date. The pivot is the
  // middle element's date; equal dates are swapped, so the sort is not
  // stable. A range outside the list, or a null list, is left alone.
  static void QuickSortFocusables_wDate(CArray<Focusable*, Focusable*>* list, int low, int high,
                                        int ascending, int byPublication);

  // Deletes the folder `path` with everything in it. Symbolic links are
  // deleted as links and never followed; a `path` that is itself a link is
  // refused. Stops at the first failure (an entry that cannot be deleted, a
  // subfolder that cannot be emptied or removed, or a listing that fails)
  // and answers 0 with the rest left in place; otherwise answers whether the
  // folder itself could be removed. Folders more than 256 levels deep are
  // not entered (answer 0). 0 for a folder that cannot be listed.
  static int DeleteDirectory(LPCWSTR path);

  // 1 for "." and "..", else 0 (also for null).
  static int IsDots(LPCWSTR name);

  // The system's name and version: "Linux" and the kernel's major and minor
  // release, in the shape "Linux 6.8" (where Windows answered
  // "Windows NT 5.1"). "" when the kernel's release cannot be read. Read
  // once and then kept in m_sOSVersion.
  static CString GetOSVersion();

  // ---- Keyboard shortcuts --------------------------------------------------
  //
  // A shortcut is one int: the virtual key plus 1000 for ALT, 2000 for CTRL,
  // 3000 for CTRL with ALT. A multiple of 1000, and any value not above 1000,
  // is no shortcut. Shortcuts are kept in the application's profile, in the
  // section of the current settings record followed by "\KeyboardShortcuts",
  // one entry per command: the command id in decimal, the shortcut in
  // decimal as a text.

  // Stores the shortcut of a command. Without an application object or
  // current settings nothing is stored.
  static void SetKeyboardShortcut(int commandId, int shortcut);
  // The stored shortcut of a command, read as _wtoi reads a text (so a
  // value that is no number gives 0). -1 when none is stored, when the
  // entry is not a text, and without an application object or settings.
  static int GetKeyboardShortcut_wCommandID(int commandId);
  // The modifier: 3 (CTRL+ALT) above 3000, 2 (CTRL) above 2000, 1 (ALT)
  // above 1000; -1 for a multiple of 1000 and for anything else.
  static int GetKeyboardShortcut_inMOD(int shortcut);
  // The virtual key: the shortcut less its modifier offset; 0 for a multiple
  // of 1000 and for values not above 1000.
  static unsigned GetVirtualKey(int shortcut);
  // "CTRL + ALT", "CTRL" or "ALT", then " + ", then the key when it is a
  // digit (48 to 57) or a letter (65 to 90); any other key adds nothing, so
  // a function key leaves the text ending in " + ". "" for no shortcut.
  static CString GetKeyboardShortcut_inString(int shortcut);

  // ---- Text ----------------------------------------------------------------

  // Line feeds, tabs and carriage returns become blanks, then every run of
  // blanks becomes one blank ("\r\n" gives one blank). The ends are not
  // trimmed.
  static CString ClearWhiteSpaces(CString text);

  // The cached answer of GetOSVersion; empty until it is first asked.
  // Guarded by a lock inside GetOSVersion.
  static CString m_sOSVersion;
};

}  // namespace kordll

#endif  // KORDLL_TOOLKIT_UTILITY_H_
