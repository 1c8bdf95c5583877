#include "kordll/control/INIFocusable.h"

#include <cstdint>
#include <string>
#include <utility>

#include "kordll/platform/CRuntime.h"
#include "kordll/platform/CWinApp.h"
#include "kordll/platform/Registry.h"
#include "kordll/record/FieldInfo.h"
#include "kordll/record/RGDBTemplate.h"
#include "kordll/schema/GlobalRelationsCtrl.h"
#include "kordll/schema/Relation.h"
#include "kordll/toolkit/KorlanDateTime.h"

namespace kordll {

namespace {

// What a fixed buffer of 256 units keeps of a section name.
CString SectionAsKept(const CString& section) {
  int end = section.Find(u'\0');
  if (end < 0) end = section.GetLength();
  if (end > INIFocusable::kMaxSectionLength) end = INIFocusable::kMaxSectionLength;
  return section.Left(end);
}

// Sends every held value of pending through set, then forgets them all,
// also those whose write failed: a save empties what was held, as a save of
// the settings always has. What a setter puts back while it runs (a record
// that is not savable) is dropped too. True when nothing failed.
template <class Map, class Set>
bool Flush(Map* pending, const int* failedFlag, Set set) {
  Map held;
  held.swap(*pending);
  bool ok = true;
  for (const auto& entry : held) {
    if (set(entry.first, entry.second) == 0 && *failedFlag != 0) ok = false;
  }
  pending->clear();
  return ok;
}

}  // namespace

INIFocusable::INIFocusable(CString section, int relation, CString registryRoot)
    : Focusable(relation, nullptr),
      section_(SectionAsKept(section)),
      registryRoot_(std::move(registryRoot)) {
  SetFullyLoaded(1);
}

INIFocusable::~INIFocusable() = default;

void INIFocusable::SetINIFocusable(INIFocusable* source, int clear) {
  if (source == nullptr || source == this) {
    if (source == this && clear != 0) {
      // Clearing and then copying its own (now empty) values leaves nothing.
      pendingInt_.clear();
      pendingString_.clear();
      pendingBool_.clear();
      pendingDate_.clear();
      pendingDouble_.clear();
    }
    return;
  }
  section_ = source->section_;
  if (clear != 0) {
    pendingInt_.clear();
    pendingString_.clear();
    pendingBool_.clear();
    pendingDate_.clear();
    pendingDouble_.clear();
  }
  for (const auto& [id, v] : source->pendingString_) pendingString_[id] = v;
  for (const auto& [id, v] : source->pendingInt_) pendingInt_[id] = v;
  for (const auto& [id, v] : source->pendingBool_) pendingBool_[id] = v;
  for (const auto& [id, v] : source->pendingDate_) pendingDate_[id] = v;
  for (const auto& [id, v] : source->pendingDouble_) pendingDouble_[id] = v;
}

int INIFocusable::SaveFocusable() {
  // lastWrite_ as a flag the flush can read after each setter.
  int failed = 0;
  auto noteFailure = [&](int result) {
    failed = (result == 0 && lastWrite_ == WriteResult::kFailed) ? 1 : 0;
    return result;
  };
  bool ok = true;
  ok &= Flush(&pendingString_, &failed,
              [&](int id, const CString& v) { return noteFailure(SetValueStr(id, v, 1)); });
  ok &= Flush(&pendingInt_, &failed,
              [&](int id, int v) { return noteFailure(SetValueInt(id, v, 1)); });
  ok &= Flush(&pendingBool_, &failed,
              [&](int id, int v) { return noteFailure(SetValueBOOL(id, v, 1)); });
  ok &= Flush(&pendingDate_, &failed,
              [&](int id, const COleDateTime& v) { return noteFailure(SetValueDate(id, v, 1)); });
  // Held doubles are written as the date of their day count.
  ok &= Flush(&pendingDouble_, &failed,
              [&](int id, double v) { return noteFailure(SetValueDate(id, COleDateTime(v), 1)); });
  return ok ? 1 : 0;
}

void INIFocusable::CopyFocusable(Focusable* src, int /*full*/) {
  if (src == nullptr || src == this) return;
  RGDBTemplate* layout = GlobalRelationsCtrl::GetRGDBTemplate(src->GetFocusableRelation());
  if (layout == nullptr) return;
  Relation* own = GetOwnRelation();
  for (int id = 0; id < layout->GetFieldCount(); ++id) {
    const FieldInfo* field = layout->GetField(id);
    if (field == nullptr) continue;
    const CString ownDefault = own != nullptr ? own->GetFieldDefaultValueName(id) : CString();
    switch (field->type) {
      case 4: {
        const CString value = src->GetFieldString(id, 0);
        if (value != ownDefault || value != GetFieldString(id, 0)) SetValueStr(id, value, 1);
        break;
      }
      case 3: {
        const int value = src->GetFieldBool(id) != 0 ? 1 : 0;
        const int defaultValue = ownDefault == "1" ? 1 : 0;
        const int here = GetFieldBool(id) != 0 ? 1 : 0;
        if (value != defaultValue || value != here) SetValueBOOL(id, value, 1);
        break;
      }
      case 0:
        SetValueInt(id, src->GetFieldInt(id), 1);
        break;
      case 2:
        SetValueDate(id, src->GetFieldDate(id), 1);
        break;
      case 1:
        SetValueDouble(id, src->GetFieldDouble(id), 1);
        break;
      default:
        break;
    }
  }
}

int INIFocusable::NeedToSave() {
  return (!pendingInt_.empty() || !pendingString_.empty() || !pendingBool_.empty() ||
          !pendingDate_.empty() || !pendingDouble_.empty())
             ? 1
             : 0;
}

// --- Reading ---------------------------------------------------------------

Relation* INIFocusable::GetOwnRelation() {
  GlobalRelationsCtrl* catalogue = GlobalRelationsCtrl::GetGlobalRelationsCtrl();
  if (catalogue == nullptr) return nullptr;
  return catalogue->GetRelation(GetFocusableRelation());
}

CString INIFocusable::ReadStoredText(int id, bool* available) {
  *available = false;
  CWinApp* app = CWinApp::Current();
  Relation* relation = GetOwnRelation();
  if (app == nullptr || relation == nullptr) return CString();
  *available = true;
  const CString key = relation->GetFieldDecorationName(id);
  const CString defaultText = relation->GetFieldDefaultValueName(id);
  if (registryRoot_.IsEmpty()) {
    if (key.IsEmpty()) return defaultText;
    return app->GetProfileString(section_, key, defaultText);
  }
  // Another application's settings: a key that does not exist reads as
  // nothing at all, a value that is missing, empty, too long or neither
  // text nor number as the default.
  Registry* registry = app->GetRegistry();
  const CString path = registryRoot_ + CString(u"\\") + section_;
  if (registry == nullptr || !registry->KeyExists(RegHive::kCurrentUser, path)) return CString();
  RegValue value;
  CString text;
  if (registry->QueryValue(RegHive::kCurrentUser, path, key, &value) == ERROR_SUCCESS) {
    if (RegValue::IsStringType(value.type)) {
      text = value.text;
    } else if (value.type == REG_DWORD) {
      text.Format("%d", static_cast<int>(static_cast<uint32_t>(value.integer)));
    } else if (value.type == REG_QWORD) {
      text = CString(std::to_string(static_cast<long long>(value.integer)).c_str());
    }
  }
  if (text.GetLength() > kMaxRootValueLength) text = CString();
  return text.IsEmpty() ? defaultText : text;
}

CString INIFocusable::GetFieldString(int id, int /*part*/) {
  auto held = pendingString_.find(id);
  if (held != pendingString_.end()) return held->second;
  bool available = false;
  return ReadStoredText(id, &available);
}

int INIFocusable::GetFieldInt(int id) {
  auto held = pendingInt_.find(id);
  if (held != pendingInt_.end()) return held->second;
  CWinApp* app = CWinApp::Current();
  Relation* relation = GetOwnRelation();
  if (app == nullptr || relation == nullptr) return 0;
  const CString key = relation->GetFieldDecorationName(id);
  if (registryRoot_.IsEmpty() && !key.IsEmpty()) {
    return app->GetProfileInt(section_, key, _wtoi(relation->GetFieldDefaultValueName(id)));
  }
  bool available = false;
  return _wtoi(ReadStoredText(id, &available));
}

int INIFocusable::GetFieldBool(int id) {
  auto held = pendingBool_.find(id);
  if (held != pendingBool_.end()) return held->second;
  bool available = false;
  return ReadStoredText(id, &available) == "1" ? 1 : 0;
}

double INIFocusable::GetFieldDouble(int id) {
  auto held = pendingDouble_.find(id);
  if (held != pendingDouble_.end()) return held->second;
  bool available = false;
  return _wtof(ReadStoredText(id, &available));
}

COleDateTime INIFocusable::GetFieldDate(int id) {
  auto held = pendingDate_.find(id);
  if (held != pendingDate_.end()) return held->second;
  bool available = false;
  const CString text = ReadStoredText(id, &available);
  if (text.IsEmpty()) return COleDateTime::Invalid();
  return KorlanDateTime::StringToDateTime(text, 0);
}

// --- Writing ---------------------------------------------------------------

int INIFocusable::WriteThrough(int id, const CString& text, bool asInt, int number) {
  lastWrite_ = WriteResult::kNoPlace;
  CWinApp* app = CWinApp::Current();
  Relation* relation = GetOwnRelation();
  if (app == nullptr || relation == nullptr) return 0;
  RGDBTemplate* layout = relation->GetRGDBTemplate();
  if (layout == nullptr || id < 0 || id >= layout->GetFieldCount()) return 0;
  const CString key = relation->GetFieldDecorationName(id);
  if (key.IsEmpty()) return 0;
  const int written = asInt ? app->WriteProfileInt(section_, key, number)
                            : app->WriteProfileString(section_, key, text);
  lastWrite_ = written == 1 ? WriteResult::kWritten : WriteResult::kFailed;
  return written == 1 ? 1 : 0;
}

int INIFocusable::SetValueStr(int id, CString text, int /*markChanged*/) {
  lastWrite_ = WriteResult::kNoPlace;
  if (impl_ == nullptr) return 0;
  if (IsSavable() == 0) {
    pendingString_[id] = std::move(text);
    return 1;
  }
  return WriteThrough(id, text, false, 0);
}

int INIFocusable::SetValueInt(int id, int value, int /*markChanged*/) {
  lastWrite_ = WriteResult::kNoPlace;
  if (impl_ == nullptr) return 0;
  if (IsSavable() == 0) {
    pendingInt_[id] = value;
    return 1;
  }
  return WriteThrough(id, CString(), true, value);
}

int INIFocusable::SetValueBOOL(int id, int value, int /*markChanged*/) {
  lastWrite_ = WriteResult::kNoPlace;
  if (impl_ == nullptr) return 0;
  if (IsSavable() == 0) {
    pendingBool_[id] = value;
    return 1;
  }
  return WriteThrough(id, CString(value != 0 ? u"1" : u"0"), false, 0);
}

int INIFocusable::SetValueDouble(int id, double value, int /*markChanged*/) {
  lastWrite_ = WriteResult::kNoPlace;
  if (impl_ == nullptr) return 0;
  if (IsSavable() == 0) {
    pendingDouble_[id] = value;
    return 1;
  }
  return WriteThrough(id, CString::Formatted("%f", value), false, 0);
}

int INIFocusable::SetValueDate(int id, COleDateTime value, int /*markChanged*/) {
  lastWrite_ = WriteResult::kNoPlace;
  if (impl_ == nullptr) return 0;
  if (IsSavable() == 0) {
    pendingDate_[id] = value;
    return 1;
  }
  return WriteThrough(id, KorlanDateTime::DateTimeToSimpleString(value, 0), false, 0);
}

}  // namespace kordll
