#include "kordll/toolkit/CXMLFile.h"

#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xmlIO.h>
#include <libxml/xmlerror.h>
#include <libxslt/security.h>
#include <libxslt/transform.h>
#include <libxslt/xslt.h>
#include <libxslt/xsltInternals.h>
#include <libxslt/xsltutils.h>

#include <climits>
#include <string>

#include "kordll/platform/CRuntime.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/platform/Host.h"
#include "kordll/platform/WinError.h"

namespace kordll {

namespace {

void IgnoreStructuredError(void*, xmlError*) {}
void IgnoreGenericError(void*, const char*, ...) {}

// libxml2 and libxslt keep their set-up and their error sinks in process
// state. The set-up runs once; messages of the XML layer are never printed,
// since every failure here is an answer (and the load error a message box).
void InitializeXml() {
  static const bool done = [] {
    xmlInitParser();
    xsltSetGenericErrorFunc(nullptr, IgnoreGenericError);
    return true;
  }();
  (void)done;
}

// Silences libxml2's per-thread error sinks for the length of one operation
// and restores whatever the thread had before.
class QuietXmlErrors {
 public:
  QuietXmlErrors()
      : structured_(xmlStructuredError),
        structured_context_(xmlStructuredErrorContext),
        generic_(xmlGenericError),
        generic_context_(xmlGenericErrorContext) {
    xmlSetStructuredErrorFunc(nullptr, IgnoreStructuredError);
    xmlSetGenericErrorFunc(nullptr, IgnoreGenericError);
  }
  ~QuietXmlErrors() {
    xmlSetStructuredErrorFunc(structured_context_, structured_);
    xmlSetGenericErrorFunc(generic_context_, generic_);
  }
  QuietXmlErrors(const QuietXmlErrors&) = delete;
  QuietXmlErrors& operator=(const QuietXmlErrors&) = delete;

 private:
  xmlStructuredErrorFunc structured_;
  void* structured_context_;
  xmlGenericErrorFunc generic_;
  void* generic_context_;
};

XmlTreeRef OwnTree(xmlDoc* doc) {
  return XmlTreeRef(doc, [](xmlDoc* d) {
    if (d != nullptr) xmlFreeDoc(d);
  });
}

bool IsXmlBlank(unsigned char ch) { return ch == ' ' || ch == '\t' || ch == '\n' || ch == '\r'; }

bool IsBlankText(const xmlNode* node) {
  if (node->content == nullptr) return true;
  for (const xmlChar* p = node->content; *p != 0; ++p) {
    if (!IsXmlBlank(*p)) return false;
  }
  return true;
}

// Drops text nodes that hold only white space, as the original parser did
// by default, except where xml:space="preserve" is in force. The walk keeps
// no stack, so any depth is fine.
void DropBlankText(xmlDoc* doc) {
  xmlNode* cur = doc->children;
  while (cur != nullptr) {
    if (cur->type == XML_TEXT_NODE && IsBlankText(cur) &&
        xmlNodeGetSpacePreserve(cur->parent) != 1) {
      xmlNode* gone = cur;
      // Step to what follows before the node is freed.
      while (cur != nullptr && cur->next == nullptr) {
        cur = cur->parent;
        if (cur == reinterpret_cast<xmlNode*>(doc)) cur = nullptr;
      }
      if (cur != nullptr) cur = cur->next;
      xmlUnlinkNode(gone);
      xmlFreeNode(gone);
      continue;
    }
    if (cur->type == XML_ELEMENT_NODE && cur->children != nullptr) {
      cur = cur->children;
      continue;
    }
    while (cur != nullptr && cur->next == nullptr) {
      cur = cur->parent;
      if (cur == reinterpret_cast<xmlNode*>(doc)) cur = nullptr;
    }
    if (cur != nullptr) cur = cur->next;
  }
}

// The load error, in the words and shape users know, in a message box with
// the exclamation icon and no owner.
void ShowLoadError(unsigned code, int line, int position, const CString& reason) {
  CString text = CString::Formatted("Error 0x%.8X on line %d, position %d\r\nReason: %s", code,
                                    line, position, reason);
  Host::Current()->MessageBox(text, CString(CXMLFile::kLoadErrorTitle), MB_ICONEXCLAMATION);
}

// The reason libxml2 gives, without its trailing line feed.
CString ReasonOf(const xmlError* error) {
  if (error == nullptr || error->message == nullptr) return CString("Unknown error.");
  std::string message = error->message;
  while (!message.empty() && (message.back() == '\n' || message.back() == '\r')) {
    message.pop_back();
  }
  return CString::FromUtf8(message);
}

xmlNode* NodeOf(IXMLDOMNode* node) { return node != nullptr ? node->node() : nullptr; }

// Links `child` as the last child of `parent` by hand: xmlAddChild would
// merge a text node into a text node before it, and two calls adding text
// must leave two text nodes.
void AppendChild(xmlNode* parent, xmlNode* child) {
  child->parent = parent;
  child->doc = parent->doc;
  child->next = nullptr;
  child->prev = parent->last;
  if (parent->last != nullptr) {
    parent->last->next = child;
  } else {
    parent->children = child;
  }
  parent->last = child;
}

// Stores a new reference in an out-argument, releasing what it held.
template <class T>
void StoreOut(T** out, T* value) {
  if (*out != nullptr) (*out)->Release();
  *out = value;
}

CString FormatDate(const COleDateTime& value) { return value.Format(); }

// The value of a node found by a path: its first text child. Elements and
// attributes have one; other kinds of node have none.
int ReadFirstText(IXMLDOMNode* found, CString& out) {
  out.Empty();
  if (found == nullptr) return 0;
  xmlNode* node = found->node();
  if (node->type != XML_ELEMENT_NODE && node->type != XML_ATTRIBUTE_NODE) return 0;
  for (xmlNode* child = node->children; child != nullptr; child = child->next) {
    if (child->type == XML_TEXT_NODE) {
      if (child->content != nullptr) {
        out = CString::FromUtf8(reinterpret_cast<const char*>(child->content));
      }
      return 1;
    }
  }
  return 0;
}

// The conversions of the typed readers.
void Convert(const CString& text, int& out) { out = _wtoi(text); }
void Convert(const CString& text, long& out) { out = static_cast<long>(_wtoi64(text)); }
void Convert(const CString& text, float& out) { out = static_cast<float>(_wtof(text)); }
void Convert(const CString& text, double& out) { out = _wtof(text); }
// The date reader's own success is not looked at.
void Convert(const CString& text, COleDateTime& out) {
  out.ParseDateTime(text, 0, LANG_USER_DEFAULT);
}

}  // namespace

CXMLFile::CXMLFile(const CXMLFile& other) : document_(other.document_) {
  if (document_ != nullptr) document_->AddRef();
}

CXMLFile& CXMLFile::operator=(const CXMLFile& other) {
  if (other.document_ != nullptr) other.document_->AddRef();
  if (document_ != nullptr) document_->Release();
  document_ = other.document_;
  return *this;
}

CXMLFile::~CXMLFile() {
  if (document_ != nullptr) document_->Release();
}

XmlTreeRef CXMLFile::Parse(const std::string& bytes, const CString& url, bool from_text) {
  InitializeXml();
  QuietXmlErrors quiet;
  if (bytes.size() > static_cast<size_t>(INT_MAX)) {
    ShowLoadError(0x8007000E, 0, 0, CString("Not enough memory to load the document."));
    return nullptr;
  }
  xmlParserCtxtPtr context = xmlNewParserCtxt();
  if (context == nullptr) {
    ShowLoadError(0x8007000E, 0, 0, CString("Not enough memory to load the document."));
    return nullptr;
  }
  // No network, no DTD loading, no entity substitution; messages are read
  // from the context instead of printed.
  int options = XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING;
  if (from_text) options |= XML_PARSE_IGNORE_ENC;
  const std::string name = url.ToUtf8();
  xmlDoc* doc = xmlCtxtReadMemory(context, bytes.data(), static_cast<int>(bytes.size()),
                                  name.empty() ? nullptr : name.c_str(),
                                  from_text ? "UTF-8" : nullptr, options);
  if (doc == nullptr || !context->wellFormed) {
    if (doc != nullptr) xmlFreeDoc(doc);
    const xmlError* error = xmlCtxtGetLastError(context);
    ShowLoadError(error != nullptr ? static_cast<unsigned>(error->code) : 1u,
                  error != nullptr ? error->line : 0, error != nullptr ? error->int2 : 0,
                  ReasonOf(error));
    xmlFreeParserCtxt(context);
    return nullptr;
  }
  xmlFreeParserCtxt(context);
  DropBlankText(doc);
  return OwnTree(doc);
}

int CXMLFile::LoadFile(const CString& path) {
  if (document_ != nullptr) {
    document_->Release();
    document_ = nullptr;
  }
  return LoadFile(path, &document_);
}

int CXMLFile::LoadFile(const CString& path, IXMLDOMDocument** out) {
  if (out == nullptr) return 0;
  std::string bytes;
  if (!FileSystem::ReadWholeFile(path, &bytes)) {
    // The code a Win32 failure carries as a result code.
    unsigned code = 0x80070000u | (static_cast<unsigned>(GetLastError()) & 0xFFFFu);
    ShowLoadError(code, 0, 0, CString("The file cannot be read: ") + path);
    return 0;
  }
  XmlTreeRef tree = Parse(bytes, path, false);
  if (!tree) return 0;
  StoreOut(out, new IXMLDOMDocument(std::move(tree)));
  return 1;
}

int CXMLFile::LoadFromString(const CString& text) {
  XmlTreeRef tree = Parse(text.ToUtf8(), CString(), true);
  if (!tree) return 0;
  StoreOut(&document_, new IXMLDOMDocument(std::move(tree)));
  return 1;
}

int CXMLFile::EmptyDocument() {
  if (document_ == nullptr) return 0;
  document_->ResetTree();
  return 1;
}

int CXMLFile::CreateRootNode(const CString& name) {
  InitializeXml();
  if (document_ == nullptr) document_ = new IXMLDOMDocument(IXMLDOMDocument::NewTree());
  xmlDoc* doc = document_->tree().get();
  if (doc == nullptr || xmlDocGetRootElement(doc) != nullptr) return 0;
  const std::string tag = name.ToUtf8();
  if (xmlValidateName(BAD_CAST tag.c_str(), 0) != 0) return 0;
  xmlNode* root = xmlNewDocNode(doc, nullptr, BAD_CAST tag.c_str(), nullptr);
  if (root == nullptr) return 0;
  xmlDocSetRootElement(doc, root);
  return 1;
}

int CXMLFile::GetRootNode(IXMLDOMElement** out) {
  if (out == nullptr || document_ == nullptr) return 0;
  IXMLDOMElement* root = nullptr;
  if (!document_->get_documentElement(&root)) return 0;
  StoreOut(out, root);
  return 1;
}

int CXMLFile::GetParentNode(IXMLDOMNode* node, IXMLDOMNode** out) {
  if (node == nullptr || out == nullptr) return 0;
  IXMLDOMNode* parent = nullptr;
  if (!node->get_parentNode(&parent)) return 0;
  StoreOut(out, parent);
  return 1;
}

int CXMLFile::GetOneNamedNode(IXMLDOMNode* node, const CString& path, IXMLDOMNode** out) {
  if (node == nullptr || out == nullptr) return 0;
  InitializeXml();
  IXMLDOMNode* found = nullptr;
  if (!node->selectSingleNode(path, &found)) return 0;
  StoreOut(out, found);
  return 1;
}

int CXMLFile::GetNamedList(IXMLDOMNode* node, const CString& path, IXMLDOMNodeList** out) {
  return GetPathedNodeList(node, path, out);
}

int CXMLFile::GetNamedNodeList(const CString& tag, IXMLDOMNodeList** out) {
  if (out == nullptr || document_ == nullptr) return 0;
  IXMLDOMNodeList* list = nullptr;
  if (!document_->getElementsByTagName(tag, &list)) return 0;
  StoreOut(out, list);
  return 1;
}

int CXMLFile::GetPathedNodeList(IXMLDOMNode* node, CString path, IXMLDOMNodeList** out) {
  if (node == nullptr || out == nullptr) return 0;
  InitializeXml();
  IXMLDOMNodeList* list = nullptr;
  if (!node->selectNodes(path, &list)) return 0;
  StoreOut(out, list);
  return 1;
}

int CXMLFile::GetPathedNodeList(const CString& path, IXMLDOMNodeList** out) {
  IXMLDOMElement* root = nullptr;
  if (!GetRootNode(&root)) return 0;
  int result = GetPathedNodeList(root, path, out);
  root->Release();
  return result;
}

int CXMLFile::GetPathedNode(const CString& path, IXMLDOMNode** out) {
  if (out == nullptr) return 0;
  IXMLDOMNodeList* list = nullptr;
  if (!GetPathedNodeList(path, &list)) return 0;
  long length = 0;
  int result = 0;
  IXMLDOMNode* first = nullptr;
  if (list->get_length(&length) && length > 0 && list->get_item(0, &first)) {
    StoreOut(out, first);
    result = 1;
  }
  list->Release();
  return result;
}

int CXMLFile::GetPathedNodeWithText(const CString& path, const CString& text, IXMLDOMNode** out) {
  if (out == nullptr) return 0;
  IXMLDOMNodeList* list = nullptr;
  if (!GetPathedNodeList(path, &list)) return 0;
  int result = 0;
  IXMLDOMNode* node = nullptr;
  while (list->nextNode(&node)) {
    CString value;
    if (ReadFirstText(node, value) && value == text) {
      StoreOut(out, node);
      result = 1;
      break;
    }
    node->Release();
    node = nullptr;
  }
  list->Release();
  return result;
}

int CXMLFile::GetSingleNodeValue(IXMLDOMNode* node, const CString& path, CString& out) {
  out.Empty();
  IXMLDOMNode* found = nullptr;
  if (!GetOneNamedNode(node, path, &found)) return 0;
  int result = ReadFirstText(found, out);
  found->Release();
  return result;
}

int CXMLFile::GetSingleNodeValue(const CString& path, CString& out) {
  out.Empty();
  IXMLDOMElement* root = nullptr;
  if (!GetRootNode(&root)) return 0;
  int result = GetSingleNodeValue(root, path, out);
  root->Release();
  return result;
}

int CXMLFile::GetAttributeValue(IXMLDOMElement* element, const CString& name, CString& out) {
  if (element == nullptr) return 0;
  return element->getAttribute(name, &out);
}

int CXMLFile::GetNodeValue(IXMLDOMElement* element, CString& out) {
  // Only the first text child counts: CDATA sections and elements are
  // passed over.
  return ReadFirstText(element, out);
}

namespace {

// A typed value is the element's text converted; the answer is that of
// reading the text, whatever the conversion makes of it.
template <class T>
int NodeValue(CXMLFile& xml, IXMLDOMElement* element, T& out) {
  CString text;
  int result = xml.GetNodeValue(element, text);
  Convert(text, out);
  return result;
}

}  // namespace

int CXMLFile::GetNodeValue(IXMLDOMElement* element, int& out) {
  return NodeValue(*this, element, out);
}
int CXMLFile::GetNodeValue(IXMLDOMElement* element, long& out) {
  return NodeValue(*this, element, out);
}
int CXMLFile::GetNodeValue(IXMLDOMElement* element, float& out) {
  return NodeValue(*this, element, out);
}
int CXMLFile::GetNodeValue(IXMLDOMElement* element, double& out) {
  return NodeValue(*this, element, out);
}
int CXMLFile::GetNodeValue(IXMLDOMElement* element, COleDateTime& out) {
  return NodeValue(*this, element, out);
}

int CXMLFile::GetChildNodeValue(IXMLDOMElement* element, const CString& path, CString& out) {
  out.Empty();
  IXMLDOMNode* found = nullptr;
  if (!GetOneNamedNode(element, path, &found)) return 0;
  int result = ReadFirstText(found, out);
  found->Release();
  return result;
}

namespace {

template <class T>
int ChildValue(CXMLFile& xml, IXMLDOMElement* element, const CString& path, T& out) {
  IXMLDOMNode* found = nullptr;
  if (!xml.GetOneNamedNode(element, path, &found)) return 0;
  CString text;
  int result = ReadFirstText(found, text);
  found->Release();
  Convert(text, out);
  return result;
}

}  // namespace

int CXMLFile::GetChildNodeValue(IXMLDOMElement* element, const CString& path, int& out) {
  return ChildValue(*this, element, path, out);
}
int CXMLFile::GetChildNodeValue(IXMLDOMElement* element, const CString& path, long& out) {
  return ChildValue(*this, element, path, out);
}
int CXMLFile::GetChildNodeValue(IXMLDOMElement* element, const CString& path, float& out) {
  return ChildValue(*this, element, path, out);
}
int CXMLFile::GetChildNodeValue(IXMLDOMElement* element, const CString& path, double& out) {
  return ChildValue(*this, element, path, out);
}
int CXMLFile::GetChildNodeValue(IXMLDOMElement* element, const CString& path, COleDateTime& out) {
  return ChildValue(*this, element, path, out);
}

int CXMLFile::AddAttribute(IXMLDOMElement* element, const CString& name, const CString& value) {
  if (element == nullptr) return 0;
  return element->setAttribute(name, value);
}

int CXMLFile::SetNodeText(IXMLDOMNode* node, const CString& text) {
  xmlNode* parent = NodeOf(node);
  if (parent == nullptr || parent->type != XML_ELEMENT_NODE) return 0;
  const std::string content = text.ToUtf8();
  xmlNode* child = xmlNewDocText(parent->doc, BAD_CAST content.c_str());
  if (child == nullptr) return 0;
  AppendChild(parent, child);
  return 1;
}

int CXMLFile::AddNewNode(IXMLDOMNode** out, IXMLDOMNode* parent, const CString& name,
                         const CString& value) {
  xmlNode* parent_node = NodeOf(parent);
  if (out == nullptr || parent_node == nullptr || parent_node->type != XML_ELEMENT_NODE) return 0;
  InitializeXml();
  const std::string tag = name.ToUtf8();
  if (xmlValidateName(BAD_CAST tag.c_str(), 0) != 0) return 0;
  // The element is made in the parent's own document, whichever document
  // this object holds, so that a tree never links nodes of another.
  xmlNode* element = xmlNewDocNode(parent_node->doc, nullptr, BAD_CAST tag.c_str(), nullptr);
  if (element == nullptr) return 0;
  const std::string content = value.ToUtf8();
  xmlNode* text = xmlNewDocText(parent_node->doc, BAD_CAST content.c_str());
  if (text == nullptr) {
    xmlFreeNode(element);
    return 0;
  }
  AppendChild(element, text);
  AppendChild(parent_node, element);
  StoreOut(out, IXMLDOMNode::Wrap(parent->tree(), element));
  return *out != nullptr ? 1 : 0;
}

int CXMLFile::AddNewNode(IXMLDOMNode** out, IXMLDOMNode* parent, const CString& name,
                         const int& value) {
  return AddNewNode(out, parent, name, CString::Formatted("%d", value));
}
int CXMLFile::AddNewNode(IXMLDOMNode** out, IXMLDOMNode* parent, const CString& name,
                         const long& value) {
  return AddNewNode(out, parent, name, CString::Formatted("%ld", value));
}
int CXMLFile::AddNewNode(IXMLDOMNode** out, IXMLDOMNode* parent, const CString& name,
                         const float& value) {
  return AddNewNode(out, parent, name, CString::Formatted("%f", value));
}
int CXMLFile::AddNewNode(IXMLDOMNode** out, IXMLDOMNode* parent, const CString& name,
                         const double& value) {
  return AddNewNode(out, parent, name, CString::Formatted("%lf", value));
}
int CXMLFile::AddNewNode(IXMLDOMNode** out, IXMLDOMNode* parent, const CString& name,
                         const COleDateTime& value) {
  return AddNewNode(out, parent, name, FormatDate(value));
}

namespace {

template <class T>
int AddAndRelease(CXMLFile& xml, IXMLDOMNode* parent, const CString& name, const T& value) {
  IXMLDOMNode* node = nullptr;
  int result = xml.AddNewNode(&node, parent, name, value);
  if (node != nullptr) node->Release();
  return result;
}

}  // namespace

int CXMLFile::AddNewNode(IXMLDOMNode* parent, const CString& name, const CString& value) {
  return AddAndRelease(*this, parent, name, value);
}
int CXMLFile::AddNewNode(IXMLDOMNode* parent, const CString& name, const int& value) {
  return AddAndRelease(*this, parent, name, value);
}
int CXMLFile::AddNewNode(IXMLDOMNode* parent, const CString& name, const long& value) {
  return AddAndRelease(*this, parent, name, value);
}
int CXMLFile::AddNewNode(IXMLDOMNode* parent, const CString& name, const float& value) {
  return AddAndRelease(*this, parent, name, value);
}
int CXMLFile::AddNewNode(IXMLDOMNode* parent, const CString& name, const double& value) {
  return AddAndRelease(*this, parent, name, value);
}
int CXMLFile::AddNewNode(IXMLDOMNode* parent, const CString& name, const COleDateTime& value) {
  return AddAndRelease(*this, parent, name, value);
}

int CXMLFile::SaveFile(const CString& path) { return SaveFile(path, document_); }

int CXMLFile::SaveFile(const CString& path, IXMLDOMDocument* document) {
  if (document == nullptr || !document->tree()) return 0;
  InitializeXml();
  xmlChar* text = nullptr;
  int size = 0;
  xmlDocDumpFormatMemoryEnc(document->tree().get(), &text, &size, "UTF-8", 0);
  if (text == nullptr) return 0;
  int result = FileSystem::WriteWholeFile(
      path, std::string_view(reinterpret_cast<const char*>(text), static_cast<size_t>(size)));
  xmlFree(text);
  return result ? 1 : 0;
}

int CXMLFile::GetXML(CString& out) {
  if (document_ == nullptr) return 0;
  InitializeXml();
  return document_->get_xml(&out);
}

namespace {

// Serialises a transformation's result as text. The characters are always
// written as UTF-8 and read back as such, whatever encoding the stylesheet's
// output names: the result is a text, not a file, and serialising in the
// named encoding would garble every character that encoding lacks or
// writes in more than one byte (UTF-16, windows-1252).
int SaveResultAsText(xmlDoc* output, xsltStylesheetPtr sheet, CString& out) {
  // A buffer without an encoder takes the tree's own UTF-8 as it is.
  xmlOutputBufferPtr buffer = xmlAllocOutputBuffer(nullptr);
  if (buffer == nullptr) return 0;
  int written = xsltSaveResultTo(buffer, output, sheet);
  int result = 0;
  if (written >= 0 && xmlOutputBufferFlush(buffer) >= 0) {
    const xmlChar* content = xmlOutputBufferGetContent(buffer);
    size_t size = xmlOutputBufferGetSize(buffer);
    out = content != nullptr
              ? CString::FromUtf8(std::string_view(reinterpret_cast<const char*>(content), size))
              : CString();
    result = 1;
  }
  xmlOutputBufferClose(buffer);
  return result;
}

}  // namespace

int CXMLFile::TransformNode(CXMLFile& stylesheet, CString& out) {
  if (document_ == nullptr || stylesheet.document_ == nullptr) return 0;
  xmlDoc* source = document_->tree().get();
  xmlDoc* sheet_doc = stylesheet.document_->tree().get();
  if (source == nullptr || sheet_doc == nullptr || xmlDocGetRootElement(sheet_doc) == nullptr) {
    return 0;
  }
  InitializeXml();
  QuietXmlErrors quiet;
  // The compiled stylesheet takes its document over, so it gets a copy.
  xmlDoc* copy = xmlCopyDoc(sheet_doc, 1);
  if (copy == nullptr) return 0;
  xsltStylesheetPtr sheet = xsltParseStylesheetDoc(copy);
  if (sheet == nullptr) {
    xmlFreeDoc(copy);
    return 0;
  }
  int result = 0;
  xsltSecurityPrefsPtr prefs = xsltNewSecurityPrefs();
  xsltTransformContextPtr context = xsltNewTransformContext(sheet, source);
  if (prefs != nullptr && context != nullptr &&
      xsltSetSecurityPrefs(prefs, XSLT_SECPREF_WRITE_FILE, xsltSecurityForbid) == 0 &&
      xsltSetSecurityPrefs(prefs, XSLT_SECPREF_CREATE_DIRECTORY, xsltSecurityForbid) == 0 &&
      xsltSetSecurityPrefs(prefs, XSLT_SECPREF_READ_NETWORK, xsltSecurityForbid) == 0 &&
      xsltSetSecurityPrefs(prefs, XSLT_SECPREF_WRITE_NETWORK, xsltSecurityForbid) == 0 &&
      xsltSetCtxtSecurityPrefs(prefs, context) == 0) {
    xsltSetTransformErrorFunc(context, nullptr, IgnoreGenericError);
    xmlDoc* output = xsltApplyStylesheetUser(sheet, source, nullptr, nullptr, nullptr, context);
    if (output != nullptr) {
      if (context->state == XSLT_STATE_OK) result = SaveResultAsText(output, sheet, out);
      xmlFreeDoc(output);
    }
  }
  if (context != nullptr) xsltFreeTransformContext(context);
  if (prefs != nullptr) xsltFreeSecurityPrefs(prefs);
  xsltFreeStylesheet(sheet);
  return result;
}

}  // namespace kordll
