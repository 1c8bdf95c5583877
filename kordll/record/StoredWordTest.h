// StoredWordTest: whether a word can occur in a text field, asked of the
// field's stored bytes before they are decoded into a record.
//
// A scan that searches records for a word (a title or description holding
// "harbour") gives the test to the engine through its task: a record whose
// searched fields certainly do not hold the word is passed over without
// being decoded, and the scan goes on to the next record. The answer is
// exact for a field stored whole in the record's first slot and "may hold"
// for anything it cannot see (a text that goes on in a further slot), so
// that the records the scan gives are a superset of those that hold the
// word: the caller still tests what it receives.
//
// Case folds as the library's lowering does (simple case mapping unit by
// unit), with ASCII mapped through a table: only characters outside ASCII
// are lowered one by one, and an area of marked text that holds none of
// them is searched in its bytes as they stand.
//
// Used by one thread at a time (it keeps scratch space).

#ifndef KORDLL_RECORD_STOREDWORDTEST_H_
#define KORDLL_RECORD_STOREDWORDTEST_H_

#include <array>
#include <string>
#include <vector>

#include "kordll/platform/CString.h"

namespace kordll {

class StoredWordTest {
 public:
  // The word is searched in the fields of these ids; caseSensitive 0 lowers
  // word and text before the search.
  StoredWordTest(const CString& word, int caseSensitive, std::vector<int> fieldIds);

  // Whether the test can reject anything: the word is not empty and, once
  // lowered, holds only ASCII units from 1 to 127. Otherwise every record
  // may hold it, and the engine does not ask.
  bool Usable() const { return usable_; }
  // Whether the field of this id is searched.
  bool Searches(int fieldId) const;
  // Whether the text that this marked area (a piece of a string field)
  // decodes to may hold the word: false only when it certainly does not.
  bool MayHold(const unsigned char* area, int length);

 private:
  // A unit beyond ASCII whose lowered form is not ASCII either: it can match
  // no unit of the word.
  static constexpr unsigned char kOther = 0x80;
  // A unit as the search sees it: through table when ASCII, otherwise
  // lowered when folding, kOther when that is not ASCII.
  unsigned char Fold(char16_t unit, const std::array<unsigned char, 128>& table);
  // Puts the folded units of a multi-byte area (past its marker) into
  // folded_; their count.
  size_t FoldMultiByte(const unsigned char* bytes, int length,
                       const std::array<unsigned char, 128>& table);

  std::string word_;  // the lowered word, one byte per unit
  bool fold_;
  bool usable_ = false;
  std::vector<int> field_ids_;
  std::string folded_;             // the area's text, one byte per unit
  std::vector<char16_t> decoded_;  // an area of neither marker, decoded
};

}  // namespace kordll

#endif  // KORDLL_RECORD_STOREDWORDTEST_H_
