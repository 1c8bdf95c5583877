#include "kordll/toolkit/PrintTemplate.h"

#include <algorithm>
#include <unordered_set>

#include "kordll/record/LibraryLifetime.h"
#include "kordll/record/MemoryHeap.h"
#include "kordll/toolkit/CXMLFile.h"

namespace kordll {

namespace {

// Created and released with the library; see InitializePrintTemplateCache.
MemoryHeap* g_templateCache = nullptr;

// The two pools start and stop with the library, after the item pools:
// tags first, then templates.
const bool g_cachesRegistered = [] {
  KordllRegisterCache(&PrintTag::InitializePrintTagCache, &PrintTag::ReleasePrintTagCache);
  KordllRegisterCache(&PrintTemplate::InitializePrintTemplateCache,
                      &PrintTemplate::ReleasePrintTemplateCache);
  return true;
}();

}  // namespace

PrintTemplate* PrintTemplate::GeneratePrintTemplate(CString name) {
  return new PrintTemplate(std::move(name));
}

PrintTemplate::PrintTemplate(CString name) { InitializePrintTemplate(std::move(name)); }

PrintTemplate::~PrintTemplate() { ResetPrintTemplate(); }

void* PrintTemplate::operator new(size_t size) noexcept {
  if (g_templateCache == nullptr) return nullptr;
  return g_templateCache->operator_new(size);
}

void PrintTemplate::operator delete(void* pointer) noexcept {
  if (g_templateCache != nullptr) g_templateCache->operator_delete(pointer);
}

void PrintTemplate::InitializePrintTemplateCache() {
  (void)g_cachesRegistered;
  if (g_templateCache == nullptr) {
    g_templateCache = new MemoryHeap(static_cast<int>(sizeof(PrintTemplate)));
  }
}

void PrintTemplate::ReleasePrintTemplateCache() {
  delete g_templateCache;
  g_templateCache = nullptr;
}

MemoryHeap* PrintTemplate::GetPrintTemplateCache() { return g_templateCache; }

void PrintTemplate::InitializePrintTemplate(CString name) {
  if (root_ != nullptr) DestroyRoot();
  if (name.IsEmpty()) return;
  root_ = new PrintTag(std::move(name));
  root_->child_ = this;
}

void PrintTemplate::DestroyRoot() {
  PrintTag* root = root_;
  root_ = nullptr;
  // The root's link back to this template goes first, so that destroying
  // the root does not destroy this template again.
  root->child_ = nullptr;
  if (root->owner_ != nullptr && root->owner_ != this) root->owner_->ForgetTag(root);
  delete root;
}

void PrintTemplate::ResetPrintTemplate() {
  if (root_ != nullptr) DestroyRoot();
  std::map<CString, CArray<PrintTag*, PrintTag*>> lists;
  lists.swap(byName_);
  ordered_.clear();
  for (auto& [name, tags] : lists) {
    for (PrintTag* tag : tags) {
      if (tag->child_ == this) tag->child_ = nullptr;
      // The tag's owner is this level, which is going away: the tag must not
      // ask it to forget anything.
      tag->owner_ = nullptr;
      delete tag;
    }
  }
}

int PrintTemplate::SetRootTagName(CString name) {
  if (root_ == nullptr) return 0;
  root_->name_ = std::move(name);
  return 1;
}

int PrintTemplate::AddPrintTemplate(PrintTemplate* child) {
  if (child == nullptr || child->root_ == nullptr || child->root_->name_.IsEmpty()) return 0;
  if (child->root_->owner_ != nullptr) return 0;
  // A template may not hold itself or one of its ancestors.
  for (PrintTemplate* level = this; level != nullptr; level = level->GetParentPrintTemplate()) {
    if (level == child) return 0;
  }
  PrintTag* tag = child->root_;
  byName_[tag->name_].push_back(tag);
  ordered_.push_back(tag);
  tag->owner_ = this;
  return 1;
}

PrintTag* PrintTemplate::AddTag_wObj(PrintTag* tag) {
  if (tag == nullptr || tag == root_) return nullptr;
  CArray<PrintTag*, PrintTag*>& list = byName_[tag->name_];
  if (std::find(list.begin(), list.end(), tag) != list.end()) return nullptr;
  list.push_back(tag);
  ordered_.push_back(tag);
  return tag;
}

PrintTag* PrintTemplate::AddTag(CString name, CString value, int cdata) {
  if (name.IsEmpty() || value.IsEmpty()) return nullptr;
  PrintTag* tag = new PrintTag(std::move(name));
  tag->value_ = cdata ? PrintTag::WrapCDATA(value) : std::move(value);
  byName_[tag->name_].push_back(tag);
  ordered_.push_back(tag);
  tag->owner_ = this;
  return tag;
}

PrintTag* PrintTemplate::AddTag_wIntValue(CString name, int value) {
  return AddTag(std::move(name), CString::Formatted("%d", value), 0);
}

int PrintTemplate::SetAttribute(CString name, CString value) {
  if (root_ == nullptr) return 0;
  return root_->SetTagAttribute(std::move(name), std::move(value), 0);
}

int PrintTemplate::SetAttribute_wInt(CString name, int value) {
  if (root_ == nullptr) return 0;
  return root_->SetTagAttribute_wInt(std::move(name), value);
}

int PrintTemplate::RemoveAttribute(CString name) {
  if (root_ == nullptr) return 0;
  return root_->RemoveTagAttribute(std::move(name));
}

int PrintTemplate::RemoveTag(CString name) {
  auto it = byName_.find(name);
  if (it == byName_.end()) return 0;
  CArray<PrintTag*, PrintTag*> tags = std::move(it->second);
  byName_.erase(it);
  // The tags leave the order too, so that no flush meets a destroyed tag.
  std::unordered_set<PrintTag*> gone(tags.begin(), tags.end());
  std::erase_if(ordered_, [&gone](PrintTag* tag) { return gone.count(tag) != 0; });
  for (PrintTag* tag : tags) {
    tag->owner_ = nullptr;
    delete tag;
  }
  return 1;
}

void PrintTemplate::ForgetTag(PrintTag* tag) {
  auto it = byName_.find(tag->name_);
  if (it != byName_.end()) {
    std::erase(it->second, tag);
    if (it->second.empty()) byName_.erase(it);
  } else {
    // Renamed since it was added: look through every list.
    for (auto list = byName_.begin(); list != byName_.end(); ++list) {
      if (std::erase(list->second, tag) != 0) {
        if (list->second.empty()) byName_.erase(list);
        break;
      }
    }
  }
  std::erase(ordered_, tag);
  tag->owner_ = nullptr;
}

PrintTag* PrintTemplate::GetTag(CString name) {
  auto it = byName_.find(name);
  if (it == byName_.end() || it->second.empty()) return nullptr;
  return it->second.front();
}

CArray<PrintTag*, PrintTag*>* PrintTemplate::GetTags(CString name) {
  auto it = byName_.find(name);
  return it != byName_.end() ? &it->second : nullptr;
}

PrintTemplate* PrintTemplate::GetParentPrintTemplate() {
  return root_ != nullptr ? root_->owner_ : nullptr;
}

void PrintTemplate::AppendTemplate(std::u16string& out, int levelOnly) const {
  if (levelOnly == 0 && root_ != nullptr) {
    root_->AppendTag(out);
    return;
  }
  for (const PrintTag* tag : ordered_) {
    if (tag == nullptr) continue;
    tag->AppendTag(out);
    out += u'\n';
  }
}

CString PrintTemplate::FlushTemplate(int levelOnly) {
  std::u16string out;
  AppendTemplate(out, levelOnly);
  return CString(std::move(out));
}

int PrintTemplate::FlushTemplateIntoXMLFile(CXMLFile* xml, IXMLDOMElement* parent,
                                            IXMLDOMNode** out, int levelOnly) {
  if (levelOnly == 0 && root_ != nullptr) return root_->FlushTagIntoXMLFile(xml, parent, out);
  int result = 0;
  for (const auto& [name, tags] : byName_) {
    if (name.IsEmpty()) continue;
    for (PrintTag* tag : tags) {
      if (tag != nullptr) result |= tag->FlushTagIntoXMLFile(xml, parent, out);
    }
  }
  return result;
}

}  // namespace kordll
