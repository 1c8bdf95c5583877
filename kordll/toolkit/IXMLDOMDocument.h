// IXMLDOMDocument: a counted handle on one parsed or built XML document.
//
// The document is a libxml2 tree. It is reached only through CXMLFile and
// the node handles; the handle exists so that a document can be handed
// around and shared by reference count, as the design's parser interface
// does. A new handle starts with one reference, its creator's; Release of
// the last reference frees the handle. The tree itself lives as long as the
// handle or any node handle taken from it, whichever is last, so a node
// handle never points into freed memory.
//
// Thread safety: the count may be changed from any thread; everything else
// belongs to the one thread that uses the CXMLFile at the time.

#ifndef KORDLL_TOOLKIT_IXMLDOMDOCUMENT_H_
#define KORDLL_TOOLKIT_IXMLDOMDOCUMENT_H_

#include <atomic>
#include <memory>

#include "kordll/platform/CString.h"

struct _xmlDoc;

namespace kordll {

class IXMLDOMElement;
class IXMLDOMNodeList;

// The shared ownership of a libxml2 tree; the last holder frees it.
using XmlTreeRef = std::shared_ptr<_xmlDoc>;

class IXMLDOMDocument {
 public:
  // Takes over `tree` (which must not be null) with one reference for the
  // caller. Library-internal: users get documents from CXMLFile.
  explicit IXMLDOMDocument(XmlTreeRef tree);
  IXMLDOMDocument(const IXMLDOMDocument&) = delete;
  IXMLDOMDocument& operator=(const IXMLDOMDocument&) = delete;

  // Makes a tree that holds nothing but the XML declaration, version 1.0.
  // Never null.
  static XmlTreeRef NewTree();

  // Reference counting. Both return the new count; Release deletes the
  // handle when the count reaches 0.
  unsigned long AddRef();
  unsigned long Release();

  // The document element, with a reference for the caller. 0 (and *out
  // untouched) when the document has none or out is null.
  int get_documentElement(IXMLDOMElement** out);

  // Every element named `tag` (its qualified name; "*" for all), in document
  // order, as a snapshot list with a reference for the caller. 1, or 0 when
  // out is null.
  int getElementsByTagName(const CString& tag, IXMLDOMNodeList** out);

  // The serialised document ("<?xml version="1.0"?>" and the tree, UTF-8
  // text read back as CString). 1, or 0 when out is null.
  int get_xml(CString* out);

  // Puts an empty tree (the declaration alone) in place of the present one.
  // Node handles taken before keep the old tree alive and unchanged.
  void ResetTree();

  // The tree; library-internal.
  const XmlTreeRef& tree() const { return tree_; }

 private:
  ~IXMLDOMDocument() = default;

  std::atomic<unsigned long> refs_{1};
  XmlTreeRef tree_;
};

}  // namespace kordll

#endif  // KORDLL_TOOLKIT_IXMLDOMDOCUMENT_H_
