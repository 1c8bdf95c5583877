// GlobalResourceCtrl: the process-wide registry of controllers, record
// databases and panels.
//
// It knows every controller by id, every open record database by database
// id, every panel by panel id, and the panels that listen to each
// controller. It gives out database ids, carries the notifications of the
// controllers to their panels, offers panel commands to the controllers,
// and runs the closing of all of it at log-off. It owns the relation
// catalogue and the TidrelManager. Nearly every operation is static and
// answers 0 or null while no registry stands; the getters also answer null
// once the registry is closed.
//
// Life of the registry: GetGlobalResourceCtrl makes it on first use
// (loaded); KorUserResourcesCtrl closes it at log-off (SetTidrelClosing(1),
// then the closed flag: IsGlobalResourceValid becomes 0 and lookups answer
// null), OnClear sweeps it (cleared), and the next login starts it again
// with InitializeGlobalResourceCtrl.
//
// Controller ids 0 to 49 are reserved slots (a controller registered there
// is of type 0, "reserved"); any other id is replaced by the next slot from
// 50 on. Id 18, the user platform, is kept apart from the slots. Panel ids 0
// to 14 are fixed roles set by the application; ids from 15 on are given
// out.
//
// Database ids: a record database keeps its id in its own header. For the
// databases of dynamic controllers (type 1, and controllers 11 and 14) the
// profile keeps which id belongs to which parent GUID (section
// "User-<login>\DBIDMap", entry "RC_<parent GUID>"), and the user's setting
// LastDBID (settings field 85) the next free id. New ids start at 100, so
// they never meet the reserved controller ids that serve as database ids of
// the reserved controllers, and stop for good after 100,000: a database that
// comes later stays without an id (-1), silently.
//
// The registry also answers the record core's questions about controllers,
// databases and panels (RegistryEntryPoints): from the moment the first
// registry is made, for the rest of the process. Before that the record core
// gets its own "no registry" answers, and so do the static questions below
// (valid 1, databases not cleared, lookups null). After a registry is gone
// the answers are those of "no registry stands": valid 0.
//
// Thread safety: any thread may call. Two locks: registryLock guards the
// controllers and the panel lists, dbLock the database maps; no operation
// holds both, and no panel or controller call made while a lock is held
// waits for another thread. Sending to panels works on a copy of the
// listening panels taken under the lock and runs each handler on the
// calling thread with no lock held, skipping a panel that has left
// meanwhile, so a handler may de-register itself. Posting hands a heap
// message to each panel's window thread.

#ifndef KORDLL_CONTROL_GLOBALRESOURCECTRL_H_
#define KORDLL_CONTROL_GLOBALRESOURCECTRL_H_

#include <atomic>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <vector>

#include "kordll/platform/CCriticalSection.h"
#include "kordll/platform/CString.h"

namespace kordll {

class AZeusDB;
class Focusable;
class GlobalRelationsCtrl;
class IIPanel;
class ProgressData;
class ResourceController;
class TidrelManager;
struct PANELVIEWMESSAGE;

// The settings field that keeps the next free database id.
constexpr int kLastDBIDField = 85;
// Database ids given out for new databases lie in this range; beyond the
// last there are none.
constexpr int kFirstNewDBID = 100;
constexpr int kLastNewDBID = 100000;
// Controller slots 0 to kReservedControllerSlots - 1 are reserved ids.
constexpr int kReservedControllerSlots = 50;
// The controller that the sweep at log-off spares: the application closes
// it first, itself.
constexpr int kFirstClosedControllerID = 3;

// The global "the registry is loaded" flag: set by
// InitializeGlobalResourceCtrl, cleared at the end of OnClear and by the
// destructor.
extern std::atomic<int> g_bGlobalResourceCtrlLoaded;

class GlobalResourceCtrl {
 public:
  // Makes the talk controller (id 15) each time the registry starts. The
  // controller registers itself, as every concrete controller does; the
  // registry keeps no pointer of its own. Until the talk layer installs its
  // factory the default makes nothing (null) and the registry runs without
  // a talk controller.
  using TalkControllerFactory = ResourceController* (*)();
  // Tell a progress report of the log-off: its caption, and a point
  // (done, total, flag). Until the progress reports install theirs, nothing
  // is told.
  using ProgressCaptionFn = void (*)(ProgressData* progress, const CString& caption);
  using ProgressPointFn = void (*)(ProgressData* progress, int done, int total, int flag);

  GlobalResourceCtrl(const GlobalResourceCtrl&) = delete;
  GlobalResourceCtrl& operator=(const GlobalResourceCtrl&) = delete;
  // Clears the loaded flag, deletes the TidrelManager and the catalogue, and
  // leaves the process without a registry. The controllers, databases and
  // panels still registered are not touched (OnClear ends them).
  virtual ~GlobalResourceCtrl();

  // --- The instance ----------------------------------------------------

  // The registry of the process, made (and started) on the first call.
  // Never null. Not owned by the caller.
  static GlobalResourceCtrl* GetGlobalResourceCtrl();
  // Deletes the registry of the process, if any (at the end of the
  // process, and between tests).
  static void DeleteGlobalResourceCtrl();
  // Starts the registry again after OnClear (at the next login): 50 empty
  // reserved slots, every flag cleared, panel ids from 15, a new talk
  // controller. Does nothing without a registry or while it is loaded.
  static void InitializeGlobalResourceCtrl();
  static void SetTalkControllerFactory(TalkControllerFactory factory);
  static void SetProgressReporters(ProgressCaptionFn caption, ProgressPointFn point);

  // The catalogue made with this registry. Not owned by the caller.
  GlobalRelationsCtrl* GetGlobalRelationsCtrl();
  TidrelManager* GetTidrelManager();

  // --- State -----------------------------------------------------------

  // 1 while the registry stands and is not closed.
  static int IsGlobalResourceValid();
  // Whether the application is closing: sends of kind 3 are dropped then.
  static int IsTidrelClosing();
  static void SetTidrelClosing(int closing);
  // Marks the registry closed (at log-off) or open again.
  static void SetGlobalResourceClosed(int closed);
  static void SetAllResourcesLoadedAtStartUp();
  static int AreAllResourcesLoadedAtStartUp();
  // 1 once ClearDBRegisteries ran (records no longer save on release); 1
  // also when no registry stands.
  static int AreDBsCleared();

  // --- Controllers ------------------------------------------------------

  // The controller of id (18: the user platform), or null; once closed,
  // null. A controller that holds no records and is not loaded is loaded
  // first (LateLoadResource, run under registryLock: it must not wait for
  // a thread that needs the registry). Not reserved for the caller.
  static ResourceController* GetResourceController(int id);
  // Stores the controller under its id (see the file comment): 1, or 0
  // without a registry, once closed, or for null.
  static int RegisterResourceCtrl(ResourceController* controller);
  // Tells the controller's panels that it goes away (message 1058, no lock
  // held), gives them up to 10 seconds of clock time to detach (the lock is
  // free between looks), and empties its slot if it still holds it.
  // Always 0.
  static int DeRegisterResourceCtrl(ResourceController* controller);
  // Offers the command to the controllers in slot order (the first 50 at
  // most), each reserved for its call; stops at the first that handles it.
  // Also once the registry is closed: the controllers stand until OnClear.
  // 1 when one did, else 0 (also for null message or without a registry).
  static int InterpretGUICommand(PANELVIEWMESSAGE* message, int* result);

  // --- Databases --------------------------------------------------------

  // The controller that uses, and the open database of, a database id; null
  // when unknown or closed. Not owned by the caller.
  static ResourceController* GetPostCtrl(int dbID);
  static AZeusDB* GetDBCtrl(int dbID);
  // Enters the database under its id, giving or finding the id first (see
  // the file comment). Without an application object nothing is entered.
  // The registry owns an entered database and deletes it when the
  // databases are cleared. 1 while the registry is valid, else 0 (also for
  // a null database).
  static int RegisterDBCtrl(AZeusDB* db, ResourceController* controller);
  // The database's id no longer names its controller (the database itself
  // stays entered). 1, or 0 without a registry or for null.
  static int DeRegisterDBCtrl(AZeusDB* db);
  // Gives db the next free id and maps it to the controller's parent GUID.
  // 1 when an id was given; 0 past the last id, or when the next free id
  // could not be kept (then no id is given, so none is ever given twice).
  int RegisterNewDB(AZeusDB* db, ResourceController* controller, int unused);
  // Forgets the profile's mapping of the database of a controller that is
  // not reserved (its parent GUID gives up its id; the id is never given
  // again). 1 when the mapping is gone, else 0.
  static int DeleteDBCache(AZeusDB* db);

  // --- Panels -----------------------------------------------------------

  // The panel of id, or null (also once closed).
  static IIPanel* GetPanel(int panelID);
  // Stores the panel (a panel with id -1 gets the next id from 15) and,
  // unless controllerID is -1, makes it listen to that controller (the
  // panel is told AddRegisteredResource). With sendLoaded set and the
  // controller loaded, the panel hears message 1025 at once. 0 when the
  // panel already listens to the controller or is null; 1 otherwise, and
  // at once without a registry or once closed.
  static int RegisterPanel(IIPanel* panel, int controllerID, int sendLoaded);
  // Forgets the panel, as a listener of controllerID, or with -1 of every
  // controller (and as a panel). Always 0.
  static int DeRegisterPanel(IIPanel* panel, int controllerID);

  // Tells every panel listening to controller: the panel message `message`
  // with a message carrying the controller's id, kind and the record (or
  // the records). Send runs each handler on the calling thread before it
  // returns; it drops kind 3 while the application closes, and stops if the
  // registry closes. Answers 1 when the controller had listeners, else 0.
  static int SendRC2PanelMessage(ResourceController* controller, int message, int kind,
                                 Focusable* record);
  static int SendRC2PanelMessage_Multi(ResourceController* controller, int message, int kind,
                                       CArray<Focusable*, Focusable*>* records);
  // Post hands each panel a heap message for its window thread, kind 3
  // included while closing; the message reserves the records it carries and
  // the receiver ends it (PANELVIEWMESSAGE::DeleteHeapMessage). A message
  // that cannot be delivered is ended here. The _Multi form carries the
  // records by value (focusables points at the message's own list). Answers
  // 1 when the controller still has listeners afterwards, else 0.
  static int PostRC2PanelMessage(ResourceController* controller, int message, int kind,
                                 Focusable* record);
  static int PostRC2PanelMessage_Multi(ResourceController* controller, int message, int kind,
                                       CArray<Focusable*, Focusable*>* records);

  // --- Closing ----------------------------------------------------------

  // Warns every controller (StartClosingResourceCtrl).
  void StartClosingResources();
  // Closes every reserved controller but 3 and empties its slot, deletes
  // the databases, forgets every panel, and clears the loaded flag. The
  // progress report, if any, hears the caption "Closing Resources ..." and
  // a point per slot, of a total of the slot count less 31. Returns 0.
  int OnClear(ProgressData* progress);
  // Deletes every entered database and empties both database maps; from
  // now on AreDBsCleared answers 1.
  void ClearDBRegisteries();
  // 1 when every slot is empty. The progress report, if any, hears the
  // count of empty slots and the slot count. 0 without a registry.
  static int IsAllResourcesClosed(ProgressData* progress);

  // --- Paths and settings -----------------------------------------------

  // The program's folder; "" without a registry.
  static CString GetGlobalKorPath();
  static void SetGlobalKorPath(CString path);
  // The user's documents folder from the shell's folder settings, each
  // "%NAME%" replaced by the environment variable's value ("" when the
  // settings are not there).
  static CString GetMyDocumentsFolder();
  // Reading and writing the browser choice are deliberately not symmetric:
  // UseGecko reads the fixed key "Software\Marsek\Marsek" (1 only for the
  // text "1"); SetUseGecko writes "1" or "0" to the application's own
  // profile. SetUseGecko answers 1 when written, 0 without an application or
  // when the profile refused.
  static int UseGecko();
  static int SetUseGecko(int use);

 private:
  GlobalResourceCtrl();

  // The instance, or null.
  static GlobalResourceCtrl* Instance();
  // Instance() when it is valid (not closed), else null.
  static GlobalResourceCtrl* ValidInstance();

  void Initialize();
  // The panels listening to id, copied under registryLock.
  std::vector<IIPanel*> ListenersOf(int id);
  // Whether panel still listens to id. REQUIRES: registryLock held.
  bool IsListening(int id, IIPanel* panel);
  // Removes panel from the list of id; true if it was there.
  // REQUIRES: registryLock held.
  bool RemoveListener(int id, IIPanel* panel);
  // Wakes the waits for panels to detach.
  void NotifyDetached();
  int Send(ResourceController* controller, int message, int kind, Focusable* record,
           CArray<Focusable*, Focusable*>* records);
  int Post(ResourceController* controller, int message, int kind, Focusable* record,
           CArray<Focusable*, Focusable*>* records);
  // The controller in slot id (or userCtrl for 18), or null.
  // REQUIRES: registryLock held.
  ResourceController* SlotController(int id);
  // "User-<login>\DBIDMap", or "" without a current login.
  static CString DBIDMapSection();

  std::unique_ptr<GlobalRelationsCtrl> relations_;
  std::unique_ptr<TidrelManager> tidrel_;

  CCriticalSection registryLock_;
  // State below is protected by registryLock_.
  std::vector<ResourceController*> controllers_;
  std::map<int, std::vector<IIPanel*>> panelsByController_;
  std::map<int, IIPanel*> panels_;
  int nextPanelID_ = 15;
  ResourceController* userCtrl_ = nullptr;
  CString globalPath_;

  CCriticalSection dbLock_;
  // State below is protected by dbLock_.
  std::map<int, ResourceController*> postCtrls_;
  std::map<int, AZeusDB*> dbCtrls_;
  // Every database ever entered since the last clear, the registry's to
  // delete.
  std::set<AZeusDB*> ownedDBs_;

  std::atomic<int> closed_{0};
  std::atomic<int> closing_{0};
  std::atomic<int> allLoadedAtStartUp_{0};
  std::atomic<int> dbsCleared_{0};

  // Woken when a panel detaches; the generation counts detachments.
  std::mutex detachMutex_;
  std::condition_variable detached_;
  int detachGeneration_ = 0;  // guarded by detachMutex_
};

}  // namespace kordll

#endif  // KORDLL_CONTROL_GLOBALRESOURCECTRL_H_
