// KdbExaminer: reads the bytes of a record (".kdb") or string (".sdb")
// database file on its own, to show what is inside and to find what is
// wrong with it. Used by the `kordll kdb` and `kordll sdb` tools.
//
// The inspector never changes a file and never trusts one: every count,
// length and link is checked against the bytes before it is used, so a
// damaged or hostile file gives a list of problems, never a crash, a hang or
// an allocation beyond the size of the file.

#ifndef KORDLL_RECORD_KDBEXAMINER_H_
#define KORDLL_RECORD_KDBEXAMINER_H_

#include <functional>
#include <ostream>
#include <string>
#include <vector>

namespace kordll {

class KdbExaminer {
 public:
  // One field position of a relation's layout, as the catalogue knows it.
  struct FieldDesc {
    int id = -1;       // field id; -1 for a hole in the layout
    std::string name;  // the field's key (decoration name), UTF-8
    int type = -1;     // type id: 0 int, 1 double, 2 date, 3 bool, 4 string
  };
  // Answers the layout of a relation: fills *fields with one entry per
  // field position and returns true, or returns false for a relation it
  // does not know.
  using RelationLookup = std::function<bool(int relation, std::vector<FieldDesc>* fields)>;

  // Prints the database header, each sub-table (id, relation, lengths, slot
  // states) and each record, following its chain, field by field. With a
  // lookup that knows the record's relation (and a layout of as many field
  // positions as the sub-table has), each field is printed with its id, key
  // and type and decoded as its type says (string fields as marked text,
  // the others as 8-bit text); otherwise by position, a piece that starts
  // with a marker being read as marked text. Returns the number of problems
  // met on the way.
  static int DumpKdb(const std::string& bytes, std::ostream& out);
  static int DumpKdb(const std::string& bytes, std::ostream& out, const RelationLookup& lookup);
  // Walks every sub-table, slot and chain and prints one line per problem,
  // with its file offset. Returns the number of problems.
  static int CheckKdb(const std::string& bytes, std::ostream& out);
  // The same for a string file: header, slots and chains.
  static int DumpSdb(const std::string& bytes, std::ostream& out);
  static int CheckSdb(const std::string& bytes, std::ostream& out);
};

}  // namespace kordll

#endif  // KORDLL_RECORD_KDBEXAMINER_H_
