#include "kordll/toolkit/IXMLDOMNode.h"

#include <libxml/tree.h>
#include <libxml/xpath.h>

#include <string>
#include <vector>

#include "kordll/toolkit/IXMLDOMElement.h"
#include "kordll/toolkit/IXMLDOMNodeList.h"

namespace kordll {

namespace {

CString FromXmlText(const xmlChar* text) {
  if (text == nullptr) return CString();
  return CString::FromUtf8(reinterpret_cast<const char*>(text));
}

// XPath errors are answers (0), never output.
void IgnoreError(void*, xmlError*) {}

bool HasChildList(const xmlNode* node) {
  return node->type == XML_ELEMENT_NODE || node->type == XML_DOCUMENT_NODE ||
         node->type == XML_ATTRIBUTE_NODE;
}

xmlDoc* DocumentOf(xmlNode* node) {
  if (node->type == XML_DOCUMENT_NODE) return reinterpret_cast<xmlDoc*>(node);
  return node->doc;
}

}  // namespace

IXMLDOMNode::IXMLDOMNode(XmlTreeRef tree, _xmlNode* node) : tree_(std::move(tree)), node_(node) {}

IXMLDOMNode::~IXMLDOMNode() = default;

IXMLDOMNode* IXMLDOMNode::Wrap(const XmlTreeRef& tree, _xmlNode* node) {
  if (node == nullptr || !tree) return nullptr;
  // A namespace declaration is not a node of the tree, whatever an XPath
  // node-set says; it is never handed out.
  if (node->type == XML_NAMESPACE_DECL) return nullptr;
  if (node->type == XML_ELEMENT_NODE) return new IXMLDOMElement(tree, node);
  return new IXMLDOMNode(tree, node);
}

unsigned long IXMLDOMNode::AddRef() { return ++refs_; }

unsigned long IXMLDOMNode::Release() {
  unsigned long left = --refs_;
  if (left == 0) delete this;
  return left;
}

IXMLDOMElement* IXMLDOMNode::AsElement() {
  if (node_->type != XML_ELEMENT_NODE) return nullptr;
  return static_cast<IXMLDOMElement*>(this);
}

int IXMLDOMNode::get_nodeType(int* type) {
  if (type == nullptr) return 0;
  *type = static_cast<int>(node_->type);
  return 1;
}

int IXMLDOMNode::get_nodeName(CString* name) {
  if (name == nullptr) return 0;
  switch (node_->type) {
    case XML_TEXT_NODE:
      *name = CString("#text");
      return 1;
    case XML_CDATA_SECTION_NODE:
      *name = CString("#cdata-section");
      return 1;
    case XML_COMMENT_NODE:
      *name = CString("#comment");
      return 1;
    case XML_DOCUMENT_NODE:
      *name = CString("#document");
      return 1;
    default:
      break;
  }
  std::string qualified;
  if ((node_->type == XML_ELEMENT_NODE || node_->type == XML_ATTRIBUTE_NODE) &&
      node_->ns != nullptr && node_->ns->prefix != nullptr) {
    qualified = reinterpret_cast<const char*>(node_->ns->prefix);
    qualified += ':';
  }
  if (node_->name != nullptr) qualified += reinterpret_cast<const char*>(node_->name);
  *name = CString::FromUtf8(qualified);
  return 1;
}

int IXMLDOMNode::get_text(CString* text) {
  if (text == nullptr) return 0;
  xmlChar* content = xmlNodeGetContent(node_);
  *text = FromXmlText(content);
  if (content != nullptr) xmlFree(content);
  return 1;
}

int IXMLDOMNode::get_xml(CString* xml) {
  if (xml == nullptr) return 0;
  if (node_->type == XML_DOCUMENT_NODE) {
    xmlChar* text = nullptr;
    int size = 0;
    xmlDocDumpMemoryEnc(reinterpret_cast<xmlDoc*>(node_), &text, &size, "UTF-8");
    if (text == nullptr) return 0;
    *xml = CString::FromUtf8(std::string_view(reinterpret_cast<const char*>(text), size));
    xmlFree(text);
    return 1;
  }
  xmlBufferPtr buffer = xmlBufferCreate();
  if (buffer == nullptr) return 0;
  int written = xmlNodeDump(buffer, node_->doc, node_, 0, 0);
  if (written >= 0) *xml = FromXmlText(xmlBufferContent(buffer));
  xmlBufferFree(buffer);
  return written >= 0 ? 1 : 0;
}

int IXMLDOMNode::get_firstChild(IXMLDOMNode** out) {
  // Only elements, documents and attributes own their children; an entity
  // reference's children belong to the entity's declaration.
  if (out == nullptr || !HasChildList(node_)) return 0;
  IXMLDOMNode* child = Wrap(tree_, node_->children);
  if (child == nullptr) return 0;
  *out = child;
  return 1;
}

int IXMLDOMNode::get_nextSibling(IXMLDOMNode** out) {
  if (out == nullptr || node_->type == XML_DOCUMENT_NODE) return 0;
  IXMLDOMNode* next = Wrap(tree_, node_->next);
  if (next == nullptr) return 0;
  *out = next;
  return 1;
}

int IXMLDOMNode::get_parentNode(IXMLDOMNode** out) {
  // As in the DOM, an attribute has no parent node.
  if (out == nullptr || node_->type == XML_ATTRIBUTE_NODE) return 0;
  IXMLDOMNode* parent = Wrap(tree_, node_->parent);
  if (parent == nullptr) return 0;
  *out = parent;
  return 1;
}

int IXMLDOMNode::selectNodes(const CString& path, IXMLDOMNodeList** out) {
  if (out == nullptr) return 0;
  xmlDoc* doc = DocumentOf(node_);
  if (doc == nullptr) return 0;
  xmlXPathContextPtr context = xmlXPathNewContext(doc);
  if (context == nullptr) return 0;
  context->error = IgnoreError;
  context->node = node_;
  const std::string expression = path.ToUtf8();
  int result = 0;
  xmlXPathCompExprPtr compiled = xmlXPathCtxtCompile(context, BAD_CAST expression.c_str());
  if (compiled != nullptr) {
    xmlXPathObjectPtr value = xmlXPathCompiledEval(compiled, context);
    if (value != nullptr && value->type == XPATH_NODESET) {
      std::vector<xmlNode*> nodes;
      if (value->nodesetval != nullptr) {
        nodes.reserve(value->nodesetval->nodeNr);
        for (int i = 0; i < value->nodesetval->nodeNr; ++i) {
          xmlNode* node = value->nodesetval->nodeTab[i];
          if (node != nullptr && node->type != XML_NAMESPACE_DECL) nodes.push_back(node);
        }
      }
      *out = new IXMLDOMNodeList(tree_, std::move(nodes));
      result = 1;
    }
    if (value != nullptr) xmlXPathFreeObject(value);
    xmlXPathFreeCompExpr(compiled);
  }
  xmlXPathFreeContext(context);
  return result;
}

int IXMLDOMNode::selectSingleNode(const CString& path, IXMLDOMNode** out) {
  if (out == nullptr) return 0;
  IXMLDOMNodeList* list = nullptr;
  if (!selectNodes(path, &list)) return 0;
  IXMLDOMNode* first = nullptr;
  int result = list->get_item(0, &first);
  list->Release();
  if (result) *out = first;
  return result;
}

}  // namespace kordll
