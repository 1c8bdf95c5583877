#include "kordll/toolkit/IXMLDOMNodeList.h"

#include <libxml/tree.h>

#include <algorithm>

#include "kordll/toolkit/IXMLDOMNode.h"

namespace kordll {

IXMLDOMNodeList::IXMLDOMNodeList(XmlTreeRef tree, std::vector<_xmlNode*> nodes)
    : tree_(std::move(tree)), nodes_(std::move(nodes)) {
  nodes_.erase(std::remove(nodes_.begin(), nodes_.end(), nullptr), nodes_.end());
}

unsigned long IXMLDOMNodeList::AddRef() { return ++refs_; }

unsigned long IXMLDOMNodeList::Release() {
  unsigned long left = --refs_;
  if (left == 0) delete this;
  return left;
}

int IXMLDOMNodeList::get_length(long* length) {
  if (length == nullptr) return 0;
  *length = static_cast<long>(nodes_.size());
  return 1;
}

int IXMLDOMNodeList::get_item(long index, IXMLDOMNode** out) {
  if (out == nullptr || index < 0 || static_cast<size_t>(index) >= nodes_.size()) return 0;
  IXMLDOMNode* node = IXMLDOMNode::Wrap(tree_, nodes_[index]);
  if (node == nullptr) return 0;
  *out = node;
  return 1;
}

int IXMLDOMNodeList::nextNode(IXMLDOMNode** out) {
  if (out == nullptr || cursor_ >= nodes_.size()) return 0;
  IXMLDOMNode* node = IXMLDOMNode::Wrap(tree_, nodes_[cursor_]);
  if (node == nullptr) return 0;
  ++cursor_;
  *out = node;
  return 1;
}

int IXMLDOMNodeList::reset() {
  cursor_ = 0;
  return 1;
}

}  // namespace kordll
