#include "kordll/record/KdbExaminer.h"

#include <array>
#include <cstring>
#include <map>
#include <set>
#include <vector>

#include "kordll/platform/CString.h"
#include "kordll/record/KdbFormat.h"
#include "kordll/record/MarkedText.h"

namespace kordll {

namespace {

struct SubTable {
  uint64_t start = 0;
  uint64_t firstSlot = 0;
  int id = 0;
  int relation = 0;
  int fields = 0;
  int64_t slotSize = 0;
  std::string states;  // one character per slot
  std::vector<int> lengths;
};

struct Slot {
  int valid = 0;  // header scanned
  int relation = -1, next = -1, sequence = -1, previous = -1;
};

class KdbWalk {
 public:
  KdbWalk(const std::string& bytes, std::ostream& out, bool dump,
          const KdbExaminer::RelationLookup* lookup = nullptr)
      : b_(bytes), out_(out), dump_(dump), lookup_(lookup) {}

  int Run() {
    Header();
    SubTables();
    Slots();
    Chains();
    if (dump_) Records();
    return problems_;
  }

 private:
  void Problem(uint64_t offset, const std::string& what) {
    ++problems_;
    out_ << "problem at offset " << offset << ": " << what << "\n";
  }
  // A copy of [offset, offset + n) cut to the file, NUL-terminated.
  std::string Take(uint64_t offset, uint64_t n) const {
    if (offset >= b_.size()) return std::string();
    return b_.substr(offset, std::min<uint64_t>(n, b_.size() - offset));
  }

  void Header() {
    if (b_.size() < static_cast<size_t>(KdbFormat::kDBHeaderSize)) {
      Problem(0, "file shorter than the 1000-byte database header");
      return;
    }
    std::string h = Take(0, KdbFormat::kDBHeaderSize - 1);
    h = h.substr(0, std::strlen(h.c_str()));
    int v[2] = {0, 0};
    const int n = KdbFormat::ScanInts(h.c_str(), h.size(), v, 2);
    if (dump_) out_ << "database header: " << h << "\n";
    if (n < 2) {
      Problem(0, "database header does not scan as [version:id:statistics]");
    } else if (v[0] != KdbFormat::kVersion) {
      Problem(0, "version " + std::to_string(v[0]) + ", expected 11");
    }
    if (b_[KdbFormat::kDBHeaderSize - 1] != '\n') Problem(999, "database header not ended by 0x0A");
  }

  void SubTables() {
    uint64_t pos = KdbFormat::kDBHeaderSize;
    std::map<int, int> ids;
    while (pos < b_.size()) {
      SubTable t;
      t.start = pos;
      std::string line = Take(pos, KdbFormat::kSubTableLineSize);
      int v[5];
      if (line.size() < static_cast<size_t>(KdbFormat::kSubTableLineSize) ||
          KdbFormat::ScanInts(line.c_str(), line.size(), v, 5) != 5) {
        Problem(pos, "sub-table line does not scan; the rest of the file is out of reach");
        return;
      }
      t.id = v[0];
      t.relation = v[4];
      t.fields = v[3];
      if (v[1] != KdbFormat::kSlotsPerSubTable || t.fields < 0) {
        Problem(pos, "sub-table slot count " + std::to_string(v[1]) + " or field count " +
                         std::to_string(t.fields) + " is impossible; the rest is out of reach");
        return;
      }
      if (t.id < 0 || t.id > KdbFormat::kMaxSubTableID) {
        Problem(pos, "sub-table id " + std::to_string(t.id) + " out of 0.." +
                         std::to_string(KdbFormat::kMaxSubTableID) + "; the rest is out of reach");
        return;
      }
      if (ids.count(t.id) != 0) {
        Problem(pos, "sub-table id " + std::to_string(t.id) + " repeated");
      }
      ids[t.id] = 1;
      const int64_t header = KdbFormat::SubTableHeaderSize(v[1], t.fields);
      if (static_cast<int64_t>(pos) + header > static_cast<int64_t>(b_.size())) {
        Problem(pos, "sub-table header runs past the end of the file");
        return;
      }
      std::string states = Take(pos + 42, v[1] + 2);
      if (states.front() != '[' || states.back() != ']') {
        Problem(pos + 42, "slot states not in brackets");
        return;
      }
      t.states = states.substr(1, v[1]);
      const uint64_t lpos = pos + 42 + v[1] + 2;
      std::string lengths = Take(lpos, 6 * static_cast<uint64_t>(t.fields) + 1);
      if (lengths.empty() || lengths[0] != '[') {
        Problem(lpos, "field lengths not opened by [");
        return;
      }
      if (lengths.back() != '\n')
        Problem(lpos + lengths.size() - 1, "field lengths not ended by 0x0A");
      lengths.back() = '\0';
      t.lengths = KdbFormat::ParseLengths(lengths.c_str(), lengths.size());
      if (static_cast<int>(t.lengths.size()) != t.fields) {
        Problem(lpos, "field lengths count " + std::to_string(t.lengths.size()) +
                          " differs from field count " + std::to_string(t.fields));
        return;
      }
      for (int l : t.lengths) {
        if (l < 0 || l > KdbFormat::kMaxFieldLength) {
          Problem(lpos, "field length " + std::to_string(l) + " out of 0..9999");
          return;
        }
      }
      t.slotSize = KdbFormat::SlotSize(t.lengths);
      t.firstSlot = pos + header;
      if (dump_) {
        out_ << "sub-table " << t.id << " at offset " << pos << ": relation " << t.relation << ", "
             << t.fields << " fields, slot size " << t.slotSize << ", lengths [";
        for (size_t i = 0; i < t.lengths.size(); ++i) out_ << (i ? "," : "") << t.lengths[i];
        out_ << "], states " << t.states << "\n";
      }
      pos = t.firstSlot + static_cast<uint64_t>(t.slotSize) * v[1];
      tables_.push_back(t);
      by_id_[t.id] = tables_.size() - 1;
    }
    if (pos > b_.size() && !tables_.empty())
      Problem(b_.size(), "file ends inside the last sub-table");
  }

  uint64_t SlotOffset(const SubTable& t, int place) const {
    return t.firstSlot + static_cast<uint64_t>(t.slotSize) * place;
  }

  void Slots() {
    for (const SubTable& t : tables_) {
      for (int place = 0; place < KdbFormat::kSlotsPerSubTable; ++place) {
        const int index = t.id * KdbFormat::kSlotsPerSubTable + place;
        const uint64_t off = SlotOffset(t, place);
        Slot s;
        std::string h = Take(off, KdbFormat::kSlotHeaderSize);
        int v[4];
        if (h.size() == static_cast<size_t>(KdbFormat::kSlotHeaderSize) &&
            KdbFormat::ScanInts(h.c_str(), h.size(), v, 4) == 4) {
          s.valid = 1;
          s.relation = v[0];
          s.next = v[1];
          s.sequence = v[2];
          s.previous = v[3];
        }
        slots_[index] = s;
        const char state = t.states[place];
        if (!s.valid) {
          if (state == '1' || state == '2')
            Problem(off, "slot " + std::to_string(index) + " header does not scan");
          continue;
        }
        if (off + t.slotSize <= b_.size() && b_[off + t.slotSize - 1] != '\n') {
          Problem(off + t.slotSize - 1, "slot " + std::to_string(index) + " not ended by 0x0A");
        }
        if (state == '0' && s.sequence != -1) {
          Problem(off, "slot " + std::to_string(index) +
                           " is free in the states but its header is taken");
        }
        if ((state == '1' || state == '2') && s.sequence == -1) {
          Problem(off, "slot " + std::to_string(index) +
                           " is taken in the states but its header is free");
        }
        if (state == '1' && (s.sequence != 0 || s.previous != -1)) {
          Problem(off, "head slot " + std::to_string(index) + " has sequence " +
                           std::to_string(s.sequence) + " and previous " +
                           std::to_string(s.previous));
        }
        if (state == '2' && s.sequence <= 0) {
          Problem(off, "continuation slot " + std::to_string(index) + " has sequence " +
                           std::to_string(s.sequence));
        }
        if ((state == '1' || state == '2') && s.relation != t.relation) {
          Problem(off, "slot " + std::to_string(index) + " of relation " +
                           std::to_string(s.relation) + " in a sub-table of relation " +
                           std::to_string(t.relation));
        }
      }
    }
  }

  char StateOf(int index) const {
    if (index < 0) return '?';
    auto it = by_id_.find(index / KdbFormat::kSlotsPerSubTable);
    if (it == by_id_.end()) return '?';
    return tables_[it->second].states[index % KdbFormat::kSlotsPerSubTable];
  }

  void Chains() {
    const size_t total = slots_.size();
    for (const SubTable& t : tables_) {
      for (int place = 0; place < KdbFormat::kSlotsPerSubTable; ++place) {
        if (t.states[place] != '1') continue;
        int index = t.id * KdbFormat::kSlotsPerSubTable + place;
        reached_[index] = 1;
        size_t steps = 0;
        for (;;) {
          const Slot& s = slots_[index];
          if (!s.valid || s.next == -1) break;
          const int next = s.next;
          const uint64_t off = SlotOffset(tables_[by_id_[index / 40]], index % 40);
          const char state = StateOf(next);
          if (state == '?') {
            Problem(off, "slot " + std::to_string(index) + " links to " + std::to_string(next) +
                             ", outside the file");
            break;
          }
          if (state != '2') {
            Problem(off, "slot " + std::to_string(index) + " links to " + std::to_string(next) +
                             (state == '1' ? ", a head" : ", a free slot"));
            break;
          }
          const Slot& n = slots_[next];
          if (n.previous != index || n.sequence != s.sequence + 1) {
            Problem(off, "slot " + std::to_string(next) + " does not link back to " +
                             std::to_string(index) + " with the next sequence");
            break;
          }
          if (reached_.count(next) != 0 || ++steps > total) {
            Problem(off, "chain through slot " + std::to_string(next) + " loops");
            break;
          }
          reached_[next] = 1;
          index = next;
        }
      }
    }
    for (const SubTable& t : tables_) {
      for (int place = 0; place < KdbFormat::kSlotsPerSubTable; ++place) {
        const int index = t.id * KdbFormat::kSlotsPerSubTable + place;
        if (t.states[place] == '2' && reached_.count(index) == 0) {
          Problem(SlotOffset(t, place),
                  "continuation slot " + std::to_string(index) + " belongs to no record");
        }
      }
    }
  }

  void Records() {
    for (const SubTable& t : tables_) {
      for (int place = 0; place < KdbFormat::kSlotsPerSubTable; ++place) {
        if (t.states[place] != '1') continue;
        const int head = t.id * KdbFormat::kSlotsPerSubTable + place;
        out_ << "record at slot " << head << " (relation " << t.relation << ")\n";
        const std::vector<KdbExaminer::FieldDesc>* layout = Layout(t.relation, t.fields);
        std::vector<std::u16string> text(t.fields);
        std::vector<int> more(t.fields, 1);
        int index = head;
        size_t steps = 0;
        std::string chain;
        while (index != -1 && steps++ <= slots_.size()) {
          auto it = by_id_.find(index / 40);
          if (it == by_id_.end()) break;
          const SubTable& st = tables_[it->second];
          if (st.fields != t.fields) break;
          if (!chain.empty()) chain.push_back(' ');
          chain.append(std::to_string(index));
          uint64_t p = SlotOffset(st, index % 40) + KdbFormat::kSlotHeaderSize;
          std::string status = Take(p, st.fields + 2);
          p += st.fields + 2;
          for (int i = 0; i < st.fields; ++i) {
            const std::string area = Take(p, st.lengths[i]);
            p += st.lengths[i];
            const char c = i + 1 < static_cast<int>(status.size()) ? status[i + 1] : '0';
            if (!more[i] || c == '0' || c == '\0') continue;
            const unsigned char* u = reinterpret_cast<const unsigned char*>(area.data());
            const int n = static_cast<int>(area.size());
            if (layout != nullptr) {
              // The catalogue says how the area is written: string fields
              // as marked text, all others as 8-bit text.
              if ((*layout)[i].type == 4) {
                MarkedText::AppendPiece(u, n, &text[i]);
              } else {
                MarkedText::AppendNarrow(u, n, false, &text[i]);
              }
            } else if (n >= 2 && ((u[0] == '!' && u[1] == ':') || (u[0] == ' ' && u[1] == ' '))) {
              // Without the catalogue a field's type is not known: a piece
              // that starts with a marker is read as marked text, any other
              // as 8-bit.
              MarkedText::AppendPiece(u, n, &text[i]);
            } else {
              MarkedText::AppendNarrow(u, n, false, &text[i]);
            }
            more[i] = c == '2';
          }
          const Slot& s = slots_[index];
          if (!s.valid || StateOf(s.next) != '2') break;
          index = s.next;
        }
        out_ << "  slots: " << chain << "\n";
        for (int i = 0; i < t.fields; ++i) {
          if (text[i].empty()) continue;
          if (layout != nullptr && (*layout)[i].id >= 0) {
            const KdbExaminer::FieldDesc& d = (*layout)[i];
            out_ << "  field " << d.id << " " << (d.name.empty() ? "(no key)" : d.name) << " ("
                 << TypeName(d.type) << "): " << CString(text[i]).ToUtf8() << "\n";
          } else {
            out_ << "  field " << i << ": " << CString(text[i]).ToUtf8() << "\n";
          }
        }
      }
    }
  }

  // The catalogue's layout of relation, or null when it is not known or
  // does not have fields field positions. Asked once per relation.
  const std::vector<KdbExaminer::FieldDesc>* Layout(int relation, int fields) {
    if (lookup_ == nullptr || !*lookup_) return nullptr;
    auto it = layouts_.find(relation);
    if (it == layouts_.end()) {
      std::vector<KdbExaminer::FieldDesc> layout;
      const bool known = (*lookup_)(relation, &layout);
      it = layouts_.emplace(relation, std::make_pair(known, std::move(layout))).first;
    }
    if (!it->second.first) return nullptr;
    if (static_cast<int>(it->second.second.size()) != fields) {
      if (mismatch_told_.insert(relation).second) {
        out_ << "relation " << relation << ": the catalogue's layout has "
             << it->second.second.size() << " field positions, the file " << fields
             << "; fields are shown by position\n";
      }
      return nullptr;
    }
    return &it->second.second;
  }

  static const char* TypeName(int type) {
    switch (type) {
      case 0:
        return "int";
      case 1:
        return "double";
      case 2:
        return "date";
      case 3:
        return "bool";
      case 4:
        return "string";
      default:
        return "unknown type";
    }
  }

  const std::string& b_;
  std::ostream& out_;
  bool dump_;
  const KdbExaminer::RelationLookup* lookup_;
  std::map<int, std::pair<bool, std::vector<KdbExaminer::FieldDesc>>> layouts_;
  std::set<int> mismatch_told_;
  int problems_ = 0;
  std::vector<SubTable> tables_;
  std::map<int, size_t> by_id_;
  std::map<int, Slot> slots_;
  std::map<int, int> reached_;
};

int SdbWalk(const std::string& b, std::ostream& out, bool dump) {
  int problems = 0;
  auto problem = [&](uint64_t offset, const std::string& what) {
    ++problems;
    out << "problem at offset " << offset << ": " << what << "\n";
  };
  if (b.size() < 20) {
    problem(0, "file shorter than the 20-byte header");
    return problems;
  }
  std::string h = b.substr(0, 19);
  h = h.substr(0, std::strlen(h.c_str()));
  int v[3] = {0, 0, 0};
  const int n = KdbFormat::ScanInts(h.c_str(), h.size(), v, 3);
  if (dump) out << "string database header: " << h << "\n";
  if (n < 3) {
    problem(0, "header does not scan as [version:id:size]");
    return problems;
  }
  if (v[0] != KdbFormat::kVersion) problem(0, "version " + std::to_string(v[0]) + ", expected 11");
  const int d = v[2] < 0 ? 31 : v[2];
  if (d < KdbFormat::kStringMinDataSize || d > KdbFormat::kStringMaxDataSize) {
    problem(0, "slot data size " + std::to_string(d) + " out of 7..9999");
    return problems;
  }
  if (b[19] != '\n') problem(19, "header not ended by 0x0A");
  const uint64_t stride = 19 + static_cast<uint64_t>(d);
  const uint64_t count = (b.size() - 20) / stride;
  if ((b.size() - 20) % stride != 0) problem(20 + count * stride, "file ends inside a slot");
  std::vector<std::array<int, 3>> slots(count, {-9, -1, -1});
  for (uint64_t i = 0; i < count; ++i) {
    const uint64_t off = 20 + i * stride;
    std::string sh = b.substr(off, 19);
    int s[3];
    if (KdbFormat::ScanInts(sh.c_str(), 19, s, 3) != 3) {
      problem(off, "slot " + std::to_string(i) + " header does not scan");
      continue;
    }
    slots[i] = {s[0], s[1], s[2]};
    if (s[0] < 0 || s[0] > 2)
      problem(off, "slot " + std::to_string(i) + " status " + std::to_string(s[0]));
    if (b[off + stride - 1] != '\n')
      problem(off + stride - 1, "slot " + std::to_string(i) + " not ended by 0x0A");
  }
  std::vector<int> reached(count, 0);
  for (uint64_t i = 0; i < count; ++i) {
    if ((slots[i][0] != 1 && slots[i][0] != 2) || slots[i][2] != -1) continue;
    uint64_t index = i;
    std::u16string text;
    std::string chain;
    for (uint64_t steps = 0;; ++steps) {
      reached[index] = 1;
      if (!chain.empty()) chain.push_back(' ');
      chain.append(std::to_string(index));
      const uint64_t off = 20 + index * stride;
      const unsigned char* u = reinterpret_cast<const unsigned char*>(b.data() + off + 19);
      MarkedText::AppendPiece(u, d - 1, &text);
      if (slots[index][0] != 2) break;
      const int next = slots[index][1];
      if (next < 0 || static_cast<uint64_t>(next) >= count) {
        problem(off, "slot " + std::to_string(index) + " links to " + std::to_string(next) +
                         ", outside the file");
        break;
      }
      if (slots[next][2] != static_cast<int>(index) ||
          (slots[next][0] != 1 && slots[next][0] != 2)) {
        problem(off, "slot " + std::to_string(next) + " does not continue the text of slot " +
                         std::to_string(index));
        break;
      }
      if (reached[next] || steps > count) {
        problem(off, "chain through slot " + std::to_string(next) + " loops");
        break;
      }
      index = static_cast<uint64_t>(next);
    }
    if (dump)
      out << "text at slot " << i << " (slots " << chain << "): " << CString(text).ToUtf8() << "\n";
  }
  for (uint64_t i = 0; i < count; ++i) {
    if ((slots[i][0] == 1 || slots[i][0] == 2) && !reached[i]) {
      problem(20 + i * stride, "slot " + std::to_string(i) + " belongs to no text");
    }
  }
  if (dump) out << count << " slots of " << d << " bytes\n";
  return problems;
}

}  // namespace

int KdbExaminer::DumpKdb(const std::string& bytes, std::ostream& out) {
  return KdbWalk(bytes, out, true).Run();
}

int KdbExaminer::DumpKdb(const std::string& bytes, std::ostream& out,
                         const RelationLookup& lookup) {
  return KdbWalk(bytes, out, true, &lookup).Run();
}

int KdbExaminer::CheckKdb(const std::string& bytes, std::ostream& out) {
  return KdbWalk(bytes, out, false).Run();
}

int KdbExaminer::DumpSdb(const std::string& bytes, std::ostream& out) {
  return SdbWalk(bytes, out, true);
}

int KdbExaminer::CheckSdb(const std::string& bytes, std::ostream& out) {
  return SdbWalk(bytes, out, false);
}

}  // namespace kordll
