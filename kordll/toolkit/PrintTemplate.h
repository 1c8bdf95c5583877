// PrintTemplate: one level of the XML-shaped tree a record builds to
// describe itself, flushed to text (for the display and the backup) or into
// a CXMLFile.
//
// A template has a root tag (the element that encloses this level; null for
// a template made without a name), the tags of this level in the order of
// adding, and the same tags listed per name. The template owns its root tag
// and every listed tag; a listed tag owns the template it is the root of.
// AddPrintTemplate hands a child template's root tag over into this level's
// lists, so the caller owns the top template and the tree owns everything
// below it: delete the top template only.
//
// The text form follows the order of adding. The XML form goes name by
// name (in the order of the names, sorted), so tags of one name stand
// together there even when others were added between them.
//
// Allocation: templates come from a pool that InitializePrintTemplateCache
// creates at library start-up. Before it (or after
// ReleasePrintTemplateCache) `new PrintTemplate` gives null, and deleting a
// template does not give its memory back.
//
// Thread safety: a tree belongs to one thread. The pool itself may be used
// from any thread once it exists.

#ifndef KORDLL_TOOLKIT_PRINTTEMPLATE_H_
#define KORDLL_TOOLKIT_PRINTTEMPLATE_H_

#include <cstddef>
#include <map>

#include "kordll/platform/CString.h"
#include "kordll/toolkit/PrintTag.h"

namespace kordll {

class CXMLFile;
class IXMLDOMElement;
class IXMLDOMNode;
class MemoryHeap;

class PrintTemplate {
 public:
  // `new PrintTemplate(name)`; null if the pool gives nothing.
  static PrintTemplate* GeneratePrintTemplate(CString name);

  // Empty containers, then InitializePrintTemplate(name).
  explicit PrintTemplate(CString name);
  PrintTemplate(const PrintTemplate&) = delete;
  PrintTemplate& operator=(const PrintTemplate&) = delete;
  // ResetPrintTemplate.
  ~PrintTemplate();

  // From the pool; null when the pool does not exist or is exhausted.
  static void* operator new(size_t size) noexcept;
  // Back to the pool; nothing when the pool does not exist.
  static void operator delete(void* pointer) noexcept;

  // The pool of templates, created (if not there yet) with the library and
  // released at its end, after the last template is gone.
  static void InitializePrintTemplateCache();
  static void ReleasePrintTemplateCache();
  // The pool, or null outside start-up and shut-down.
  static MemoryHeap* GetPrintTemplateCache();

  // A non-empty name makes the root tag and links it to this template (an
  // old root is destroyed first); an empty name leaves the root null.
  void InitializePrintTemplate(CString name);
  // Destroys the root tag and every listed tag (with their templates) and
  // clears both containers.
  void ResetPrintTemplate();
  // Renames the root; 0 without a root.
  int SetRootTagName(CString name);

  // Adds the child's root tag to this level, under its name and at the end
  // of the order, and makes this template its owner; the child is owned by
  // the tree from now on. 0, with nothing changed, for a child without a
  // root or with a root of empty name, and for a child already added to a
  // template or that would make the tree a loop.
  int AddPrintTemplate(PrintTemplate* child);
  // Adds the tag under its name and at the end of the order and takes it
  // over; the tag's owner is not set. Null for a null tag or one already
  // listed here.
  PrintTag* AddTag_wObj(PrintTag* tag);
  // Null if the name or the value is empty: a tag without a value is never
  // added. Otherwise makes the tag (its value CDATA-wrapped when cdata is
  // non-zero), adds it, sets this template as its owner and returns it.
  PrintTag* AddTag(CString name, CString value, int cdata);
  // AddTag with the value in "%d" form, no wrapping; 0 gives "0" and so is
  // kept.
  PrintTag* AddTag_wIntValue(CString name, int value);

  // Attributes of the root tag (no wrapping); 0 without a root.
  int SetAttribute(CString name, CString value);
  int SetAttribute_wInt(CString name, int value);
  int RemoveAttribute(CString name);

  // 0 if no tag of that name is listed; otherwise destroys every tag of
  // that name (they leave the order too) and returns 1.
  int RemoveTag(CString name);
  // The first tag of that name, or null.
  PrintTag* GetTag(CString name);
  // The tags of that name in the order of adding, or null. The list belongs
  // to the template.
  CArray<PrintTag*, PrintTag*>* GetTags(CString name);
  // The template whose level holds this one's root tag, or null.
  PrintTemplate* GetParentPrintTemplate();
  // The root tag, or null.
  PrintTag* GetRootTag() const { return root_; }

  // With levelOnly 0 and a root: the root's FlushTag. Otherwise every tag
  // of this level in the order of adding, each followed by a line feed
  // (the last one too).
  CString FlushTemplate(int levelOnly);

  // With levelOnly 0 and a root: the root's FlushTagIntoXMLFile. Otherwise
  // every tag of every non-empty name, name by name, through
  // FlushTagIntoXMLFile with `parent` and `out`; the results or-ed together
  // starting from 0. *out ends holding the last element added (with a
  // reference for the caller).
  int FlushTemplateIntoXMLFile(CXMLFile* xml, IXMLDOMElement* parent, IXMLDOMNode** out,
                               int levelOnly);

 private:
  friend class PrintTag;

  // Appends FlushTemplate's text to out.
  void AppendTemplate(std::u16string& out, int levelOnly) const;
  // Takes `tag` out of both containers without destroying it.
  void ForgetTag(PrintTag* tag);
  // Unlinks and destroys the root tag, taking it out of the level that
  // holds it.
  void DestroyRoot();

  PrintTag* root_ = nullptr;                                // owned
  CArray<PrintTag*, PrintTag*> ordered_;                    // every listed tag, not owning
  std::map<CString, CArray<PrintTag*, PrintTag*>> byName_;  // owns the tags
};

}  // namespace kordll

#endif  // KORDLL_TOOLKIT_PRINTTEMPLATE_H_
