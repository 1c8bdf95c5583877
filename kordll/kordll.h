// KorDLL: the foundation library of the Tidrel family of feed readers.
// Including this header gives the whole public surface. Headers left out
// here (the slot file, the file examiner, the pools and the private parts
// of records, links and filters) are private to the library and not installed.

#ifndef KORDLL_KORDLL_H_
#define KORDLL_KORDLL_H_

// The portability layer: text, dates, files, threads, profile, host.
#include "kordll/platform/CCriticalSection.h"
#include "kordll/platform/COleDateTime.h"
#include "kordll/platform/CPoint.h"
#include "kordll/platform/CRuntime.h"
#include "kordll/platform/CString.h"
#include "kordll/platform/CWinApp.h"
#include "kordll/platform/CWinThread.h"
#include "kordll/platform/CWnd.h"
#include "kordll/platform/Clock.h"
#include "kordll/platform/CodePage.h"
#include "kordll/platform/DesktopHost.h"
#include "kordll/platform/DesktopNotices.h"
#include "kordll/platform/Env.h"
#include "kordll/platform/FileFind.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/platform/HeadlessHost.h"
#include "kordll/platform/Host.h"
#include "kordll/platform/LibraryInfo.h"
#include "kordll/platform/Locations.h"
#include "kordll/platform/MessageQueue.h"
#include "kordll/platform/PluginLoader.h"
#include "kordll/platform/Registry.h"
#include "kordll/platform/TimeZone.h"
#include "kordll/platform/TimerTable.h"
#include "kordll/platform/WinError.h"
#include "kordll/platform/WinFile.h"

// The record core: field items, templates, records, links and the two file stores.
#include "kordll/record/AZeusDB.h"
#include "kordll/record/BoolItem.h"
#include "kordll/record/DBTaskItem.h"
#include "kordll/record/DateItem.h"
#include "kordll/record/DoubleItem.h"
#include "kordll/record/FieldInfo.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/FocusableLink.h"
#include "kordll/record/IntItem.h"
#include "kordll/record/Item.h"
#include "kordll/record/KdbFormat.h"
#include "kordll/record/LibraryLifetime.h"
#include "kordll/record/MarkedText.h"
#include "kordll/record/MemoryHeap.h"
#include "kordll/record/PanelViewRequest.h"
#include "kordll/record/RGDBTemplate.h"
#include "kordll/record/RegistryEntryPoints.h"
#include "kordll/record/RelationsEntryPoints.h"
#include "kordll/record/SettingsEntryPoints.h"
#include "kordll/record/StringDB.h"

// The catalogue of record types.
#include "kordll/schema/GlobalRelationsCtrl.h"
#include "kordll/schema/Relation.h"

// Content filters.
#include "kordll/filter/ContentFilter.h"

// Controllers and panels.
#include "kordll/control/GlobalResourceCtrl.h"
#include "kordll/control/IIPanel.h"
#include "kordll/control/INIFocusable.h"
#include "kordll/control/PANELVIEWMESSAGE.h"
#include "kordll/control/PanelWnd.h"
#include "kordll/control/ResourceController.h"
#include "kordll/control/TidrelManager.h"
#include "kordll/control/TrashItem.h"
#include "kordll/control/TreeItem.h"
#include "kordll/control/_struct_RESCTRLNOTIFMSG.h"

// Periodic work.
#include "kordll/periodic/IntervalRun.h"
#include "kordll/periodic/PeriodicUpdateManager.h"

// Errors and progress reports.
#include "kordll/talk/CSystemTalkDlg.h"
#include "kordll/talk/ErrorMsg.h"
#include "kordll/talk/NotificationItem.h"
#include "kordll/talk/ProgressData.h"
#include "kordll/talk/SocketStatus.h"
#include "kordll/talk/SystemTalkCtrl.h"
#include "kordll/talk/TalkItem.h"

// File transfer: requests for the network side, the download list.
#include "kordll/transfer/FileItem.h"
#include "kordll/transfer/FileManagerCtrl.h"
#include "kordll/transfer/FileRequest.h"

// Text, time and XML tools.
#include "kordll/toolkit/CFileFinder.h"
#include "kordll/toolkit/CPath.h"
#include "kordll/toolkit/CWinStartup.h"
#include "kordll/toolkit/CXMLFile.h"
#include "kordll/toolkit/IXMLDOMDocument.h"
#include "kordll/toolkit/IXMLDOMElement.h"
#include "kordll/toolkit/IXMLDOMNode.h"
#include "kordll/toolkit/IXMLDOMNodeList.h"
#include "kordll/toolkit/KorlanDateTime.h"
#include "kordll/toolkit/KorlanHTMLCtrl.h"
#include "kordll/toolkit/PrintTag.h"
#include "kordll/toolkit/PrintTemplate.h"
#include "kordll/toolkit/Utility.h"

// The users' settings.
#include "kordll/settings/Preferences.h"
#include "kordll/settings/SkinFile.h"
#include "kordll/settings/UserPreferences.h"

#endif  // KORDLL_KORDLL_H_
