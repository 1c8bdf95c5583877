// RegistryEntryPoints: the questions the record core asks the global
// registry of controllers, databases and panels (GlobalResourceCtrl) and the
// controllers it gives out, and the answers they get while no registry
// stands.
//
// The record core lies under the registry and never includes it. It asks
// through the object installed here. The default object answers as "no
// registry": the registry is valid (1), the databases are not cleared (0),
// every lookup gives null, every send, post or command gives 0 (nothing was
// delivered or handled). With no controller the controller operations are
// never reached; their defaults give null, 0 or -1.
//
// Panel-view messages carry a content filter and belong to the control
// layer, so the record core hands their contents over as a PanelViewRequest
// and the owner builds the message (see PanelViewRequest.h).
//
// The registry takes over by deriving from this class and calling
// Install(this) when it is first created. From then on the registry's own
// static questions and the record core get the same answers: once a
// registry has existed in the process, it answers (0 for valid once it is
// gone or closing), even after it is destroyed.
//
// Thread safety and lifetime as for RelationsEntryPoints: the installed
// object answers from any thread and stays alive while installed.

#ifndef KORDLL_RECORD_REGISTRYENTRYPOINTS_H_
#define KORDLL_RECORD_REGISTRYENTRYPOINTS_H_

#include "kordll/platform/CString.h"
#include "kordll/record/PanelViewRequest.h"

namespace kordll {

class AZeusDB;
class Focusable;
class IIPanel;
class ResourceController;
struct PANELVIEWMESSAGE;

class RegistryEntryPoints {
 public:
  RegistryEntryPoints() = default;
  RegistryEntryPoints(const RegistryEntryPoints&) = delete;
  RegistryEntryPoints& operator=(const RegistryEntryPoints&) = delete;
  virtual ~RegistryEntryPoints();

  // The object that answers now; never null.
  static RegistryEntryPoints* Get();
  // Makes entry answer from now on; null puts back the default answers.
  // Returns the object installed before (null if it was the default). The
  // caller keeps ownership of entry.
  static RegistryEntryPoints* Install(RegistryEntryPoints* entry);

  // --- The registry's questions -----------------------------------------

  // 0 once the registry is gone or closing; records stop working then.
  virtual int IsGlobalResourceValid();
  // 1 after the databases were cleared at shut-down; a record then no
  // longer saves itself on release.
  virtual int AreDBsCleared();
  // The controller of an id, or of a database id; null if none. Not
  // reserved for the caller.
  virtual ResourceController* GetResourceController(int id);
  virtual ResourceController* GetPostCtrl(int dbID);
  // The database of an id, or null. Not owned by the caller.
  virtual AZeusDB* GetDBCtrl(int dbID);
  // A panel, or null.
  virtual IIPanel* GetPanel(int id);
  // Offers a command to the controllers; 1 if one handled it.
  virtual int InterpretGUICommand(PANELVIEWMESSAGE* message, int* result);
  // Tells the panels of controller about a change of record (kind as the
  // panel messages define). Send runs the panels' handlers on the calling
  // thread; post hands a copy to each panel's window thread.
  virtual int SendRC2PanelMessage(ResourceController* controller, int message, int kind,
                                  Focusable* record);
  virtual int PostRC2PanelMessage(ResourceController* controller, int message, int kind,
                                  Focusable* record);

  // --- Panel-view messages built from a record's request ----------------

  // Sends panel the panel message panelMessage with a panel-view message
  // made from request (third argument, second 0); the panel's answer.
  virtual long SendPanelMessage_wRequest(IIPanel* panel, unsigned int panelMessage,
                                         const PanelViewRequest& request);
  // InterpretGUICommand with a panel-view message made from request.
  virtual int InterpretGUICommand_wRequest(const PanelViewRequest& request, int* result);

  // --- Operations on a controller given by GetResourceController or
  // --- GetPostCtrl (never called with null) -------------------------------

  // A new record of the controller's own class for relation, or null. The
  // caller owns it.
  virtual Focusable* GenerateFocusable(ResourceController* controller, int relation);
  // The controller's record with that serial number, or null; not reserved.
  virtual Focusable* GetFocusable_wID(ResourceController* controller, int id);
  // The controller's record with that GUID, or null; not reserved.
  virtual Focusable* CheckFocusable(ResourceController* controller, CString guid, int flag);
  // Makes record known to the controller; 0 if a record with its GUID is
  // already known (the caller keeps record then).
  virtual int RegisterFocusable(ResourceController* controller, Focusable* record, int a, int b);
  // The controller's id, -1 while it has none yet.
  virtual int GetResourceControllerID(ResourceController* controller);

  // A new, empty trash record (relation and database unset) for a record
  // brought in from controller 11's database, or null when trash records do
  // not exist; the caller then uses a plain record. The caller owns it.
  virtual Focusable* CreateTrashItem();
};

}  // namespace kordll

#endif  // KORDLL_RECORD_REGISTRYENTRYPOINTS_H_
