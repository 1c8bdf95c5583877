#include "kordll/platform/CWinApp.h"

#include <atomic>

namespace kordll {

namespace {

std::atomic<CWinApp*> g_current_app{nullptr};

CString ProfileKeyOf(const CString& company, const CString& application) {
  CString key("Software");
  if (!company.IsEmpty()) key += u'\\' + company;
  key += u'\\' + application;
  return key;
}

}  // namespace

CWinApp::CWinApp(const CString& company, const CString& application, Registry* registry)
    : company_(company),
      application_(application),
      profile_key_(ProfileKeyOf(company, application)),
      registry_(registry) {
  SetCurrent(this);
}

CWinApp::~CWinApp() {
  CWinApp* self = this;
  g_current_app.compare_exchange_strong(self, nullptr, std::memory_order_acq_rel);
}

CWinApp* CWinApp::Current() { return g_current_app.load(std::memory_order_acquire); }

CWinApp* CWinApp::SetCurrent(CWinApp* app) {
  return g_current_app.exchange(app, std::memory_order_acq_rel);
}

Registry* CWinApp::GetRegistry() const {
  return registry_ != nullptr ? registry_ : Registry::Current();
}

CString CWinApp::GetSectionKey(const CString& section) const {
  // Empty parts of a registry path are ignored, so the empty section is the
  // profile key itself and a section that starts with "\" is no different.
  return profile_key_ + u'\\' + section;
}

int CWinApp::GetProfileInt(const CString& section, const CString& entry, int default_value) {
  RegValue value;
  if (GetRegistry()->QueryValue(RegHive::kCurrentUser, GetSectionKey(section), entry, &value) !=
          ERROR_SUCCESS ||
      !RegValue::IsIntegerType(value.type)) {
    return default_value;
  }
  return static_cast<int>(static_cast<uint32_t>(value.integer));
}

int CWinApp::WriteProfileInt(const CString& section, const CString& entry, int value) {
  return GetRegistry()->SetValue(RegHive::kCurrentUser, GetSectionKey(section), entry,
                                 RegValue::Dword(static_cast<uint32_t>(value)),
                                 true) == ERROR_SUCCESS
             ? 1
             : 0;
}

CString CWinApp::GetProfileString(const CString& section, const CString& entry,
                                  const CString& default_value) {
  RegValue value;
  if (GetRegistry()->QueryValue(RegHive::kCurrentUser, GetSectionKey(section), entry, &value) !=
          ERROR_SUCCESS ||
      !RegValue::IsStringType(value.type)) {
    return default_value;
  }
  return value.text;
}

int CWinApp::WriteProfileString(const CString& section, const CString& entry,
                                const CString& value) {
  return GetRegistry()->SetValue(RegHive::kCurrentUser, GetSectionKey(section), entry,
                                 RegValue::String(value), true) == ERROR_SUCCESS
             ? 1
             : 0;
}

int CWinApp::DeleteProfileEntry(const CString& section, const CString& entry) {
  int rc = GetRegistry()->DeleteValue(RegHive::kCurrentUser, GetSectionKey(section), entry);
  return rc == ERROR_SUCCESS || rc == ERROR_FILE_NOT_FOUND ? 1 : 0;
}

int CWinApp::DeleteProfileSection(const CString& section) {
  bool empty = true;
  for (char16_t ch : section.str()) empty = empty && ch == u'\\';
  if (empty) return 0;
  int rc = GetRegistry()->DeleteTree(RegHive::kCurrentUser, GetSectionKey(section));
  return rc == ERROR_SUCCESS || rc == ERROR_FILE_NOT_FOUND ? 1 : 0;
}

}  // namespace kordll
