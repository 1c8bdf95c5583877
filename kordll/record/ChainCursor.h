// ChainCursor: the one walk along a chain of slots, for the record file and
// the string file alike.
//
// A text or a record longer than one slot runs on through slots that link
// forward (next) and back (previous); the record file also numbers them
// (sequence 0 in the head, 1 in the slot after it, ...). The cursor keeps
// where the walk stands and decides whether the slot it reached is the one
// the chain promises: its sequence and back link must be those expected,
// and the walk may not take more steps than the file has slots. A damaged
// file (a loop, a link into another chain) thus ends in an error, never in a
// hang or a text without end.
//
// Usage:
//   ChainCursor walk(head, slotsInFile);
//   do {
//     if (!walk.Visit()) return kErrRead;  // longer than the file
//     ... read the header of walk.slot() ...
//     if (!walk.Fits(header.sequence, header.previous)) return kErrRead;
//     ...
//   } while (more && (walk.Advance(header.next), true));
//
// Not thread-safe; one walk belongs to one operation.

#ifndef KORDLL_RECORD_CHAINCURSOR_H_
#define KORDLL_RECORD_CHAINCURSOR_H_

#include <cstdint>

namespace kordll {

class ChainCursor {
 public:
  // For stores whose slot headers carry no sequence (the string file).
  static constexpr int kNoSequence = -2;

  // A walk that starts at slot, which stands at place `sequence` of its
  // chain, in a file of `bound` slots.
  ChainCursor(int slot, int64_t bound, int sequence = 0)
      : slot_(slot), sequence_(sequence), bound_(bound) {}

  int slot() const { return slot_; }
  int sequence() const { return sequence_; }
  // The slot visited before this one; -1 at the start of the walk.
  int previous() const { return previous_; }
  // Steps taken, this one included.
  int64_t steps() const { return steps_; }

  // Counts one visit of the current slot. False once the walk has visited
  // more slots than the file has: the chain loops.
  bool Visit() { return ++steps_ <= bound_; }
  // For a walk that adds slots to the file as it goes (a text that grows).
  void SetBound(int64_t bound) { bound_ = bound; }

  // Whether a slot header found at the current slot belongs there. At the
  // start of the walk only the sequence is checked (a head says 0); later,
  // the sequence must be the next one and the back link must name the slot
  // the walk came from. headerSequence kNoSequence checks the back link only.
  bool Fits(int headerSequence, int headerPrevious) const {
    if (headerSequence != kNoSequence && headerSequence != sequence_) return false;
    return previous_ == -1 || headerPrevious == previous_;
  }

  // Takes the place in the chain from the first slot's own header, for a
  // walk that starts in the middle of a chain (freeing the tail of one).
  void Anchor(int headerSequence) { sequence_ = headerSequence; }

  // Moves on to next, one place further along the chain.
  void Advance(int next) {
    previous_ = slot_;
    slot_ = next;
    ++sequence_;
  }

 private:
  int slot_;
  int sequence_;
  int previous_ = -1;
  int64_t steps_ = 0;
  int64_t bound_;
};

}  // namespace kordll

#endif  // KORDLL_RECORD_CHAINCURSOR_H_
