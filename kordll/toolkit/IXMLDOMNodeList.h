// IXMLDOMNodeList: a counted, fixed list of nodes of one document.
//
// The list is a snapshot taken when it was made: nodes added to the
// document later do not join it. It keeps the document's tree alive. Items
// are handed out with a reference for the caller. nextNode walks the list
// with a cursor of its own, starting at the first item.
//
// Thread safety: as IXMLDOMNode.

#ifndef KORDLL_TOOLKIT_IXMLDOMNODELIST_H_
#define KORDLL_TOOLKIT_IXMLDOMNODELIST_H_

#include <atomic>
#include <vector>

#include "kordll/toolkit/IXMLDOMDocument.h"

struct _xmlNode;

namespace kordll {

class IXMLDOMNode;

class IXMLDOMNodeList {
 public:
  // A list with one reference over `nodes` of `tree`; null entries are
  // left out. Library-internal.
  IXMLDOMNodeList(XmlTreeRef tree, std::vector<_xmlNode*> nodes);
  IXMLDOMNodeList(const IXMLDOMNodeList&) = delete;
  IXMLDOMNodeList& operator=(const IXMLDOMNodeList&) = delete;

  unsigned long AddRef();
  unsigned long Release();

  // The count of items. 0 when length is null.
  int get_length(long* length);
  // The item at `index` (0-based). 0 when the index is outside the list.
  int get_item(long index, IXMLDOMNode** out);
  // The item at the cursor, and moves the cursor on. 0 after the last.
  int nextNode(IXMLDOMNode** out);
  // Puts the cursor back on the first item.
  int reset();

 private:
  ~IXMLDOMNodeList() = default;

  std::atomic<unsigned long> refs_{1};
  XmlTreeRef tree_;
  std::vector<_xmlNode*> nodes_;
  size_t cursor_ = 0;
};

}  // namespace kordll

#endif  // KORDLL_TOOLKIT_IXMLDOMNODELIST_H_
