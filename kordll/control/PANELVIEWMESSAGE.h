// PANELVIEWMESSAGE: what travels from a controller to its panels, and from
// a panel back to the controllers as a command.
//
// To a panel, a message goes as the third argument of
// IIPanel::SendPanelMessage or PostPanelMessage (the second is 0) with the
// panel message number (IIPanel.h); message then holds the kind. As a
// command, message holds the command number and the message is offered to
// the registry of controllers (InterpretGUICommand), which hands it to each
// controller in turn until one handles it.
//
// A message on the stack belongs to its sender. A posted message is made
// on the heap with heapAllocated 1, and its sender reserves the records it
// carries (ReserveFocusables); once the post succeeded the receiver owns
// it and ends it with DeleteHeapMessage, which releases those records and
// deletes it. A post that failed leaves the message with its sender, who
// ends it the same way.
//
// A plain value: copying is for keeping a message (a talk keeps the message
// that raised it). It copies every field, the filter only if it is active,
// and the record lists entry by entry; it reserves nothing. The pointers
// in it are not owned.
//
// Thread safety: none; a message belongs to one thread at a time.

#ifndef KORDLL_CONTROL_PANELVIEWMESSAGE_H_
#define KORDLL_CONTROL_PANELVIEWMESSAGE_H_

#include <cstdint>

#include "kordll/filter/ContentFilter.h"
#include "kordll/platform/COleDateTime.h"
#include "kordll/platform/CPoint.h"
#include "kordll/platform/CString.h"
#include "kordll/record/PanelViewRequest.h"

namespace kordll {

class Focusable;

// Commands in the message field of a message offered to the controllers.
// They are exchanged with the applications: these numbers must not change.
constexpr int kCommandRedrawTalk = 29750;        // the talk whose record is in object
constexpr int kCommandRemoveTalk = 29751;        // the talk whose record is in object
constexpr int kCommandRemoveTalkRecord = 29752;  // the talk in focusable
constexpr int kCommandAddActivity = 29780;
constexpr int kCommandRemoveActivity = 29781;

struct PANELVIEWMESSAGE {
  // Every field at its default (below).
  PANELVIEWMESSAGE();
  // A command built from a record's request: message, focusable, text,
  // point and object as the request has them. The panel the request comes
  // from travels in value (as an IIPanel pointer), its id in panelID.
  explicit PANELVIEWMESSAGE(const PanelViewRequest& request);
  // Copies every field; the filter only if the other's is active (else it
  // stays the default filter).
  PANELVIEWMESSAGE(const PANELVIEWMESSAGE& other);
  // Copies every field; the filter only if the other's is active (else
  // this message keeps its own).
  PANELVIEWMESSAGE& operator=(const PANELVIEWMESSAGE& other);
  ~PANELVIEWMESSAGE();

  // Reserves focusable and every record of focusableList once, as a sender
  // does before it posts the message. The records of focusables belong to
  // the sender's own array and are not touched.
  void ReserveFocusables();
  // Releases what ReserveFocusables reserved (a record may be destroyed by
  // this) and forgets those records: focusable becomes null and
  // focusableList empty, so that nothing is released twice.
  void ReleaseFocusables();
  // Ends a posted message: when it is heap-made (heapAllocated non-zero),
  // releases the records it carries and deletes it, answering 1. A null
  // message or one on the sender's stack is left alone and answers 0.
  static int DeleteHeapMessage(PANELVIEWMESSAGE* message);

  // The controller that sends the message; in a command, the target.
  int rcID = -1;
  // Second code. In a talk: the command to send back when the user
  // acknowledges.
  int command = -1;
  // In a notification the kind; in a command the command number.
  int message = 0;
  int param = 0;
  // The record concerned.
  Focusable* focusable = nullptr;
  // The records of a send to several records: the sender's array.
  CArray<Focusable*, Focusable*>* focusables = nullptr;
  // Records carried by value.
  CArray<Focusable*, Focusable*> focusableList;
  // Pointer-sized: a window, or the panel a command comes from, as each
  // command says. Starts 0.
  intptr_t value = 0;
  int flags = 0;
  int state = 0;
  // 1 in a posted message: the receiver deletes it (DeleteHeapMessage).
  int heapAllocated = 0;
  int result = 0;
  // A filter going with the command.
  ContentFilter filter;
  int panelID = 0;
  // The message text of a talk.
  CString text;
  // A progress report, a talk, or a record key, as the message says.
  intptr_t object = 0;
  COleDateTime fromDate;
  COleDateTime toDate;
  // Screen position for a property window.
  CPoint point;
  int extent[2] = {0, 0};
  int enabled = 1;
  int reserved = 0;

 private:
  // Every field but the filter.
  void CopyFieldsFrom(const PANELVIEWMESSAGE& other);
};

}  // namespace kordll

#endif  // KORDLL_CONTROL_PANELVIEWMESSAGE_H_
