// CWnd: a message target that stands for a window.
//
// A target belongs to the thread that created it (Create), and every message
// posted to it runs on that thread, in the order posted, when that thread
// pumps its queue (a CWinThread's loop, PumpWaitingMessages, PeekMessage...).
// Once destroyed it is no longer a window: IsWindow answers 0, and posting or
// sending to it answers 0, leaving the message with the sender. A target is
// also no longer a window once its thread has ended.
//
// Targets are known by handle (GetSafeHwnd) as well as by pointer; the free
// functions taking an HWND are safe to call after the object is gone.
//
// Sending (SendMessage) runs the handler synchronously. From the owning
// thread it calls WindowProc directly. From another thread the message is
// queued ahead of posted messages and the sender waits, without limit, until
// the owning thread next looks at its queue and has run it; while waiting the
// sender runs messages sent to its own thread, so two threads that send to
// each other do not deadlock. Posted messages of the sender wait meanwhile.
// A target whose thread never pumps makes a cross-thread sender wait for
// ever, as the design's windows did.
//
// REQUIRES: a target is destroyed and deleted on its own thread (or after
// that thread has ended), never while another thread might be dispatching to
// it.

#ifndef KORDLL_PLATFORM_CWND_H_
#define KORDLL_PLATFORM_CWND_H_

#include <cstdint>
#include <memory>
#include <vector>

#include "kordll/platform/MessageQueue.h"

namespace kordll {

class CWnd {
 public:
  CWnd();
  // Destroys the target if it is still a window. Messages still queued for it
  // are then dropped without OnDiscardedMessage (a subclass that frees
  // payloads calls DestroyWindow itself before it is deleted).
  virtual ~CWnd();
  CWnd(const CWnd&) = delete;
  CWnd& operator=(const CWnd&) = delete;

  // Makes this a window of the calling thread (which gets a queue if it had
  // none). 1 on success, 0 if it is already a window or was destroyed
  // before (a target is created once).
  int Create();
  // Ends the window: IsWindow becomes 0 and the messages still queued for it
  // are taken out and handed, in order, to OnDiscardedMessage. 1 if it was a
  // window, else 0.
  int DestroyWindow();
  // 1 while created, not destroyed, and its thread has not ended.
  int IsWindow() const;
  // The handle, 0 before Create; it stays the same after destruction.
  HWND GetSafeHwnd() const { return hwnd_; }
  // The id of the owning thread's queue, 0 before Create.
  unsigned GetOwnerThreadId() const;

  // Appends a message for this target to its thread's queue. Any thread.
  // 1 when queued, 0 when it is not a window (the message and any payload
  // stay with the caller).
  int PostMessage(unsigned message, std::intptr_t wParam, std::intptr_t lParam);
  // Runs WindowProc synchronously (see the file comment). Answers its
  // result, or 0 when it is not a window or its thread ended before running
  // it.
  std::intptr_t SendMessage(unsigned message, std::intptr_t wParam, std::intptr_t lParam);

  // The handler, on the owning thread. Default: 0.
  virtual std::intptr_t WindowProc(unsigned message, std::intptr_t wParam, std::intptr_t lParam);
  // Called by DestroyWindow for each posted message that will now never run.
  // Default: nothing.
  virtual void OnDiscardedMessage(const MSG& msg);

 private:
  HWND hwnd_ = 0;
  std::shared_ptr<MessageQueue> queue_;
  bool destroyed_ = false;
};

// 1 when hwnd names a live window.
int IsWindow(HWND hwnd);
// The free forms of the members, by handle: 0 for a handle that is not a
// window.
int PostMessage(HWND hwnd, unsigned message, std::intptr_t wParam, std::intptr_t lParam);
std::intptr_t SendMessage(HWND hwnd, unsigned message, std::intptr_t wParam, std::intptr_t lParam);
// The target of a live handle, or null. Only for the owning thread: another
// thread must not use the pointer (the target may be deleted meanwhile).
CWnd* FromHandle(HWND hwnd);

}  // namespace kordll

#endif  // KORDLL_PLATFORM_CWND_H_
