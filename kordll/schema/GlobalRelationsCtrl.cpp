#include "kordll/schema/GlobalRelationsCtrl.h"

#include <atomic>
#include <cstdint>
#include <string>

#include "kordll/platform/WinFile.h"
#include "kordll/record/DBTaskItem.h"
#include "kordll/record/FieldInfo.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/RGDBTemplate.h"
#include "kordll/record/RelationsEntryPoints.h"
#include "kordll/schema/Relation.h"
#include "kordll/toolkit/PrintTemplate.h"

namespace kordll {

// Answers the record core's questions from the catalogue that owns it. The
// record core lies under the catalogue and reaches it only through this
// object, installed while its owner is the instance of the process.
class GlobalRelationsCtrl::CatalogueEntryPoints : public RelationsEntryPoints {
 public:
  explicit CatalogueEntryPoints(GlobalRelationsCtrl* owner) : owner_(owner) {}

  RGDBTemplate* GetRGDBTemplate(int relation) override {
    const Relation* found = owner_->GetRelation(relation);
    return found ? found->GetRGDBTemplate() : nullptr;
  }

  PrintTemplate* DecorateFocusable(Focusable* record, int escape) override {
    const Relation* found = RelationOf(record);
    return found ? found->DecorateFocusable(record, escape) : nullptr;
  }

  PrintTemplate* PrintFocusableBackup(Focusable* record) override {
    const Relation* found = RelationOf(record);
    return found ? found->PrintFocusableBackup(record) : nullptr;
  }

  int AddPrintTemplateAttribute(PrintTemplate* printed, CString name, CString value) override {
    return printed ? printed->SetAttribute(name, value) : 0;
  }

 private:
  const Relation* RelationOf(Focusable* record) const {
    return record ? owner_->GetRelation(record->GetFocusableRelation()) : nullptr;
  }

  GlobalRelationsCtrl* const owner_;  // owns this object
};

int GlobalRelationsCtrl::m_iRelationDistID = 1;

namespace {

// The instance of the process; null while none stands.
std::atomic<GlobalRelationsCtrl*> g_instance{nullptr};
// Where the settings owner keeps the current user's running path.
std::atomic<GlobalRelationsCtrl::RunningPathSource> g_runningPathSource{nullptr};

const char16_t kRelationDistName[] = u"//RelationDist.korr";

}  // namespace

GlobalRelationsCtrl::GlobalRelationsCtrl() {
  LoadDefaultRelations();
  // The first catalogue made becomes the instance; a second one made while
  // it stands (a tool's private copy, say) is a plain catalogue and leaves
  // the process's answers alone.
  GlobalRelationsCtrl* expected = nullptr;
  if (g_instance.compare_exchange_strong(expected, this)) {
    entryPoints_ = std::make_unique<CatalogueEntryPoints>(this);
    RelationsEntryPoints::Install(entryPoints_.get());
  }
}

GlobalRelationsCtrl::~GlobalRelationsCtrl() {
  if (entryPoints_) {
    // Only take back our own answers: somebody (a test) may have installed
    // others since.
    if (RelationsEntryPoints::Get() == entryPoints_.get()) RelationsEntryPoints::Install(nullptr);
    GlobalRelationsCtrl* expected = this;
    g_instance.compare_exchange_strong(expected, nullptr);
  }
  for (auto& entry : relations_) delete entry.second;
  relations_.clear();
}

GlobalRelationsCtrl* GlobalRelationsCtrl::GetGlobalRelationsCtrl() { return g_instance.load(); }

int GlobalRelationsCtrl::AddRelation(Relation* relation, int replace) {
  if (relation == nullptr) return 0;
  const int id = relation->GetRelationID();
  auto it = relations_.find(id);
  if (it != relations_.end() && it->second != nullptr) {
    if (!replace) return 0;
    if (it->second == relation) return 1;  // storing it again changes nothing
    delete it->second;
    it->second = relation;
    return 1;
  }
  relations_[id] = relation;
  return 1;
}

Relation* GlobalRelationsCtrl::RemoveRelation(int id) {
  auto it = relations_.find(id);
  if (it == relations_.end()) return nullptr;
  Relation* relation = it->second;
  relations_.erase(it);
  return relation;
}

Relation* GlobalRelationsCtrl::GetRelation(int id) const {
  auto it = relations_.find(id);
  return it == relations_.end() ? nullptr : it->second;
}

std::vector<int> GlobalRelationsCtrl::GetRelationIDs() const {
  std::vector<int> ids;
  ids.reserve(relations_.size());
  for (const auto& entry : relations_) ids.push_back(entry.first);
  return ids;
}

RGDBTemplate* GlobalRelationsCtrl::GetRGDBTemplate(int id) {
  const GlobalRelationsCtrl* catalogue = GetGlobalRelationsCtrl();
  if (catalogue == nullptr) return nullptr;
  const Relation* relation = catalogue->GetRelation(id);
  return relation ? relation->GetRGDBTemplate() : nullptr;
}

void GlobalRelationsCtrl::LoadRelationFields(int relationId, int fieldType,
                                             DBTaskItem* task) const {
  const Relation* relation = GetRelation(relationId);
  if (relation == nullptr || task == nullptr) return;
  const RGDBTemplate* layout = relation->GetRGDBTemplate();
  if (layout == nullptr) return;
  const int count = layout->GetFieldCount();
  for (int index = 0; index < count; ++index) {
    const FieldInfo* field = layout->GetField(index);
    if (field != nullptr && field->type == fieldType) {
      task->DefineFieldTaskType(field->id, DBTaskItem::kTaskLoad);
    }
  }
}

void GlobalRelationsCtrl::SetRunningPathSource(RunningPathSource source) {
  g_runningPathSource.store(source);
}

int GlobalRelationsCtrl::CheckRelationDist() {
  RunningPathSource source = g_runningPathSource.load();
  if (source == nullptr) return 0;
  return CheckRelationDist(source());
}

int GlobalRelationsCtrl::CheckRelationDist(CString runningPath) {
  // Without a running path the name would point at the root of the file
  // system; there is no user folder to write into yet.
  if (runningPath.IsEmpty()) return 0;
  const CString path = runningPath + CString(kRelationDistName);
  WinFile existing;
  if (existing.Open(path, GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING)) {
    // The file records the schema of the user's first run: never rewritten.
    existing.Close();
    return 1;
  }
  return UpdateRelationDist(path);
}

CString GlobalRelationsCtrl::BuildRelationDistText() {
  const GlobalRelationsCtrl* catalogue = GetGlobalRelationsCtrl();
  if (catalogue == nullptr) return CString();
  CString text = CString::Formatted("%d", m_iRelationDistID);
  for (const auto& entry : catalogue->relations_) {
    const Relation* relation = entry.second;
    if (relation == nullptr) continue;
    text.AppendFormat("|%d", entry.first);
    const RGDBTemplate* layout = relation->GetRGDBTemplate();
    const int count = layout ? layout->GetFieldCount() : 0;
    for (int index = 0; index < count; ++index) {
      const FieldInfo* field = layout->GetField(index);
      if (field == nullptr) {
        text += u":0 0 0";
      } else {
        text.AppendFormat(":%d %d %d", field->id, field->size, field->type);
      }
    }
    text += u'\n';
  }
  return text;
}

int GlobalRelationsCtrl::UpdateRelationDist(CString path) {
  if (GetGlobalRelationsCtrl() == nullptr) return 0;
  const CString text = BuildRelationDistText();

  // The text is 16-bit units; the byte count passed to the write is the
  // count of units, so only the first half of the text (as UTF-16LE) reaches
  // the file. Files of this kind have always held exactly that.
  std::string bytes;
  bytes.reserve(static_cast<size_t>(text.GetLength()) * 2);
  for (char16_t unit : text.view()) {
    bytes.push_back(static_cast<char>(unit & 0xFF));
    bytes.push_back(static_cast<char>(unit >> 8));
  }
  const uint32_t count = static_cast<uint32_t>(text.GetLength());

  WinFile file;
  // A failed create is not checked here: the write then fails and the byte
  // count decides the result.
  file.Open(path, GENERIC_WRITE, FILE_SHARE_WRITE, CREATE_ALWAYS);
  uint32_t written = 0;
  file.WriteFile(bytes.data(), count, &written);
  if (written != count) return 0;
  file.Close();
  return 1;
}

}  // namespace kordll
