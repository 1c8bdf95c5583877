// IXMLDOMElement: the handle of an element node, with its attributes.
//
// Every element node handed out by the library is an IXMLDOMElement, so a
// node known to be an element may be turned into one by
// IXMLDOMNode::AsElement. Lifetime and thread rules are those of
// IXMLDOMNode.

#ifndef KORDLL_TOOLKIT_IXMLDOMELEMENT_H_
#define KORDLL_TOOLKIT_IXMLDOMELEMENT_H_

#include "kordll/platform/CString.h"
#include "kordll/toolkit/IXMLDOMNode.h"

namespace kordll {

class IXMLDOMElement : public IXMLDOMNode {
 public:
  // The text of the attribute whose qualified name is `name` ("a" or
  // "p:a"). 0, with *value untouched, when there is no such attribute.
  int getAttribute(const CString& name, CString* value);

  // Sets the attribute `name` to `value`, replacing an old value. 0 when the
  // name is not a valid XML name.
  int setAttribute(const CString& name, const CString& value);

 private:
  friend class IXMLDOMNode;  // makes element handles in Wrap
  IXMLDOMElement(XmlTreeRef tree, _xmlNode* node);
  ~IXMLDOMElement() override = default;
};

}  // namespace kordll

#endif  // KORDLL_TOOLKIT_IXMLDOMELEMENT_H_
