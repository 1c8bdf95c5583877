#include "kordll/toolkit/IXMLDOMDocument.h"

#include <libxml/tree.h>
#include <libxml/xmlsave.h>

#include <string>
#include <vector>

#include "kordll/toolkit/IXMLDOMElement.h"
#include "kordll/toolkit/IXMLDOMNode.h"
#include "kordll/toolkit/IXMLDOMNodeList.h"

namespace kordll {

namespace {

// The name an element is known by in its document: "prefix:local" or
// "local".
std::string QualifiedName(const xmlNode* node) {
  std::string name;
  if (node->ns != nullptr && node->ns->prefix != nullptr) {
    name = reinterpret_cast<const char*>(node->ns->prefix);
    name += ':';
  }
  if (node->name != nullptr) name += reinterpret_cast<const char*>(node->name);
  return name;
}

}  // namespace

IXMLDOMDocument::IXMLDOMDocument(XmlTreeRef tree) : tree_(std::move(tree)) {}

XmlTreeRef IXMLDOMDocument::NewTree() {
  xmlDocPtr doc = xmlNewDoc(BAD_CAST "1.0");
  return XmlTreeRef(doc, [](xmlDoc* d) {
    if (d != nullptr) xmlFreeDoc(d);
  });
}

unsigned long IXMLDOMDocument::AddRef() { return ++refs_; }

unsigned long IXMLDOMDocument::Release() {
  unsigned long left = --refs_;
  if (left == 0) delete this;
  return left;
}

int IXMLDOMDocument::get_documentElement(IXMLDOMElement** out) {
  if (out == nullptr || !tree_) return 0;
  xmlNode* root = xmlDocGetRootElement(tree_.get());
  if (root == nullptr) return 0;
  IXMLDOMNode* node = IXMLDOMNode::Wrap(tree_, root);
  if (node == nullptr) return 0;
  *out = node->AsElement();
  return 1;
}

int IXMLDOMDocument::getElementsByTagName(const CString& tag, IXMLDOMNodeList** out) {
  if (out == nullptr || !tree_) return 0;
  const std::string wanted = tag.ToUtf8();
  const bool all = wanted == "*";
  std::vector<xmlNode*> found;
  // Pre-order walk without recursion, so that no depth of the document can
  // exhaust the stack. Only element children are entered.
  xmlNode* cur = tree_->children;
  while (cur != nullptr) {
    if (cur->type == XML_ELEMENT_NODE) {
      if (all || QualifiedName(cur) == wanted) found.push_back(cur);
      if (cur->children != nullptr) {
        cur = cur->children;
        continue;
      }
    }
    while (cur != nullptr && cur->next == nullptr) {
      cur = cur->parent;
      if (cur == reinterpret_cast<xmlNode*>(tree_.get())) cur = nullptr;
    }
    if (cur != nullptr) cur = cur->next;
  }
  *out = new IXMLDOMNodeList(tree_, std::move(found));
  return 1;
}

int IXMLDOMDocument::get_xml(CString* out) {
  if (out == nullptr || !tree_) return 0;
  xmlChar* text = nullptr;
  int size = 0;
  xmlDocDumpMemoryEnc(tree_.get(), &text, &size, "UTF-8");
  if (text == nullptr) return 0;
  *out = CString::FromUtf8(std::string_view(reinterpret_cast<const char*>(text), size));
  xmlFree(text);
  return 1;
}

void IXMLDOMDocument::ResetTree() { tree_ = NewTree(); }

}  // namespace kordll
