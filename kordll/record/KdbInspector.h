// KdbInspector: reads the bytes of a record (".kdb") or string (".sdb")
// database file on its own, to show what is inside and to find what is
// wrong with it. Used by the `kordll kdb` and `kordll sdb` tools.
//
// The inspector never changes a file and never trusts one: every count,
// length and link is checked against the bytes before it is used, so a
// damaged or hostile file gives a list of problems, never a crash, a hang or
// an allocation beyond the size of the file.

#ifndef KORDLL_RECORD_KDBINSPECTOR_H_
#define KORDLL_RECORD_KDBINSPECTOR_H_

#include <ostream>
#include <string>

namespace kordll {

class KdbInspector {
 public:
  // Prints the database header, each sub-table (id, relation, lengths, slot
  // states) and each record, field by field by position, following its
  // chain. Returns the number of problems met on the way.
  static int DumpKdb(const std::string& bytes, std::ostream& out);
  // Walks every sub-table, slot and chain and prints one line per problem,
  // with its file offset. Returns the number of problems.
  static int CheckKdb(const std::string& bytes, std::ostream& out);
  // The same for a string file: header, slots and chains.
  static int DumpSdb(const std::string& bytes, std::ostream& out);
  static int CheckSdb(const std::string& bytes, std::ostream& out);
};

}  // namespace kordll

#endif  // KORDLL_RECORD_KDBINSPECTOR_H_
