// GlobalRelationsCtrl: the relation catalogue, one map from relation id to
// Relation.
//
// The catalogue is filled in code when it is made, from the default table
// of the 31 relations of the system (LoadDefaultRelations); nothing is read
// from a file. It is keyed by id, never by name: two relations may bear the
// same catalogue name (4 and 11 are both "post").
//
// The one instance of the process is made and deleted by the global
// registry. While it stands, GetGlobalRelationsCtrl() returns it and the
// record core's questions about layouts and printed forms
// (RelationsEntryPoints) are answered by it; its destruction puts back the
// answers the record core gives without a catalogue.
//
// Thread safety: the catalogue is filled before any thread that reads it
// starts, and reading needs no lock. AddRelation and RemoveRelation are not
// safe against concurrent readers: an application adds its own relations
// before its threads start.

#ifndef KORDLL_SCHEMA_GLOBALRELATIONSCTRL_H_
#define KORDLL_SCHEMA_GLOBALRELATIONSCTRL_H_

#include <map>
#include <memory>
#include <vector>

#include "kordll/platform/CString.h"

namespace kordll {

class DBTaskItem;
class RGDBTemplate;
class Relation;

class GlobalRelationsCtrl {
 public:
  // Where the relation distribution file lies, given by the settings owner:
  // the current user's running path. Returns "" while there is none.
  using RunningPathSource = CString (*)();

  // Version number of the schema, the first item of the distribution file.
  static int m_iRelationDistID;

  // Builds the map and loads the default relations. If no instance stands,
  // the new object becomes the instance of the process
  // (GetGlobalRelationsCtrl) and answers the record core's questions from
  // now on; a catalogue made while another is the instance is a private
  // one and changes no global answer.
  GlobalRelationsCtrl();
  GlobalRelationsCtrl(const GlobalRelationsCtrl&) = delete;
  GlobalRelationsCtrl& operator=(const GlobalRelationsCtrl&) = delete;
  // Deletes every relation and empties the map. If this object is the
  // instance of the process, there is none afterwards and the record core
  // gets its answers without a catalogue again.
  virtual ~GlobalRelationsCtrl();

  // The instance of the process, or null. Not owned by the caller.
  static GlobalRelationsCtrl* GetGlobalRelationsCtrl();

  // Adds each relation of the default table, in the loader's order, that
  // the catalogue does not hold yet: a relation already present under an id
  // is left untouched and gets none of the table's fields.
  void LoadDefaultRelations();

  // Stores relation under its id. If the id is taken and replace is 0,
  // returns 0 and changes nothing (relation stays with the caller);
  // otherwise the old relation is deleted, the catalogue takes ownership of
  // relation and 1 is returned. A null relation is refused with 0.
  int AddRelation(Relation* relation, int replace);
  // Takes the relation of id out of the catalogue and returns it; the caller
  // owns it then. Null if the id is absent.
  Relation* RemoveRelation(int id);
  // The relation of id, or null. Owned by the catalogue.
  Relation* GetRelation(int id) const;
  // The number of relations held.
  int GetRelationCount() const { return static_cast<int>(relations_.size()); }
  // The ids held, ascending.
  std::vector<int> GetRelationIDs() const;

  // The template of relation id in the catalogue of the process; null when
  // there is no catalogue, no such relation, or the relation has no fields.
  // Owned by the relation.
  static RGDBTemplate* GetRGDBTemplate(int id);

  // For each field of relation relationId whose type code is fieldType, asks
  // task to load it (task type 2 at the field's position). An absent
  // relation, or a null task, leaves the task as it is.
  void LoadRelationFields(int relationId, int fieldType, DBTaskItem* task) const;

  // The relation ids of the default table in the order they are loaded.
  static const std::vector<int>& GetDefaultRelationOrder();

  // The relation distribution file, "RelationDist.korr" in the current
  // user's running path, records the schema of the user's first run: if it
  // can be opened for reading it is left as it is, otherwise it is written
  // by UpdateRelationDist. Returns 1 when the file was there or was written,
  // 0 otherwise. The running path comes from the source installed with
  // SetRunningPathSource; without a source, or with an empty path, nothing
  // is done and 0 is returned.
  static int CheckRelationDist();
  // The same, in the folder runningPath.
  static int CheckRelationDist(CString runningPath);
  // Installs the source of the running path (null removes it). Call before
  // threads start.
  static void SetRunningPathSource(RunningPathSource source);

  // Writes the distribution file at path (made anew): "%d" of
  // m_iRelationDistID, then for each relation in ascending id order "|%d" of
  // its id, ":%d %d %d" of field id, size and type for each slot of its
  // field array (":0 0 0" for a hole) and a line feed. The text is held in
  // 16-bit units and written with a byte count equal to its length in
  // units, so the file holds the first half of the text as UTF-16LE: that is
  // the format such files have always had. Returns 1 when every byte was
  // written; 0 without a catalogue or when the write fails.
  static int UpdateRelationDist(CString path);
  // The text UpdateRelationDist writes (before it is cut to half), or "" if
  // there is no catalogue.
  static CString BuildRelationDistText();

 private:
  class CatalogueEntryPoints;

  // Owns its relations. Sorted by id so that whatever is written from the
  // catalogue comes out in the same order every time.
  std::map<int, Relation*> relations_;
  // Answers the record core while this object is the instance.
  std::unique_ptr<CatalogueEntryPoints> entryPoints_;
};

}  // namespace kordll

#endif  // KORDLL_SCHEMA_GLOBALRELATIONSCTRL_H_
