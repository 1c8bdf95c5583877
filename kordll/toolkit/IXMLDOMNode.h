// IXMLDOMNode: a counted handle on one node of an XML document.
//
// A handle keeps the document's tree alive, so it stays valid after the
// CXMLFile that gave it has loaded another document or been destroyed. A
// handle handed out (by an out-argument here or in CXMLFile) carries one
// reference, which the receiver gives back with Release. Every operation
// that hands a node out through an out-argument answers 1 and stores the
// new handle, or answers 0 and leaves the out-argument untouched.
//
// Node types are the DOM's: 1 element, 2 attribute, 3 text, 4 CDATA
// section, 5 entity reference, 7 processing instruction, 8 comment,
// 9 document.
//
// Thread safety: the count may be changed from any thread; everything else
// belongs to the one thread that uses the document at the time.

#ifndef KORDLL_TOOLKIT_IXMLDOMNODE_H_
#define KORDLL_TOOLKIT_IXMLDOMNODE_H_

#include <atomic>

#include "kordll/platform/CString.h"
#include "kordll/toolkit/IXMLDOMDocument.h"

struct _xmlNode;

namespace kordll {

class IXMLDOMElement;
class IXMLDOMNodeList;

class IXMLDOMNode {
 public:
  // DOM node types.
  static constexpr int NODE_ELEMENT = 1;
  static constexpr int NODE_ATTRIBUTE = 2;
  static constexpr int NODE_TEXT = 3;
  static constexpr int NODE_CDATA_SECTION = 4;
  static constexpr int NODE_DOCUMENT = 9;

  IXMLDOMNode(const IXMLDOMNode&) = delete;
  IXMLDOMNode& operator=(const IXMLDOMNode&) = delete;

  // A new handle with one reference on `node` of `tree`: an IXMLDOMElement
  // for an element node, a plain node handle otherwise. Null for a null
  // node. Library-internal.
  static IXMLDOMNode* Wrap(const XmlTreeRef& tree, _xmlNode* node);

  // Reference counting; Release deletes the handle at count 0.
  unsigned long AddRef();
  unsigned long Release();

  // The same object seen as an element, or null when the node is not an
  // element. No reference is added.
  IXMLDOMElement* AsElement();

  int get_nodeType(int* type);
  // The qualified name ("#text", "#cdata-section", "#comment", "#document"
  // for the nameless kinds).
  int get_nodeName(CString* name);
  // The text of the node and everything below it, joined.
  int get_text(CString* text);
  // The node serialised as XML.
  int get_xml(CString* xml);

  // Neighbours. 0 when there is none.
  int get_firstChild(IXMLDOMNode** out);
  int get_nextSibling(IXMLDOMNode** out);
  int get_parentNode(IXMLDOMNode** out);

  // Evaluates an XPath expression with this node as context. selectNodes
  // hands out every node the expression selects, in document order (an
  // empty list is a success); selectSingleNode the first of them (0 when
  // there is none). A malformed expression, or one that selects no nodes
  // (a number, a text), gives 0.
  int selectNodes(const CString& path, IXMLDOMNodeList** out);
  int selectSingleNode(const CString& path, IXMLDOMNode** out);

  // Library-internal access.
  _xmlNode* node() const { return node_; }
  const XmlTreeRef& tree() const { return tree_; }

 protected:
  IXMLDOMNode(XmlTreeRef tree, _xmlNode* node);
  virtual ~IXMLDOMNode();

 private:
  std::atomic<unsigned long> refs_{1};
  XmlTreeRef tree_;
  _xmlNode* node_;
};

}  // namespace kordll

#endif  // KORDLL_TOOLKIT_IXMLDOMNODE_H_
