#include "kordll/record/RelationsEntryPoints.h"

#include <atomic>
#include <unordered_map>

#include "kordll/platform/CCriticalSection.h"

namespace kordll {

namespace {

std::atomic<RelationsEntryPoints*> g_installed{nullptr};

// The default table of templates, given in by the caller while no catalogue
// stands. Looked up on every load and save, written rarely.
struct TemplateTable {
  CCriticalSection lock;
  std::unordered_map<int, RGDBTemplate*> layouts;  // guarded by lock
};

TemplateTable& Table() {
  static TemplateTable* table = new TemplateTable();  // never destroyed
  return *table;
}

RelationsEntryPoints& Default() {
  static RelationsEntryPoints* fallback = new RelationsEntryPoints();  // never destroyed
  return *fallback;
}

}  // namespace

RelationsEntryPoints::~RelationsEntryPoints() = default;

RelationsEntryPoints* RelationsEntryPoints::Get() {
  RelationsEntryPoints* entry = g_installed.load(std::memory_order_acquire);
  return entry != nullptr ? entry : &Default();
}

RelationsEntryPoints* RelationsEntryPoints::Install(RelationsEntryPoints* entry) {
  return g_installed.exchange(entry, std::memory_order_acq_rel);
}

RGDBTemplate* RelationsEntryPoints::GetRGDBTemplate(int relation) {
  TemplateTable& table = Table();
  CSingleLock hold(table.lock);
  auto it = table.layouts.find(relation);
  return it != table.layouts.end() ? it->second : nullptr;
}

PrintTemplate* RelationsEntryPoints::DecorateFocusable(Focusable*, int) { return nullptr; }

PrintTemplate* RelationsEntryPoints::PrintFocusableBackup(Focusable*) { return nullptr; }

int RelationsEntryPoints::AddPrintTemplateAttribute(PrintTemplate*, CString, CString) { return 0; }

void RelationsEntryPoints::SetTemplate(int relation, RGDBTemplate* layout) {
  TemplateTable& table = Table();
  CSingleLock hold(table.lock);
  if (layout == nullptr) {
    table.layouts.erase(relation);
  } else {
    table.layouts[relation] = layout;
  }
}

void RelationsEntryPoints::ClearTemplates() {
  TemplateTable& table = Table();
  CSingleLock hold(table.lock);
  table.layouts.clear();
}

}  // namespace kordll
