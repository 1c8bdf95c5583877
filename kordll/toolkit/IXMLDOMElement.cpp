#include "kordll/toolkit/IXMLDOMElement.h"

#include <libxml/tree.h>

#include <string>

namespace kordll {

namespace {

std::string QualifiedName(const xmlAttr* attr) {
  std::string name;
  if (attr->ns != nullptr && attr->ns->prefix != nullptr) {
    name = reinterpret_cast<const char*>(attr->ns->prefix);
    name += ':';
  }
  if (attr->name != nullptr) name += reinterpret_cast<const char*>(attr->name);
  return name;
}

}  // namespace

IXMLDOMElement::IXMLDOMElement(XmlTreeRef tree, _xmlNode* node)
    : IXMLDOMNode(std::move(tree), node) {}

int IXMLDOMElement::getAttribute(const CString& name, CString* value) {
  if (value == nullptr) return 0;
  const std::string wanted = name.ToUtf8();
  for (xmlAttr* attr = node()->properties; attr != nullptr; attr = attr->next) {
    if (QualifiedName(attr) != wanted) continue;
    xmlChar* text = xmlNodeGetContent(reinterpret_cast<xmlNode*>(attr));
    *value = text != nullptr ? CString::FromUtf8(reinterpret_cast<const char*>(text)) : CString();
    if (text != nullptr) xmlFree(text);
    return 1;
  }
  return 0;
}

int IXMLDOMElement::setAttribute(const CString& name, const CString& value) {
  const std::string key = name.ToUtf8();
  if (xmlValidateName(BAD_CAST key.c_str(), 0) != 0) return 0;
  const std::string text = value.ToUtf8();
  // xmlSetProp stores the value as plain text; the writer escapes it.
  return xmlSetProp(node(), BAD_CAST key.c_str(), BAD_CAST text.c_str()) != nullptr ? 1 : 0;
}

}  // namespace kordll
