// CXMLFile: one XML document behind operations that speak CString, numbers
// and dates, so that the rest of the library never touches the parser.
//
// Every operation answers 1 for success and 0 for failure. A node handed
// back through an out-argument carries a reference that the caller gives
// back with Release; before storing it, the operation releases what the
// out-argument held, so out-arguments must start null or hold a node the
// caller is done with. Node arguments may be null (the answer is then 0).
//
// Parsing never reaches the network, never loads a DTD or an external
// entity, and drops text nodes that hold only white space (unless an
// xml:space="preserve" is in force). A document that fails to load is
// reported to the user through the host's message box, titled
// "Error Loading XML", on whatever thread loads it; it is the only message
// this class shows.
//
// Paths are XPath expressions handed to the parser as they are; the callers
// use plain element paths ("channel/item", "Error/Code"). Elements in a
// default namespace are not matched by unprefixed names.
//
// Numbers are written with "%d", "%ld", "%f" and "%lf"; a date with
// COleDateTime::Format() ("M/D/YYYY H:MM:SS AM"), the shape its
// ParseDateTime reads back. Readers convert with _wtoi, _wtoi64 and _wtof
// and return the success of reading the text, not of the conversion.
//
// Ownership: the object holds one reference on its document. A copy shares
// the document (another reference), so either may be destroyed first; the
// last holder frees it. GetDocument hands out the pointer without a
// reference.
//
// Thread safety: one thread at a time uses an object and its nodes.

#ifndef KORDLL_TOOLKIT_CXMLFILE_H_
#define KORDLL_TOOLKIT_CXMLFILE_H_

#include "kordll/platform/COleDateTime.h"
#include "kordll/platform/CString.h"
#include "kordll/toolkit/IXMLDOMDocument.h"
#include "kordll/toolkit/IXMLDOMElement.h"
#include "kordll/toolkit/IXMLDOMNode.h"
#include "kordll/toolkit/IXMLDOMNodeList.h"

namespace kordll {

class CXMLFile {
 public:
  // The title of the load error message box.
  static constexpr const char* kLoadErrorTitle = "Error Loading XML";

  CXMLFile() = default;
  CXMLFile(const CXMLFile& other);
  CXMLFile& operator=(const CXMLFile& other);
  virtual ~CXMLFile();

  // The held document, without a reference; null when none is held.
  IXMLDOMDocument* GetDocument() const { return document_; }

  // Releases the held document, then loads the file at `path` into this
  // object. After a failure the object holds no document.
  int LoadFile(const CString& path);
  // Loads the file at `path` as a new document. On success releases what
  // *out held and stores the new document there with one reference for the
  // caller; on failure shows the load error and leaves *out alone.
  int LoadFile(const CString& path, IXMLDOMDocument** out);
  // Loads a document from text. On success the held document, if any, is
  // released and the new one kept; on failure the load error is shown and
  // the held document stays.
  int LoadFromString(const CString& text);
  // If a document is held, loads into it the text "<?xml version='1.0'?>",
  // which leaves it empty: no root, no nodes. Does nothing without one.
  int EmptyDocument();

  // Creates a document if none is held, then appends an element named
  // `name` to the document. 0 when the document already has its root
  // element or the name is not a valid XML name.
  int CreateRootNode(const CString& name);
  // The document element. 0 without a document or root.
  int GetRootNode(IXMLDOMElement** out);
  int GetParentNode(IXMLDOMNode* node, IXMLDOMNode** out);

  // The first match of `path` below `node`.
  int GetOneNamedNode(IXMLDOMNode* node, const CString& path, IXMLDOMNode** out);
  // All matches of `path` below `node` (an empty list is a success).
  int GetNamedList(IXMLDOMNode* node, const CString& path, IXMLDOMNodeList** out);
  // All elements named `tag` in the document, in document order.
  int GetNamedNodeList(const CString& tag, IXMLDOMNodeList** out);
  // All matches of `path` below `node`, or below the root element.
  int GetPathedNodeList(IXMLDOMNode* node, CString path, IXMLDOMNodeList** out);
  int GetPathedNodeList(const CString& path, IXMLDOMNodeList** out);
  // The first match of `path` below the root element.
  int GetPathedNode(const CString& path, IXMLDOMNode** out);
  // The first match of `path` below the root whose value (GetNodeValue)
  // equals `text`, case-sensitively.
  int GetPathedNodeWithText(const CString& path, const CString& text, IXMLDOMNode** out);
  // Clears `out`, then reads the value of the first match of `path` below
  // `node` (or the root element). The value of a match is its first text
  // child, as GetNodeValue reads it; a matched attribute gives its text.
  int GetSingleNodeValue(IXMLDOMNode* node, const CString& path, CString& out);
  int GetSingleNodeValue(const CString& path, CString& out);

  // The text of the element's attribute `name`. 0 when there is none, and
  // `out` is then left as it was.
  int GetAttributeValue(IXMLDOMElement* element, const CString& name, CString& out);

  // Clears `out`, then reads the first text child of the element (node type
  // 3). CDATA sections and elements are passed over, so mixed content
  // yields its first piece only. 0 when there is no text child.
  int GetNodeValue(IXMLDOMElement* element, CString& out);
  // The same, converted. The value is set from the text read (from "" when
  // there is none); the answer is that of reading the text.
  int GetNodeValue(IXMLDOMElement* element, int& out);
  int GetNodeValue(IXMLDOMElement* element, long& out);
  int GetNodeValue(IXMLDOMElement* element, float& out);
  int GetNodeValue(IXMLDOMElement* element, double& out);
  int GetNodeValue(IXMLDOMElement* element, COleDateTime& out);

  // Clears `out`, then reads the value of the first match of `path` below
  // the element. 0 if there is no match. The converting forms set the value
  // from the match's text (from "" when it has none) and leave it as it was
  // when nothing matches.
  int GetChildNodeValue(IXMLDOMElement* element, const CString& path, CString& out);
  int GetChildNodeValue(IXMLDOMElement* element, const CString& path, int& out);
  int GetChildNodeValue(IXMLDOMElement* element, const CString& path, long& out);
  int GetChildNodeValue(IXMLDOMElement* element, const CString& path, float& out);
  int GetChildNodeValue(IXMLDOMElement* element, const CString& path, double& out);
  int GetChildNodeValue(IXMLDOMElement* element, const CString& path, COleDateTime& out);

  // Sets the element's attribute, replacing an old value.
  int AddAttribute(IXMLDOMElement* element, const CString& name, const CString& value);

  // Appends a text node to the node. It adds text: what is there stays,
  // and two calls leave two text nodes.
  int SetNodeText(IXMLDOMNode* node, const CString& text);

  // Creates an element `name` holding a text node with `value`, appends it
  // to `parent` (an element) and hands it back through `out`. The element
  // belongs to the parent's document.
  int AddNewNode(IXMLDOMNode** out, IXMLDOMNode* parent, const CString& name, const CString& value);
  int AddNewNode(IXMLDOMNode** out, IXMLDOMNode* parent, const CString& name, const int& value);
  int AddNewNode(IXMLDOMNode** out, IXMLDOMNode* parent, const CString& name, const long& value);
  int AddNewNode(IXMLDOMNode** out, IXMLDOMNode* parent, const CString& name, const float& value);
  int AddNewNode(IXMLDOMNode** out, IXMLDOMNode* parent, const CString& name, const double& value);
  int AddNewNode(IXMLDOMNode** out, IXMLDOMNode* parent, const CString& name,
                 const COleDateTime& value);
  // The same, keeping no reference on the new element.
  int AddNewNode(IXMLDOMNode* parent, const CString& name, const CString& value);
  int AddNewNode(IXMLDOMNode* parent, const CString& name, const int& value);
  int AddNewNode(IXMLDOMNode* parent, const CString& name, const long& value);
  int AddNewNode(IXMLDOMNode* parent, const CString& name, const float& value);
  int AddNewNode(IXMLDOMNode* parent, const CString& name, const double& value);
  int AddNewNode(IXMLDOMNode* parent, const CString& name, const COleDateTime& value);

  // Saves the held (or the given) document to `path`, UTF-8 encoded,
  // replacing the file. 0 without a document or when the file cannot be
  // written.
  int SaveFile(const CString& path);
  int SaveFile(const CString& path, IXMLDOMDocument* document);

  // The document's serialised text. 0 without a document.
  int GetXML(CString& out);

  // Transforms the held document by the stylesheet held by `stylesheet`
  // (XSLT 1.0) and hands back the text of the result. The characters of
  // the text are right whatever encoding the stylesheet's output names (the
  // declaration still names it). The transformation may not write files or
  // reach the network. 0 when either document is
  // missing, the stylesheet is not valid or the transformation fails.
  int TransformNode(CXMLFile& stylesheet, CString& out);

 private:
  // Parses `bytes` into a tree, or shows the load error and gives null.
  // `url` names the source in the tree; `from_text` forces UTF-8 (the text
  // of a CString) over any encoding the declaration names.
  static XmlTreeRef Parse(const std::string& bytes, const CString& url, bool from_text);

  IXMLDOMDocument* document_ = nullptr;  // one reference held, or null
};

}  // namespace kordll

#endif  // KORDLL_TOOLKIT_CXMLFILE_H_
