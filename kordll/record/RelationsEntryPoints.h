// RelationsEntryPoints: the questions the record core asks the relation
// catalogue, and the answers they get while no catalogue stands.
//
// The record core lies under the catalogue (GlobalRelationsCtrl, Relation)
// and the print templates, and still needs a relation's layout and its
// printed form. It asks through the object installed here; it never includes
// the catalogue. The default object answers as "no catalogue":
//
//   GetRGDBTemplate       a lookup in a table of templates given in by the
//                         caller through SetTemplate; null for an unknown id
//   DecorateFocusable,    null (the record then has no printed form)
//   PrintFocusableBackup
//   AddPrintTemplateAttribute  0, nothing added
//
// The catalogue takes over by deriving from this class and calling
// Install(this) when it comes into being; the record core's callers do not
// change. Tests install a derived object of their own, or fill the default
// table with SetTemplate.
//
// Thread safety: Get() and Install() may be called from any thread. An
// installed object must stay alive, and answer from any thread, until it is
// replaced (Install of another object or of null) and no call through it can
// still be running; owners install once and keep the object until shut-down.

#ifndef KORDLL_RECORD_RELATIONSENTRYPOINTS_H_
#define KORDLL_RECORD_RELATIONSENTRYPOINTS_H_

#include "kordll/platform/CString.h"

namespace kordll {

class Focusable;
class PrintTemplate;
class RGDBTemplate;

class RelationsEntryPoints {
 public:
  RelationsEntryPoints() = default;
  RelationsEntryPoints(const RelationsEntryPoints&) = delete;
  RelationsEntryPoints& operator=(const RelationsEntryPoints&) = delete;
  virtual ~RelationsEntryPoints();

  // The object that answers now; never null.
  static RelationsEntryPoints* Get();
  // Makes entry answer from now on; null puts back the default answers.
  // Returns the object installed before (null if it was the default). The
  // caller keeps ownership of entry.
  static RelationsEntryPoints* Install(RelationsEntryPoints* entry);

  // The layout of a relation, or null. The template is not owned by the
  // caller and lives as long as its relation (or its table entry).
  virtual RGDBTemplate* GetRGDBTemplate(int relation);
  // A new print template describing record for display (escape as the
  // relation takes it), or null. The caller owns the result.
  virtual PrintTemplate* DecorateFocusable(Focusable* record, int escape);
  // A new print template describing record for a backup, or null. The
  // caller owns the result.
  virtual PrintTemplate* PrintFocusableBackup(Focusable* record);
  // Adds the attribute name="value" to the root tag of printed; 1 if added.
  // printed is a template given out by DecorateFocusable.
  virtual int AddPrintTemplateAttribute(PrintTemplate* printed, CString name, CString value);

  // The default table: the template that GetRGDBTemplate of the default
  // object gives for relation (null removes the entry). Not owned: the
  // caller keeps the template alive while it is in the table.
  static void SetTemplate(int relation, RGDBTemplate* layout);
  // Empties the default table.
  static void ClearTemplates();
};

}  // namespace kordll

#endif  // KORDLL_RECORD_RELATIONSENTRYPOINTS_H_
