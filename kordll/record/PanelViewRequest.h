// PanelViewRequest: what a record puts into a panel-view message.
//
// The panel-view message (PANELVIEWMESSAGE) belongs to the control layer and
// carries a content filter by value, so the record core cannot build one.
// A record fills this request instead and hands it to the registry's entry
// points (RegistryEntryPoints::SendPanelMessage_wRequest and
// InterpretGUICommand_wRequest), whose owner copies it into a panel-view
// message: every field below goes to the message field of the same name;
// the others keep the message's defaults.
//
// A plain value of the caller, not owned by anybody else; the pointers in it
// are not owned.

#ifndef KORDLL_RECORD_PANELVIEWREQUEST_H_
#define KORDLL_RECORD_PANELVIEWREQUEST_H_

#include <cstdint>

#include "kordll/platform/CPoint.h"
#include "kordll/platform/CString.h"

namespace kordll {

class Focusable;
class IIPanel;

struct PanelViewRequest {
  // The command number (or, inside a panel message, the panel-view command).
  int message = 0;
  // The record concerned, or null.
  Focusable* focusable = nullptr;
  // Text of the message (a link to show).
  CString text;
  // Screen position for a property window.
  CPoint point;
  // The panel the request comes from, or null.
  IIPanel* panel = nullptr;
  // The pointer-sized object field (a flag for property windows).
  intptr_t object = 0;
};

}  // namespace kordll

#endif  // KORDLL_RECORD_PANELVIEWREQUEST_H_
