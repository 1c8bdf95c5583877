// PrintTag: one element of a print template, the XML-shaped description a
// record gives of itself.
//
// A tag has a name, a value (its text, stored as given, with any CDATA
// wrapping already in it), attributes, the template that holds it (not
// owned) and the template of its children (owned when this tag is that
// template's root). Values and attributes go out as stored: the only
// escaping is the CDATA wrapping asked for on storing, so callers hand in
// text that is already safe for XML.
//
// Attributes are kept sorted by name, so the same tag always flushes to the
// same text.
//
// Thread safety: a tree of tags and templates belongs to one thread.

#ifndef KORDLL_TOOLKIT_PRINTTAG_H_
#define KORDLL_TOOLKIT_PRINTTAG_H_

#include <map>
#include <string>

#include "kordll/platform/CString.h"

namespace kordll {

class CXMLFile;
class IXMLDOMElement;
class IXMLDOMNode;
class MemoryHeap;
class PrintTemplate;

class PrintTag {
 public:
  // A tag with that name, an empty value and no owner or child.
  explicit PrintTag(CString name);
  PrintTag(const PrintTag&) = delete;
  PrintTag& operator=(const PrintTag&) = delete;
  // Destroys the child template if it is this tag's (see ResetPrintTag).
  ~PrintTag();

  // The pool of tags, created with the library (if not there yet) and
  // released at its end. Tags themselves come from the general heap; the
  // pool is kept for the applications that size their memory by it.
  static void InitializePrintTagCache();
  static void ReleasePrintTagCache();
  // The pool, or null outside start-up and shut-down.
  static MemoryHeap* GetPrintTagCache();

  // Destroys the child template if this tag is its root, then clears
  // owner, child, value, name and attributes.
  void ResetPrintTag();

  // The tag as text: "<name", each attribute whose name and value are both
  // non-empty as ` name="value"`, ">", then the value, or if the value is
  // empty the child template's level (FlushTemplate(1)), then "</name>". A
  // value therefore hides the children.
  CString FlushTag();

  // Adds the tag to `xml`: under `parent` as a new element holding the
  // value as text, or, without a parent, as the document's root element.
  // The element is stored in *out (with a reference for the caller; what
  // *out held is released). Attributes with non-empty name and value follow,
  // then, if all went well so far, the child template's level below the
  // element. Unlike FlushTag, a stored CDATA wrapper goes in as plain text
  // and a value does not hide the children. The answer is the parts' results
  // or-ed together, starting from 1, and so is always 1.
  int FlushTagIntoXMLFile(CXMLFile* xml, IXMLDOMElement* parent, IXMLDOMNode** out);

  // 0 if the attribute exists; otherwise stores it (CDATA-wrapped when
  // cdata is non-zero) and returns 1.
  int AddTagAttribute(CString name, CString value, int cdata);
  // Stores the attribute over any old value; 1.
  int SetTagAttribute(CString name, CString value, int cdata);
  // Stores the number in "%d" form; 1.
  int SetTagAttribute_wInt(CString name, int value);
  // 1 if it was there and is removed, else 0.
  int RemoveTagAttribute(CString name);
  // The value, or the empty string.
  CString GetAttribute(CString name);

  const CString& GetTagName() const { return name_; }
  void SetTagName(const CString& name) { name_ = name; }
  const CString& GetTagValue() const { return value_; }
  // Stores the value as given (no wrapping).
  void SetTagValue(const CString& value) { value_ = value; }
  // The template that holds this tag, not owned; may be null.
  PrintTemplate* GetOwnerTemplate() const { return owner_; }
  // The template of this tag's children; may be null.
  PrintTemplate* GetChildTemplate() const { return child_; }

  // "<![CDATA[" + value + "]]>".
  static CString WrapCDATA(const CString& value);

 private:
  friend class PrintTemplate;

  // Appends FlushTag's text to out, without building a text per level.
  void AppendTag(std::u16string& out) const;

  std::map<CString, CString> attributes_;
  CString name_;
  CString value_;
  PrintTemplate* owner_ = nullptr;  // not owned
  PrintTemplate* child_ = nullptr;  // owned when child_'s root is this tag
};

}  // namespace kordll

#endif  // KORDLL_TOOLKIT_PRINTTAG_H_
