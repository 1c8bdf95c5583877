// DesktopHost: a host for applications on a Linux desktop that have no
// windows of their own for what the library shows, but want documents,
// addresses and sounds to work.
//
// Everything but opening and playing behaves as the headless host does
// (applications derive from this class to add their own dialogs and menus).
//
// ShellExecute opens, through the desktop's opener ("xdg-open"), only:
//   - an http:// or https:// address (no control characters), or
//   - the download folder (Locations::GetDownloadFolder) or a file or folder
//     inside it; a relative path is taken inside that folder, and the
//     Windows path "C:\Tidrel Downloads\..." names it too.
// The opener is started directly, without a shell, with the address or the
// absolute path as its one argument; the call does not wait for it. Answers:
// 42 when started, SE_ERR_ACCESSDENIED for anything the rule refuses,
// SE_ERR_FNF for a missing file of the download folder, SE_ERR_NOASSOC for an
// operation other than "open" or "explore" (or none) or when the opener
// cannot be started.
//
// PlaySound plays a regular file with the first sound player found on the
// PATH ("paplay", "pw-play", "aplay"), again without a shell: with SND_ASYNC
// it returns once the player is started, otherwise when it has finished.
//
// ShowNotice hands a talk's notice to the desktop's notification service
// (DesktopNotices): without a session bus or a service nothing is shown and
// the answer is 0.
//
// Thread-safe, and no call throws. Players and openers that are started
// are waited for by a detached thread, so that no finished child lingers
// (when no thread can be made, the call waits for the child itself).

#ifndef KORDLL_PLATFORM_DESKTOPHOST_H_
#define KORDLL_PLATFORM_DESKTOPHOST_H_

#include <vector>

#include "kordll/platform/DesktopNotices.h"
#include "kordll/platform/HeadlessHost.h"

namespace kordll {

class DesktopHost : public HeadlessHost {
 public:
  // opener: the program that opens documents and addresses; players: sound
  // players, the first found on the PATH is used. Names without "/" are
  // looked up on the PATH.
  explicit DesktopHost(const CString& opener = "xdg-open",
                       std::vector<CString> players = {"paplay", "pw-play", "aplay"});
  ~DesktopHost() override = default;

  intptr_t ShellExecute(const CString& operation, const CString& file, const CString& parameters,
                        const CString& directory, int showCommand) override;
  int PlaySound(const CString& path, unsigned flags) override;
  int ShowNotice(const HostNotice& notice) override;

  // The argument the opener would get for `file`, or "" when the rule above
  // refuses it; *answer gets the ShellExecute answer for a refusal.
  static CString OpenableTarget(const CString& file, intptr_t* answer);

  // The full path of a program (a name with "/" as it is, if executable; a
  // bare name looked up on the PATH), or "" when there is none.
  static CString FindProgram(const CString& name);

 private:
  // The two calls above without their guard against exceptions.
  intptr_t Open(const CString& operation, const CString& file);
  int Play(const CString& path, unsigned flags);

  const CString opener_;
  const std::vector<CString> players_;
  DesktopNotices notices_;
};

}  // namespace kordll

#endif  // KORDLL_PLATFORM_DESKTOPHOST_H_
