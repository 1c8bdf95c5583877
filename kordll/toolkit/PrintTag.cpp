#include "kordll/toolkit/PrintTag.h"

#include "kordll/record/MemoryHeap.h"
#include "kordll/toolkit/CXMLFile.h"
#include "kordll/toolkit/PrintTemplate.h"

namespace kordll {

namespace {

// Created and released with the library; see InitializePrintTagCache.
MemoryHeap* g_tagCache = nullptr;

}  // namespace

PrintTag::PrintTag(CString name) : name_(std::move(name)) {}

PrintTag::~PrintTag() { ResetPrintTag(); }

void PrintTag::InitializePrintTagCache() {
  if (g_tagCache == nullptr) g_tagCache = new MemoryHeap(static_cast<int>(sizeof(PrintTag)));
}

void PrintTag::ReleasePrintTagCache() {
  delete g_tagCache;
  g_tagCache = nullptr;
}

MemoryHeap* PrintTag::GetPrintTagCache() { return g_tagCache; }

void PrintTag::ResetPrintTag() {
  if (child_ != nullptr && child_->root_ == this) {
    // The child must not destroy its root, which is this tag, again.
    PrintTemplate* child = child_;
    child->root_ = nullptr;
    child_ = nullptr;
    delete child;
  }
  owner_ = nullptr;
  child_ = nullptr;
  value_.Empty();
  name_.Empty();
  attributes_.clear();
}

CString PrintTag::WrapCDATA(const CString& value) {
  return CString("<![CDATA[") + value + CString("]]>");
}

void PrintTag::AppendTag(std::u16string& out) const {
  out += u'<';
  out += name_.str();
  for (const auto& [name, value] : attributes_) {
    if (name.IsEmpty() || value.IsEmpty()) continue;
    out += u' ';
    out += name.str();
    out += u"=\"";
    out += value.str();
    out += u'"';
  }
  out += u'>';
  if (!value_.IsEmpty()) {
    out += value_.str();
  } else if (child_ != nullptr) {
    child_->AppendTemplate(out, 1);
  }
  out += u"</";
  out += name_.str();
  out += u'>';
}

CString PrintTag::FlushTag() {
  std::u16string out;
  AppendTag(out);
  return CString(std::move(out));
}

int PrintTag::FlushTagIntoXMLFile(CXMLFile* xml, IXMLDOMElement* parent, IXMLDOMNode** out) {
  if (xml == nullptr || out == nullptr) return 0;
  int result = 1;
  int step = 0;
  if (parent != nullptr) {
    step = xml->AddNewNode(out, parent, name_, value_);
  } else {
    step = xml->CreateRootNode(name_);
    IXMLDOMElement* root = nullptr;
    if (step && xml->GetRootNode(&root)) {
      if (*out != nullptr) (*out)->Release();
      *out = root;
    } else {
      step = 0;
    }
  }
  result |= step;
  bool well = step != 0;
  IXMLDOMElement* element = (well && *out != nullptr) ? (*out)->AsElement() : nullptr;
  for (const auto& [name, value] : attributes_) {
    if (name.IsEmpty() || value.IsEmpty()) continue;
    int added = xml->AddAttribute(element, name, value);
    result |= added;
    if (!added) well = false;
  }
  if (child_ != nullptr && well) {
    IXMLDOMNode* scratch = nullptr;
    result |= child_->FlushTemplateIntoXMLFile(xml, element, &scratch, 1);
    if (scratch != nullptr) scratch->Release();
  }
  return result;
}

int PrintTag::AddTagAttribute(CString name, CString value, int cdata) {
  if (attributes_.count(name) != 0) return 0;
  attributes_.emplace(std::move(name), cdata ? WrapCDATA(value) : std::move(value));
  return 1;
}

int PrintTag::SetTagAttribute(CString name, CString value, int cdata) {
  attributes_[std::move(name)] = cdata ? WrapCDATA(value) : std::move(value);
  return 1;
}

int PrintTag::SetTagAttribute_wInt(CString name, int value) {
  attributes_[std::move(name)] = CString::Formatted("%d", value);
  return 1;
}

int PrintTag::RemoveTagAttribute(CString name) { return attributes_.erase(name) != 0 ? 1 : 0; }

CString PrintTag::GetAttribute(CString name) {
  auto it = attributes_.find(name);
  return it != attributes_.end() ? it->second : CString();
}

}  // namespace kordll
