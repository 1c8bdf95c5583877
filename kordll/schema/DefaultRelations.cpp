// The default relation table: the record schema of the whole system.
//
// These tables are a record format. A field's id, type and size decide
// where its value lies in a slot of a record file and how it is read back:
// changing any of them changes what existing files mean. Keep them as they
// are; add new relations or new field ids instead.
//
// Each relation lists its fields in the order they are added. Int and bool
// defaults are written as the numbers the loader passes on; double defaults
// as their six-decimal text. Bool, date and double fields always get the
// sizes 1, 30 and 10 from Relation; their size column is kept for reading.

#include <span>
#include <vector>

#include "kordll/platform/CRuntime.h"
#include "kordll/record/Item.h"
#include "kordll/schema/GlobalRelationsCtrl.h"
#include "kordll/schema/Relation.h"

namespace kordll {

namespace {

constexpr int kInt = Item::kTypeInt;
constexpr int kDouble = Item::kTypeDouble;
constexpr int kDate = Item::kTypeDate;
constexpr int kBool = Item::kTypeBool;
constexpr int kString = Item::kTypeString;

struct FieldRow {
  int id;
  int type;
  int size;
  int indexable;
  int cdata;
  const char* defaultValue;
  const char* decoration;  // the tag or settings key; "" for none
};

struct EditRow {
  int id;
  const char* label;
  int kind;
};

struct RelationRow {
  int id;
  const char* name;   // catalogue name; "" for none
  const char* title;  // display title; "" for none
  std::span<const FieldRow> fields;
  std::span<const EditRow> edits;
};

// clang-format off
// Relation 1 (userpreferences).
constexpr FieldRow kFields1[] = {
    {0, kString, 20, 0, 0, "", ""},
    {4, kString, 10, 0, 0, "", ""},
    {5, kString, 10, 0, 0, "", ""},
    {6, kInt, 7, 0, 0, "0", ""},
    {7, kInt, 7, 0, 0, "0", ""},
    {8, kInt, 7, 0, 0, "0", ""},
    {9, kInt, 7, 0, 0, "0", ""},
    {10, kInt, 7, 0, 0, "0", ""},
    {11, kInt, 7, 0, 0, "0", ""},
    {12, kInt, 7, 0, 0, "0", ""},
    {13, kInt, 7, 0, 0, "0", ""},
    {14, kInt, 5, 0, 0, "0", ""},
    {15, kInt, 5, 0, 0, "0", ""},
    {16, kInt, 5, 0, 0, "0", ""},
    {17, kInt, 5, 0, 0, "0", ""},
    {18, kInt, 5, 0, 0, "0", ""},
    {19, kInt, 7, 0, 0, "0", ""},
    {20, kDate, 30, 0, 0, "", ""},
    {21, kString, 50, 0, 0, "1@DelRey", ""},
    {22, kInt, 7, 0, 0, "0", ""},
    {23, kInt, 7, 0, 0, "0", ""},
    {24, kString, 200, 0, 0, "Notify.wav", ""},
    {25, kInt, 5, 0, 0, "0", ""},
    {26, kInt, 7, 0, 0, "0", ""},
    {27, kInt, 7, 0, 0, "0", ""},
};

// Relation 30 (treeitem30).
constexpr FieldRow kFields30[] = {
    {0, kString, 10, 0, 0, "", ""},
    {4, kString, 50, 0, 0, "", ""},
    {5, kString, 200, 0, 0, "", ""},
};

// Relation 29 (activity).
constexpr FieldRow kFields29[] = {
    {0, kString, 10, 0, 0, "", ""},
    {1, kInt, 7, 0, 0, "0", ""},
    {2, kDate, 30, 0, 0, "", ""},
    {3, kDate, 30, 0, 0, "", ""},
    {4, kString, 100, 0, 0, "", ""},
    {5, kString, 100, 0, 0, "", ""},
    {6, kInt, 7, 0, 0, "0", ""},
    {7, kInt, 7, 0, 0, "0", ""},
    {8, kInt, 7, 0, 0, "0", ""},
    {9, kString, 50, 0, 0, "", ""},
    {10, kInt, 7, 0, 0, "0", ""},
    {11, kString, 100, 0, 0, "", ""},
    {12, kString, 10, 0, 0, "", ""},
    {13, kDouble, 10, 0, 0, "0.000000", ""},
    {14, kInt, 7, 0, 0, "0", ""},
    {15, kInt, 7, 0, 0, "0", ""},
};

// Relation 31 (preferences).
constexpr FieldRow kFields31[] = {
    {4, kString, 100, 0, 0, "", "Username"},
    {85, kInt, 10, 0, 0, "0", "LastDBID"},
    {500, kInt, 10, 0, 0, "5", "SimDownloadCount"},
    {501, kBool, 1, 0, 0, "0", "HistoryPanelToggled"},
    {502, kBool, 1, 0, 0, "0", "SuggestionPanelToggled"},
    {503, kBool, 1, 0, 0, "0", "SearchSpacePanelToggled"},
    {504, kBool, 1, 0, 0, "0", "FindingsPanelToggled"},
    {505, kBool, 1, 0, 0, "0", "MinimizeIntoSystemTray"},
    {506, kBool, 1, 0, 0, "0", "MinimizeWithClose"},
    {507, kBool, 1, 0, 0, "0", "RunWhenWindowsStartsUp"},
    {508, kBool, 1, 0, 0, "1", "RunWhenSearchStarts"},
    {509, kBool, 1, 0, 0, "0", "InSleepMode"},
    {510, kInt, 10, 0, 0, "10", "SearchHistoryPageSize"},
    {511, kInt, 10, 0, 0, "10", "SearchSpacePageSize"},
    {512, kInt, 10, 0, 0, "10", "SuggestionsPageSize"},
    {513, kInt, 10, 0, 0, "10", "FindingsPageSize"},
    {514, kDouble, 10, 0, 0, "33.000000", "HistoryHeightRatio"},
    {515, kDouble, 10, 0, 0, "33.000000", "SearchSpaceHeightRatio"},
    {516, kDouble, 10, 0, 0, "33.000000", "FindingsHeightRatio"},
    {517, kInt, 10, 0, 0, "120", "TransparencyLevel"},
    {518, kBool, 1, 0, 0, "1", "AutoHighlight"},
    {519, kBool, 1, 0, 0, "0", "AutoCheckHotWords"},
    {520, kBool, 1, 0, 0, "0", "AutoCacheSearch"},
    {521, kBool, 1, 0, 0, "0", "RunAtWindowsStartUp"},
    {522, kBool, 1, 0, 0, "0", "UnhighlightAtClose"},
    {523, kInt, 10, 0, 0, "-1", "HighlighterAutoCloseTimeout"},
    {524, kBool, 1, 0, 0, "0", "PanesInVerticalPosition"},
    {527, kInt, 10, 0, 0, "0", "InterestsPaneHeightTwoP"},
    {528, kInt, 10, 0, 0, "0", "InterestsPaneWidthTwoP"},
    {529, kInt, 10, 0, 0, "0", "SeachSpacePaneHeightTwoP"},
    {530, kInt, 10, 0, 0, "0", "SeachSpacePaneWidthTwoP"},
    {531, kInt, 10, 0, 0, "0", "FindingsPaneHeightTwoP"},
    {532, kInt, 10, 0, 0, "0", "FindingsPaneWidthTwoP"},
    {533, kInt, 10, 0, 0, "0", "InterestsPaneHeightThrP"},
    {534, kInt, 10, 0, 0, "0", "InterestsPaneWidthThrP"},
    {535, kInt, 10, 0, 0, "0", "SeachSpacePaneHeightThrP"},
    {536, kInt, 10, 0, 0, "0", "SeachSpacePaneWidthThrP"},
    {537, kInt, 10, 0, 0, "0", "FindingsPaneHeightThrP"},
    {538, kInt, 10, 0, 0, "0", "FindingsPaneWidthThrP"},
    {539, kBool, 1, 0, 0, "1", "InterstsVisibleInTowerMode"},
    {540, kBool, 1, 0, 0, "1", "InterstsVisibleInSubMode"},
    {541, kBool, 1, 0, 0, "1", "SearchSpaceVisibleInTowerMode"},
    {542, kBool, 1, 0, 0, "1", "SearchSpaceVisibleInSubMode"},
    {543, kBool, 1, 0, 0, "1", "FindingsVisibleInTowerMode"},
    {544, kBool, 1, 0, 0, "1", "FindingsVisibleInSubMode"},
    {545, kBool, 1, 0, 0, "0", "SearchSpaceExpandedInTowerMode"},
    {546, kBool, 1, 0, 0, "1", "SearchSpaceExpandedInSubMode"},
    {547, kBool, 1, 0, 0, "0", "FindingsExpandedInTowerMode"},
    {548, kBool, 1, 0, 0, "1", "FindingsExpandedInSubMode"},
};

// Relation 28 (marsekpreferences).
constexpr FieldRow kFields28[] = {
    {4, kString, 100, 0, 0, "", "Username"},
    {8, kBool, 1, 0, 0, "0", "WelcomeDone"},
    {26, kBool, 1, 0, 0, "1", "EnableNotifier"},
    {42, kString, 100, 0, 0, "", "NotifFile"},
    {85, kInt, 10, 0, 0, "0", "LastDBID"},
    {200, kString, 100, 0, 0, "", "ProxyServer"},
    {201, kInt, 10, 0, 0, "8080", "ProxyPort"},
    {202, kString, 20, 0, 0, "", "ProxyUsername"},
    {203, kString, 20, 0, 0, "", "ProxyPassword"},
    {204, kBool, 1, 0, 0, "0", "MinimizeIntoSystemTray"},
    {205, kBool, 1, 0, 0, "0", "RunAtWindowsStartUp"},
    {206, kString, 200, 0, 0, "", "SoundCaptureDevice"},
    {207, kInt, 10, 0, 0, "-1", "SoundCaptureFormat"},
    {208, kString, 100, 0, 0, "MPEG Layer-3", "SoundEncoder"},
    {209, kString, 100, 0, 0, "24000:7000:1", "SoundCodec"},
    {210, kInt, 10, 0, 0, "0", "LastUsedMode"},
    {211, kBool, 1, 0, 0, "0", "TrashBinActivity"},
    {212, kInt, 10, 0, 0, "2", "SimDownloadLimit"},
    {213, kInt, 10, 0, 0, "2", "SimSynchLimit"},
    {214, kInt, 10, 0, 0, "0", "DownloadBandwidthLimit"},
    {215, kString, 30, 0, 0, "", "ScheduleInterval"},
    {216, kBool, 1, 0, 0, "1", "RunTasksAtStartup"},
    {217, kBool, 1, 0, 0, "0", "HideMainFrame"},
    {218, kBool, 1, 0, 0, "0", "ShowSettingsIconOnCaption"},
    {219, kInt, 10, 0, 0, "2", "StartUpVisualMode"},
    {220, kBool, 1, 0, 0, "0", "MinimizeAtClose"},
    {221, kInt, 10, 0, 0, "-1", "DownloadAtStartUp"},
    {222, kString, 100, 0, 0, "", "AutoExportDir"},
    {223, kBool, 1, 0, 0, "0", "AutoStartNewDownload"},
    {224, kBool, 1, 0, 0, "0", "AddIntoPlaylistAtDownloadFinish"},
    {225, kInt, 10, 0, 0, "5", "ButtonsAtHover"},
    {226, kBool, 1, 0, 0, "1", "ShowPostFrameAtHover"},
    {227, kInt, 10, 0, 0, "185", "PlayerHeight"},
    {228, kInt, 10, 0, 0, "170", "ListingHeight"},
    {229, kBool, 1, 0, 0, "0", "AutoAddIntoDownloadList"},
    {230, kBool, 1, 0, 0, "0", "AutoAddIntoPlaylist"},
    {231, kBool, 1, 0, 0, "0", "AutoCleanPlaylist"},
    {232, kInt, 10, 0, 0, "150", "PopupNotifierHeight"},
    {233, kBool, 1, 0, 0, "0", "SearchInTrashbin"},
    {234, kBool, 1, 0, 0, "1", "AutoSynch"},
    {235, kBool, 1, 0, 0, "1", "AutoSynchAtStartup"},
    {236, kBool, 1, 0, 0, "0", "LoopPlaylist"},
    {237, kBool, 1, 0, 0, "0", "AutoSubscribe"},
    {238, kInt, 10, 0, 0, "0", "LastCorvaneEpisodeCount"},
    {239, kDate, 30, 0, 0, "", "LastCorvaneSearch"},
    {240, kBool, 1, 0, 0, "0", "ShufflePlaylist"},
    {241, kInt, 10, 0, 0, "0", "ListOrderFactor"},
    {242, kBool, 1, 0, 0, "0", "ListOrderDirection"},
    {243, kBool, 1, 0, 0, "0", "AutoExtractDuration"},
    {244, kInt, 10, 0, 0, "3", "SearchType"},
    {245, kBool, 1, 0, 0, "0", "SearchExp"},
    {246, kBool, 1, 0, 0, "0", "PlayPanelVisible"},
    {247, kBool, 1, 0, 0, "0", "VideoPanelVisible"},
    {248, kBool, 1, 0, 0, "1", "VideoPanelDocked"},
    {249, kInt, 10, 0, 0, "0", "LastCorvanePodcastCount"},
    {250, kInt, 10, 0, 0, "0", "CorvaneSearchLanguage"},
    {251, kInt, 10, 0, 0, "228", "LeftPanelWidth"},
    {252, kInt, 10, 0, 0, "100", "VolumeLevel"},
    {253, kInt, 10, 0, 0, "160", "ListWidthWVideo"},
    {254, kString, 100, 0, 0, "", "DownloadBase"},
    {255, kString, 100, 0, 0, "", "LastReconfiguredVersion"},
};

// Relation 12 (tidrelpreferences).
constexpr FieldRow kFields12[] = {
    {4, kString, 10, 0, 0, "GlobalUser", "UserLogin"},
    {5, kString, 10, 0, 0, "", "UserPassword"},
    {6, kBool, 1, 0, 0, "0", "AutoLogin"},
    {7, kBool, 1, 0, 0, "0", "RememberLogin"},
    {8, kBool, 1, 0, 0, "0", "TidrelInitComplete"},
    {9, kInt, 7, 0, 0, "0", "TidrelStartUpMode"},
    {10, kBool, 1, 0, 0, "0", "MinimizeIntoSystemTray"},
    {11, kInt, 7, 0, 0, "0", "RankMode"},
    {12, kBool, 1, 0, 0, "0", "SuspendAllSync"},
    {13, kInt, 7, 0, 0, "0", "AutoSyncState"},
    {16, kBool, 1, 0, 0, "0", "DontSyncAfterRegister"},
    {17, kInt, 7, 0, 0, "0", "AtStartupAutoSyncState"},
    {20, kBool, 1, 0, 0, "0", "DontSyncAfterAwaking"},
    {21, kBool, 1, 0, 0, "1", "NotifyChannelUpdates"},
    {22, kBool, 1, 0, 0, "1", "NotifyAuthorUpdates"},
    {23, kBool, 1, 0, 0, "1", "NotifyCategoryUpdates"},
    {24, kBool, 1, 0, 0, "1", "NotifyVirtualChannelUpdates"},
    {25, kBool, 1, 0, 0, "1", "NotifyWordUpdates"},
    {26, kBool, 1, 0, 0, "0", "DisableNotifier"},
    {29, kInt, 7, 0, 0, "-1", "AutoRankWhenCheckingLink"},
    {30, kInt, 7, 0, 0, "-1", "AutoRankReadingItem"},
    {31, kInt, 7, 0, 0, "0", "AutoDeletePost"},
    {32, kBool, 1, 0, 0, "0", "VirtualChannelInitShow"},
    {33, kBool, 1, 0, 0, "0", "TidrelFirstTimeHelpShown"},
    {34, kBool, 1, 0, 0, "0", "PostPointerHelpShown"},
    {35, kBool, 1, 0, 0, "0", "RankingFeatureHelpShown"},
    {36, kBool, 1, 0, 0, "0", "RankBasedHighlightsHelpShown"},
    {37, kInt, 7, 0, 0, "10", "MaximumSimultaneousThreadCount"},
    {38, kInt, 7, 0, 0, "10", "AutoSyncPriorityLevel"},
    {39, kInt, 7, 0, 0, "10", "AtStartupAutoSyncPriorityLevel"},
    {40, kInt, 7, 0, 0, "0", "TotalLoginDate"},
    {41, kInt, 7, 0, 0, "10", "OnFlyPostReadingPageSize"},
    {42, kString, 100, 0, 0, "Notify.wav", "NotificationMelodyFile"},
    {43, kString, 50, 0, 0, "", "ProxyUserName"},
    {44, kString, 50, 0, 0, "", "ProxyPassword"},
    {45, kDate, 30, 0, 0, "", "LastLoginDate"},
    {46, kString, 100, 0, 0, "DelRey", "SkinName"},
    {47, kBool, 1, 0, 0, "1", "SkinBuildIn"},
    {48, kString, 50, 0, 0, "", "ProxyServer"},
    {49, kInt, 7, 0, 0, "8080", "ProxyPort"},
    {50, kInt, 7, 0, 0, "0", "TotalReadPostCount"},
    {51, kBool, 1, 0, 0, "1", "WhenOpeningResourceShowNewlyRetrievedPostsFirst"},
    {52, kBool, 1, 0, 0, "1", "InVirtualChannelHighlightsFilteredWords"},
    {53, kBool, 1, 0, 0, "0", "InFolderHighlightsListNewlyAddedChannels"},
    {55, kBool, 1, 0, 0, "1", "HighlightSearchedWords"},
    {56, kString, 50, 0, 0, "", "SlideShowResourceTypeOrdering"},
    {57, kInt, 7, 0, 0, "0", "SlideShowChunkOrderingState"},
    {58, kString, 50, 0, 0, "", "SlideShowResourceOrdering"},
    {59, kBool, 1, 0, 0, "0", "AutoHideCaptionBars"},
    {60, kBool, 1, 0, 0, "0", "SwitchTabsWhenMouseOver"},
    {61, kBool, 1, 0, 0, "0", "NewsBarAutoMarkAllPosts"},
    {62, kBool, 1, 0, 0, "1", "NewsBarAutoMarkPreviewedPosts"},
    {63, kBool, 1, 0, 0, "0", "NewsBarDateFilterActive"},
    {64, kBool, 1, 0, 0, "0", "NewsBarPriorityLevelActive"},
    {65, kInt, 7, 0, 0, "2", "NewsBarLoopTimes"},
    {66, kInt, 7, 0, 0, "0", "NewsBarDateFilterEarlierLater"},
    {67, kInt, 7, 0, 0, "0", "NewsBarDateFilterInterval"},
    {68, kInt, 7, 0, 0, "0", "NewsBarPriorityFilterLessMore"},
    {69, kInt, 7, 0, 0, "0", "NewsBarPriorityFilterLevel"},
    {70, kInt, 7, 0, 0, "3", "NewsBarSlidingSpeed"},
    {71, kBool, 1, 0, 0, "0", "TrashBinDisable"},
    {72, kBool, 1, 0, 0, "0", "TrashBinSearchable"},
    {73, kBool, 1, 0, 0, "0", "TrashBinAskCleanAtClose"},
    {74, kBool, 1, 0, 0, "1", "TrashBinAutoClean"},
    {75, kInt, 7, 0, 0, "7", "TrashBinCleanCycle"},
    {76, kInt, 7, 0, 0, "0", "AutoMaintenanceCycleDay"},
    {77, kString, 7, 0, 0, "", "AutoMaintenanceStartTime"},
    {78, kBool, 1, 0, 0, "1", "GetAutoMaintenanceStartApproval"},
    {79, kBool, 1, 0, 0, "1", "GetSweepMatchedItemsApproval"},
    {80, kDate, 30, 0, 0, "", "AutoMaintenanceLastDate"},
    {81, kString, 100, 0, 0, "", "MySearchEngineDefinitions"},
    {82, kInt, 7, 0, 0, "-1", "AutoSyncAtStartUpAfterMinutes"},
    {83, kInt, 7, 0, 0, "0", "ResumeDownloadAtStartUpAfterMinutes"},
    {84, kBool, 1, 0, 0, "1", "ShowHallAtStartUp"},
    {85, kInt, 7, 0, 0, "100", "LastDBID"},
    {86, kBool, 1, 0, 0, "0", "NewsSlideShowIntroduced"},
    {87, kInt, 7, 0, 0, "5", "MaxSimultaneDownloadCount"},
    {88, kInt, 7, 0, 0, "0", "MultiThreadThreadCount"},
    {89, kBool, 1, 0, 0, "0", "MinimizeWithCloseButton"},
    {90, kBool, 1, 0, 0, "1", "SyncWebPagesWithSyncButton"},
    {91, kBool, 1, 0, 0, "0", "ApproveTidrelClose"},
    {92, kDate, 30, 0, 0, "", "LastTrashCleanDate"},
    {93, kString, 50, 0, 0, ".exe;.zip;.rar;.mp3;.mpg;.mov;.avi;.mpeg;.wmv", "AutoDownloadFileExts"},
    {94, kBool, 1, 0, 0, "1", "AutoDownloadFileAskUser"},
    {95, kInt, 7, 0, 0, "0", "MultiThreadFileSizeLimit"},
    {96, kInt, 7, 0, 0, "3", "NetworkConnectionTimeout"},
    {97, kInt, 7, 0, 0, "3", "NetworkSendTimeout"},
    {98, kInt, 7, 0, 0, "3", "NetworkReceiveTimeout"},
    {99, kInt, 7, 0, 0, "1", "NetworkRetryWait"},
    {100, kInt, 7, 0, 0, "0", "NetworkRetryTimes"},
    {101, kInt, 7, 0, 0, "0", "SlideShowReadCriteria"},
    {102, kInt, 7, 0, 0, "4", "SlideShowReadRange"},
    {103, kString, 100, 0, 0, "", "BloglinesPassword"},
    {104, kBool, 1, 0, 0, "0", "ManuallySyncBloglinesChannels"},
    {105, kBool, 1, 0, 0, "1", "SaveBloglinesContent"},
    {106, kBool, 1, 0, 0, "0", "BloglinesIntroduced"},
    {107, kBool, 1, 0, 0, "0", "SyncBloglinesChannelsWSyncButton"},
    {108, kString, 100, 0, 0, "", "BloglinesUsername"},
    {109, kInt, 7, 0, 0, "20", "HighlightsPageSize"},
    {110, kBool, 1, 0, 0, "1", "HighlightsGroupPosts"},
    {111, kBool, 1, 0, 0, "0", "MinCalendarWhenAvail"},
    {112, kBool, 1, 0, 0, "0", "NewsBarAutoClose"},
    {113, kString, 100, 0, 0, "", "NewsBarSelectedResources"},
    {114, kInt, 7, 0, 0, "0", "NewsBarOrderingFactor"},
    {115, kBool, 1, 0, 0, "0", "NewsBarReroutedSource"},
};

// Relation 2 (treeitem2).
constexpr FieldRow kFields2[] = {
    {0, kString, 10, 0, 0, "", ""},
    {1, kInt, 7, 0, 0, "0", ""},
    {2, kDate, 30, 0, 0, "", ""},
    {3, kDate, 30, 0, 0, "", ""},
    {4, kInt, 10, 0, 0, "-1", ""},
    {5, kInt, 10, 0, 0, "-1", ""},
    {6, kString, 10, 0, 0, "", ""},
    {7, kString, 30, 0, 0, "", ""},
    {8, kString, 100, 0, 0, "", ""},
    {9, kInt, 10, 0, 0, "0", ""},
    {10, kString, 100, 0, 0, "", ""},
    {11, kString, 100, 0, 0, "", ""},
    {12, kString, 40, 0, 0, "", ""},
    {13, kInt, 10, 0, 0, "10", ""},
    {14, kString, 30, 0, 0, "", ""},
    {15, kDate, 30, 0, 0, "", ""},
    {16, kString, 30, 0, 0, "", ""},
    {17, kDate, 30, 0, 0, "", ""},
    {18, kInt, 7, 0, 0, "0", ""},
    {19, kInt, 7, 0, 0, "0", ""},
    {20, kString, 10, 0, 0, "", ""},
};

// Relation 27 (treeitem27).
constexpr FieldRow kFields27[] = {
    {0, kString, 10, 0, 0, "", ""},
    {1, kInt, 7, 0, 0, "0", ""},
    {2, kDate, 30, 0, 0, "", ""},
    {3, kDate, 30, 0, 0, "", ""},
    {4, kInt, 10, 0, 0, "-1", ""},
    {5, kInt, 10, 0, 0, "-1", ""},
    {6, kString, 50, 0, 0, "", ""},
    {7, kString, 30, 0, 0, "", ""},
    {8, kString, 100, 0, 0, "", ""},
    {9, kInt, 10, 0, 0, "0", ""},
    {10, kString, 100, 0, 0, "", ""},
    {11, kString, 100, 0, 0, "", ""},
    {12, kString, 40, 0, 0, "", ""},
    {13, kInt, 10, 0, 0, "10", ""},
    {14, kString, 30, 0, 0, "", ""},
    {15, kDate, 30, 0, 0, "", ""},
    {16, kString, 30, 0, 0, "", ""},
    {17, kDate, 30, 0, 0, "", ""},
    {18, kInt, 7, 0, 0, "0", ""},
    {19, kInt, 7, 0, 0, "0", ""},
    {20, kString, 10, 0, 0, "", ""},
    {21, kString, 10, 0, 0, "", ""},
};

// Relation 22 (treeitem22).
constexpr FieldRow kFields22[] = {
    {0, kString, 10, 0, 0, "", ""},
    {1, kInt, 7, 0, 0, "0", ""},
    {2, kDate, 30, 0, 0, "", ""},
    {3, kDate, 30, 0, 0, "", ""},
    {4, kInt, 10, 0, 0, "-1", ""},
    {5, kString, 30, 0, 0, "", ""},
    {6, kInt, 10, 0, 0, "-1", ""},
    {7, kInt, 10, 0, 0, "-1", ""},
};

// Relation 23 (treeitem23).
constexpr FieldRow kFields23[] = {
    {0, kString, 10, 0, 0, "", ""},
    {1, kInt, 7, 0, 0, "0", ""},
    {2, kDate, 30, 0, 0, "", ""},
    {3, kDate, 30, 0, 0, "", ""},
    {4, kInt, 10, 0, 0, "-1", ""},
    {5, kString, 50, 0, 0, "", ""},
    {6, kString, 30, 0, 0, "", ""},
    {7, kString, 30, 0, 0, "", ""},
    {8, kInt, 7, 0, 0, "0", ""},
    {9, kString, 100, 0, 0, "", ""},
    {10, kInt, 7, 0, 0, "0", ""},
    {11, kString, 10, 0, 0, "", ""},
    {12, kString, 30, 0, 0, "", ""},
};

// Relation 3 (channel).
constexpr FieldRow kFields3[] = {
    {0, kString, 10, 0, 0, "", "guid"},
    {1, kInt, 7, 0, 0, "0", ""},
    {4, kString, 50, 1, 1, "", "title"},
    {5, kString, 100, 1, 1, "", "desc"},
    {6, kString, 100, 0, 0, "", "link"},
    {7, kString, 100, 0, 0, "", "feedaddress"},
    {8, kDate, 30, 0, 0, "", "regdate"},
    {9, kString, 50, 1, 1, "", "managingdirector"},
    {10, kDate, 30, 0, 0, "", "channelpubdate"},
    {11, kString, 50, 1, 0, "", "webmaster"},
    {12, kString, 50, 1, 0, "", "publisher"},
    {13, kString, 50, 1, 0, "", "creator"},
    {14, kString, 50, 1, 0, "", "generatoragent"},
    {15, kString, 50, 1, 0, "", "errorreportsto"},
    {16, kString, 15, 1, 0, "", "language"},
    {17, kDate, 30, 0, 0, "", "lastbuilddate"},
    {18, kString, 5000, 0, 0, "", ""},
    {19, kString, 30, 0, 0, "", ""},
    {20, kInt, 7, 0, 0, "0", "totalretrivedpostcount"},
    {21, kInt, 7, 0, 0, "0", "readload"},
    {22, kDate, 30, 0, 0, "", "firstpubdate"},
    {23, kString, 10, 0, 0, "|", ""},
    {24, kString, 20, 0, 0, "|", ""},
    {25, kInt, 7, 0, 0, "5", "ttl"},
};

// Relation 4 (post).
constexpr FieldRow kFields4[] = {
    {0, kString, 100, 0, 0, "", "guid"},
    {1, kInt, 7, 0, 0, "0", ""},
    {2, kDate, 30, 0, 0, "", "recdate"},
    {3, kDate, 30, 0, 0, "", "pubdate"},
    {4, kString, 50, 1, 1, "", "title"},
    {5, kString, 5, 0, 1, "", ""},
    {6, kString, 5, 0, 1, "", ""},
    {7, kString, 500, 1, 1, "", "desc"},
    {8, kString, 100, 1, 1, "", "sourcechannel"},
    {9, kInt, 10, 0, 0, "0", ""},
    {10, kString, 100, 0, 0, "", "link"},
    {11, kString, 300, 1, 1, "", "encodedcontent"},
    {12, kString, 50, 0, 0, "", "commentlink"},
    {13, kString, 150, 0, 0, "", "trackback"},
    {14, kDate, 30, 0, 0, "", ""},
    {15, kString, 50, 0, 0, "", "enclosure"},
    {16, kString, 10, 0, 0, "", "tags"},
};

// Relation 25 (note).
constexpr FieldRow kFields25[] = {
    {0, kString, 100, 0, 0, "", "guid"},
    {1, kInt, 7, 0, 0, "0", ""},
    {2, kDate, 30, 0, 0, "", "creationdate"},
    {3, kDate, 30, 0, 0, "", "lastmodifieddate"},
    {4, kInt, 7, 0, 0, "0", ""},
    {5, kString, 50, 1, 1, "", "title"},
    {6, kString, 200, 1, 1, "", "content"},
    {7, kString, 50, 1, 0, "", "source"},
    {8, kString, 50, 0, 0, "", "link"},
    {9, kString, 10, 0, 0, "", "tag"},
};

// Relation 26 (savedpost).
constexpr FieldRow kFields26[] = {
    {0, kString, 100, 0, 0, "", "guid"},
    {1, kInt, 7, 0, 0, "0", ""},
    {2, kDate, 30, 0, 0, "", "recdate"},
    {3, kDate, 30, 0, 0, "", "pubdate"},
    {4, kString, 50, 1, 1, "", "title"},
    {5, kString, 5, 0, 1, "", ""},
    {6, kString, 5, 0, 1, "", ""},
    {7, kString, 500, 1, 1, "", "desc"},
    {8, kString, 100, 1, 1, "", "sourcechannel"},
    {9, kInt, 10, 0, 0, "0", ""},
    {10, kString, 100, 0, 0, "", "link"},
    {11, kString, 300, 1, 1, "", "encodedcontent"},
    {12, kString, 50, 0, 0, "", "commentlink"},
    {13, kString, 150, 0, 0, "", "trackback"},
    {14, kDate, 30, 0, 0, "", ""},
    {15, kString, 50, 0, 0, "", "enclosure"},
    {16, kDate, 30, 0, 0, "", "issued"},
    {17, kDate, 30, 0, 0, "", "modified"},
    {18, kString, 20, 0, 0, "", "contributor"},
    {19, kString, 10, 0, 0, "", "tags"},
};

// Relation 11 (post).
constexpr FieldRow kFields11[] = {
    {0, kString, 100, 0, 0, "", "guid"},
    {1, kInt, 7, 0, 0, "0", ""},
    {2, kDate, 30, 0, 0, "", "recdate"},
    {3, kDate, 30, 0, 0, "", "pubdate"},
    {4, kString, 50, 1, 1, "", "title"},
    {5, kString, 5, 0, 1, "", ""},
    {6, kString, 5, 0, 1, "", ""},
    {7, kString, 500, 1, 1, "", "desc"},
    {8, kString, 100, 1, 1, "", "sourcechannel"},
    {9, kInt, 10, 0, 0, "0", ""},
    {10, kString, 100, 0, 0, "", "link"},
    {11, kString, 300, 1, 1, "", "encodedcontent"},
    {12, kString, 50, 0, 0, "", "commentlink"},
    {13, kString, 150, 0, 0, "", "trackback"},
    {14, kDate, 30, 0, 0, "", ""},
    {15, kString, 50, 0, 0, "", "enclosure"},
    {16, kDate, 30, 0, 0, "", "issued"},
    {17, kDate, 30, 0, 0, "", "modified"},
    {18, kString, 20, 0, 0, "", "contributor"},
    {19, kString, 10, 0, 0, "", "tags"},
};

// Relation 5 (author).
constexpr FieldRow kFields5[] = {
    {0, kString, 20, 0, 0, "", "guid"},
    {1, kInt, 7, 0, 0, "0", ""},
    {2, kDate, 30, 0, 0, "", "lastrecdate"},
    {3, kDate, 30, 0, 0, "", "lastpubdate"},
    {4, kString, 20, 1, 1, "", "authorname"},
    {5, kDate, 30, 0, 0, "", "firstrecdate"},
    {6, kDate, 30, 0, 0, "", "firstpubdate"},
    {7, kInt, 5, 0, 0, "10", "priority"},
    {8, kString, 50, 0, 0, "", "sourcechannels"},
    {9, kInt, 7, 0, 0, "0", ""},
    {10, kInt, 7, 0, 0, "0", "unreadpostcount"},
    {11, kString, 20, 0, 0, "", "rank"},
    {12, kInt, 7, 0, 0, "0", "totalretrivedpostcount"},
    {13, kDate, 30, 0, 0, "", ""},
    {14, kString, 30, 0, 0, "", ""},
    {15, kString, 10, 0, 0, "", ""},
};

// Relation 13 (person).
constexpr FieldRow kFields13[] = {
    {0, kString, 100, 0, 0, "", "guid"},
    {1, kInt, 7, 0, 0, "0", ""},
    {2, kDate, 30, 0, 0, "", "lastrecdate"},
    {4, kInt, 7, 0, 0, "0", ""},
    {5, kString, 30, 1, 0, "", "personname"},
    {6, kString, 50, 0, 0, "", "email"},
    {7, kString, 100, 0, 1, "", "homepage"},
    {8, kString, 100, 0, 0, "", "foaffile"},
    {9, kInt, 10, 0, 0, "0", "redirectedid"},
    {10, kInt, 10, 0, 0, "0", "sourcentityid"},
};

// Relation 6 (category).
constexpr FieldRow kFields6[] = {
    {0, kString, 20, 0, 0, "", "guid"},
    {1, kInt, 7, 0, 0, "0", ""},
    {2, kDate, 30, 0, 0, "", "lastrecdate"},
    {3, kDate, 30, 0, 0, "", "lastpubdate"},
    {4, kString, 20, 1, 1, "", "categoryname"},
    {5, kDate, 30, 0, 0, "", "firstrecdate"},
    {6, kDate, 30, 0, 0, "", "firstpubdate"},
    {7, kInt, 5, 0, 0, "10", "priority"},
    {8, kString, 50, 0, 0, "", "sourcechannels"},
    {9, kInt, 7, 0, 0, "0", ""},
    {10, kInt, 7, 0, 0, "0", "unreadpostcount"},
    {11, kString, 20, 0, 0, "", "rank"},
    {12, kInt, 7, 0, 0, "0", "totalretrivedpostcount"},
    {13, kDate, 30, 0, 0, "", ""},
    {14, kString, 30, 0, 0, "", ""},
    {15, kString, 10, 0, 0, "", ""},
};

// Relation 14 (categoryentry).
constexpr FieldRow kFields14[] = {
    {0, kString, 100, 0, 0, "", "guid"},
    {1, kInt, 7, 0, 0, "0", ""},
    {2, kDate, 30, 0, 0, "", "encounterdate"},
    {4, kInt, 7, 0, 0, "0", ""},
    {5, kString, 30, 1, 0, "", "categoryname"},
    {6, kInt, 10, 0, 0, "0", "redirecedid"},
    {7, kInt, 10, 0, 0, "0", "sourcentityid"},
};

// Relation 7 (treeitem7).
constexpr FieldRow kFields7[] = {
    {0, kString, 100, 0, 0, "", ""},
    {1, kInt, 7, 0, 0, "0", ""},
    {2, kDate, 30, 0, 0, "", ""},
    {3, kDate, 30, 0, 0, "", ""},
    {4, kString, 40, 0, 0, "", ""},
    {5, kString, 100, 0, 0, "", ""},
    {6, kString, 200, 1, 0, "", ""},
    {7, kInt, 5, 0, 0, "0", ""},
    {8, kInt, 10, 0, 0, "-1", ""},
    {9, kInt, 5, 0, 0, "0", ""},
    {10, kString, 200, 0, 0, "", ""},
    {11, kString, 200, 0, 0, "", ""},
    {12, kString, 50, 0, 0, "", ""},
    {13, kString, 1000, 0, 0, "", ""},
    {14, kString, 50, 0, 0, "", ""},
    {15, kString, 15, 0, 0, "", ""},
    {16, kString, 15, 0, 0, "", ""},
    {17, kString, 10, 0, 0, "", ""},
};

// Relation 15 (record15).
constexpr FieldRow kFields15[] = {
    {0, kString, 100, 0, 0, "", ""},
    {1, kInt, 7, 0, 0, "0", ""},
    {2, kDate, 30, 0, 0, "", ""},
    {3, kDate, 30, 0, 0, "", ""},
    {4, kDate, 30, 0, 0, "", ""},
    {5, kString, 200, 1, 0, "", ""},
};

// Relation 8 (focusablelink).
constexpr FieldRow kFields8[] = {
    {0, kString, 100, 0, 0, "", ""},
    {1, kInt, 7, 0, 0, "-1", ""},
    {2, kInt, 7, 0, 0, "-1", ""},
    {3, kInt, 0, 0, 0, "0", ""},
};

// Relation 9 (treeitem9).
constexpr FieldRow kFields9[] = {
    {0, kString, 100, 0, 0, "", ""},
    {1, kInt, 7, 0, 0, "0", ""},
    {2, kDate, 30, 0, 0, "", ""},
    {3, kDate, 30, 0, 0, "", ""},
    {4, kString, 100, 0, 0, "", ""},
    {5, kInt, 7, 0, 0, "0", ""},
    {6, kInt, 7, 0, 0, "0", ""},
    {7, kString, 30, 0, 0, "", ""},
    {8, kInt, 7, 0, 0, "0", ""},
    {9, kInt, 7, 0, 0, "0", ""},
    {10, kDate, 30, 0, 0, "", ""},
    {11, kString, 50, 1, 0, "", ""},
};

// Relation 10 (treeitem10).
constexpr FieldRow kFields10[] = {
    {0, kString, 100, 0, 0, "", ""},
    {1, kInt, 7, 0, 0, "0", ""},
    {2, kDate, 30, 0, 0, "", ""},
    {3, kDate, 30, 0, 0, "", ""},
    {4, kDate, 30, 0, 0, "", ""},
    {5, kInt, 7, 0, 0, "0", ""},
    {6, kString, 30, 1, 0, "", ""},
    {7, kInt, 7, 0, 0, "0", ""},
    {8, kDate, 30, 0, 0, "", ""},
    {9, kString, 30, 0, 0, "", ""},
    {10, kInt, 7, 0, 0, "0", ""},
    {11, kString, 20, 0, 0, "", ""},
    {12, kInt, 7, 0, 0, "0", ""},
};

// Relation 16 (helpsection).
constexpr FieldRow kFields16[] = {
    {0, kString, 30, 0, 0, "", "guid"},
    {1, kInt, 7, 0, 0, "0", ""},
    {3, kDate, 30, 0, 0, "", "lastmotifdate"},
    {4, kString, 100, 1, 0, "", "helptitle"},
    {5, kString, 30, 0, 0, "", ""},
    {6, kString, 100, 1, 0, "", "helpdesc"},
    {7, kString, 30, 0, 0, "", ""},
    {8, kString, 100, 1, 0, "", ""},
};
constexpr EditRow kEdits16[] = {
    {4, "Section Title", 1},
    {6, "Section Desc", 2},
    {7, "Related Help Topics", 5},
    {8, "Search Meta Tags", 1},
};

// Relation 17 (helptopic).
constexpr FieldRow kFields17[] = {
    {0, kString, 30, 0, 0, "", "guid"},
    {1, kInt, 7, 0, 0, "0", ""},
    {3, kDate, 30, 0, 0, "", "lastmotifdate"},
    {4, kString, 100, 1, 0, "", "helptitle"},
    {5, kString, 200, 1, 0, "", "helpcontent"},
    {6, kString, 30, 0, 0, "", ""},
    {7, kString, 100, 1, 0, "", "helpnotes"},
    {8, kString, 30, 0, 0, "", ""},
    {9, kString, 30, 0, 0, "", ""},
    {10, kString, 100, 1, 0, "", ""},
    {11, kString, 100, 1, 0, "", "helpexample"},
    {12, kString, 20, 0, 0, "", ""},
    {13, kString, 100, 1, 0, "", "shortdesc"},
};
constexpr EditRow kEdits17[] = {
    {4, "Title", 1},
    {5, "Content", 2},
    {8, "Related Help Topics", 5},
    {7, "Additional Notes", 2},
    {10, "Search Meta Tags", 1},
    {11, "Example", 2},
    {13, "Short Desc", 2},
};

// Relation 18 (file).
constexpr FieldRow kFields18[] = {
    {0, kString, 100, 0, 0, "", "guid"},
    {1, kInt, 7, 0, 0, "0", "filestatus"},
    {2, kDate, 30, 0, 0, "", "filefirstseendate"},
    {3, kDate, 30, 0, 0, "", "filepubdate"},
    {4, kDate, 30, 0, 0, "", "filedownloaddate"},
    {5, kString, 50, 0, 0, "", "filesavename"},
    {6, kString, 50, 0, 0, "", "filetitle"},
    {7, kString, 50, 0, 0, "", "filesourcename"},
    {8, kString, 10, 0, 0, "", ""},
    {9, kString, 5, 0, 0, "", "filetype"},
    {10, kInt, 7, 0, 0, "0", "filesize"},
    {11, kInt, 7, 0, 0, "0", "filedownloadedsize"},
    {12, kString, 100, 0, 0, "", "filedescription"},
    {13, kString, 10, 0, 0, "", "filetags"},
    {14, kInt, 7, 0, 0, "0", "folderid"},
};

// Relation 20 (notification).
constexpr FieldRow kFields20[] = {
    {0, kString, 100, 0, 0, "", "guid"},
    {1, kInt, 7, 0, 0, "0", ""},
    {2, kDate, 30, 0, 0, "", "notifdate"},
    {4, kString, 50, 0, 0, "", "notiftitle"},
    {5, kString, 100, 0, 0, "", "notifmessage"},
};

// Relation 19 (talk).
constexpr FieldRow kFields19[] = {
    {0, kString, 100, 0, 0, "", "guid"},
    {1, kInt, 7, 0, 0, "0", ""},
    {2, kDate, 30, 0, 0, "", "notifdate"},
    {4, kString, 50, 0, 0, "", "talktitle"},
    {5, kString, 100, 0, 0, "", "talkmessage"},
};

// Relation 21 (bookmark).
constexpr FieldRow kFields21[] = {
    {0, kString, 100, 0, 0, "", ""},
    {1, kInt, 7, 0, 0, "0", ""},
    {4, kString, 50, 0, 0, "", ""},
    {5, kString, 10, 0, 0, "", ""},
    {6, kInt, 7, 0, 0, "0", ""},
    {7, kInt, 7, 0, 0, "0", ""},
};

// Relation 24 (tip).
constexpr FieldRow kFields24[] = {
    {0, kString, 100, 0, 0, "", "guid"},
    {1, kInt, 7, 0, 0, "0", ""},
    {4, kString, 50, 1, 0, "", "tiptitle"},
    {5, kString, 150, 1, 0, "", "tipcontent"},
    {6, kString, 10, 0, 0, "", "pointedhelpguid"},
};
constexpr EditRow kEdits24[] = {
    {4, "Title", 1},
    {5, "Content", 2},
    {6, "Pointed Help Section", 5},
};

constexpr RelationRow kDefaultRelations[] = {
    {1, "", "", kFields1, {}},
    {30, "", "", kFields30, {}},
    {29, "", "", kFields29, {}},
    {31, "preferences", "", kFields31, {}},
    {28, "", "", kFields28, {}},
    {12, "", "", kFields12, {}},
    {2, "", "", kFields2, {}},
    {27, "", "", kFields27, {}},
    {22, "", "", kFields22, {}},
    {23, "", "", kFields23, {}},
    {3, "channel", "", kFields3, {}},
    {4, "post", "", kFields4, {}},
    {25, "note", "", kFields25, {}},
    {26, "savedpost", "", kFields26, {}},
    {11, "post", "", kFields11, {}},
    {5, "author", "", kFields5, {}},
    {13, "person", "", kFields13, {}},
    {6, "category", "", kFields6, {}},
    {14, "categoryentry", "", kFields14, {}},
    {7, "", "", kFields7, {}},
    {15, "", "", kFields15, {}},
    {8, "", "", kFields8, {}},
    {9, "", "", kFields9, {}},
    {10, "", "", kFields10, {}},
    {16, "helpsection", "Help Section", kFields16, kEdits16},
    {17, "helptopic", "Help Topic", kFields17, kEdits17},
    {18, "file", "", kFields18, {}},
    {20, "notification", "", kFields20, {}},
    {19, "talk", "", kFields19, {}},
    {21, "bookmark", "", kFields21, {}},
    {24, "tip", "", kFields24, kEdits24},
};
// clang-format on

// Adds one field of the table through the typed operation of its type.
void AddTableField(Relation* relation, const FieldRow& row) {
  const CString decoration(row.decoration);
  const CString defaultText(row.defaultValue);
  switch (row.type) {
    case kInt:
      relation->AddFieldInt(row.id, row.size, _wtoi(defaultText), decoration);
      break;
    case kDouble:
      relation->AddFieldDouble(row.id, _wtof(defaultText), decoration);
      break;
    case kDate:
      relation->AddFieldDate(row.id, decoration);
      break;
    case kBool:
      relation->AddFieldBool(row.id, _wtoi(defaultText), decoration);
      break;
    default:
      relation->AddFieldString(row.id, row.size, row.indexable, defaultText, decoration, row.cdata);
      break;
  }
}

}  // namespace

void GlobalRelationsCtrl::LoadDefaultRelations() {
  for (const RelationRow& row : kDefaultRelations) {
    if (GetRelation(row.id) != nullptr) continue;
    Relation* relation = new Relation(CString(row.name));
    // The id goes in before the first field: the template takes it then.
    relation->SetRelationID(row.id);
    if (row.title[0] != '\0') relation->SetRelationTitle(CString(row.title));
    for (const FieldRow& field : row.fields) AddTableField(relation, field);
    for (const EditRow& edit : row.edits) {
      relation->SetFieldEditProperties(edit.id, CString(edit.label), edit.kind);
    }
    if (!AddRelation(relation, 0)) delete relation;
  }
}

const std::vector<int>& GlobalRelationsCtrl::GetDefaultRelationOrder() {
  static const std::vector<int> order = [] {
    std::vector<int> ids;
    for (const RelationRow& row : kDefaultRelations) ids.push_back(row.id);
    return ids;
  }();
  return order;
}

}  // namespace kordll
