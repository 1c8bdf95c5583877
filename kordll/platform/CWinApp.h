// CWinApp: the application object, which names the company and the
// application and so the application's profile.
//
// The profile is the registry key "Software\<company>\<application>" of the
// current user's hive (an empty company leaves "Software\<application>").
// A section is a subkey of it, and may itself be a path ("User-ann\IDRolls");
// the empty section is the profile key itself. Integers are stored as
// REG_DWORD and strings as REG_SZ, each keeping its type: reading an entry as
// the other type answers the default, as does a missing entry or section.
//
// The library reaches the application through CWinApp::Current() (AfxGetApp).
// Constructing an application object makes it current; destroying the
// current one leaves none. Tests and applications may also set it directly.
//
// Thread-safe: the profile calls go to the registry, which is locked; the
// names are fixed at construction.

#ifndef KORDLL_PLATFORM_CWINAPP_H_
#define KORDLL_PLATFORM_CWINAPP_H_

#include "kordll/platform/CString.h"
#include "kordll/platform/Registry.h"

namespace kordll {

class CWinApp {
 public:
  // registry: where the profile lives; not owned, must outlive this object.
  // Null means the process registry (Registry::Current()) at each call.
  CWinApp(const CString& company, const CString& application, Registry* registry = nullptr);
  virtual ~CWinApp();
  CWinApp(const CWinApp&) = delete;
  CWinApp& operator=(const CWinApp&) = delete;

  const CString& GetCompanyName() const { return company_; }
  const CString& GetAppName() const { return application_; }
  // "Software\<company>\<application>".
  const CString& GetProfileKey() const { return profile_key_; }
  // The registry path of a section: the profile key, "\" and the section.
  CString GetSectionKey(const CString& section) const;

  // The integer entry of the section, or default_value when the entry is
  // missing or is not an integer. The stored 32 bits read back as an int.
  int GetProfileInt(const CString& section, const CString& entry, int default_value);
  // Stores an integer, making the section if needed. 1 on success, 0 if the
  // registry failed.
  int WriteProfileInt(const CString& section, const CString& entry, int value);
  // The string entry of the section, or default_value when the entry is
  // missing or is not a string. Every unit survives, U+0000 included.
  CString GetProfileString(const CString& section, const CString& entry,
                           const CString& default_value = CString());
  // Stores a string as it is, making the section if needed. 1 or 0.
  int WriteProfileString(const CString& section, const CString& entry, const CString& value);
  // Removes one entry (what WriteProfileString with a null value did). 1 if
  // the entry is gone at the end, missing before included; 0 on failure.
  int DeleteProfileEntry(const CString& section, const CString& entry);
  // Removes a section with its entries and sub-sections (what
  // WriteProfileString with a null entry did). 1 or 0, as above. The empty
  // section (the profile itself) cannot be removed: 0.
  int DeleteProfileSection(const CString& section);

  // The registry this application uses.
  Registry* GetRegistry() const;

  // The current application, or null.
  static CWinApp* Current();
  // Makes app the current application (null for none) and returns the one
  // it replaces. app is not owned.
  static CWinApp* SetCurrent(CWinApp* app);

 private:
  const CString company_;
  const CString application_;
  const CString profile_key_;
  Registry* const registry_;  // not owned; null: the process registry
};

// The current application, as MFC names it.
inline CWinApp* AfxGetApp() { return CWinApp::Current(); }

}  // namespace kordll

#endif  // KORDLL_PLATFORM_CWINAPP_H_
