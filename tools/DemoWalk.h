// What the steps of `kordll demo` share: the walk that numbers the steps and
// remembers a failure, and a way for a step kept in a file of its own
// (tools/Demo<Name>.cpp) to join the walk in its place.
//
//   static const kordll_tool::DemoStepRegistration kSettings{60, &SettingsStep};
//
// Steps run in the order of their numbers; the built-in steps of
// DemoCommand.cpp take 10 (text) to 50 (profile).

#ifndef KORDLL_TOOLS_DEMOWALK_H_
#define KORDLL_TOOLS_DEMOWALK_H_

#include <ostream>
#include <string>
#include <vector>

namespace kordll_tool {

class Walk {
 public:
  Walk(std::ostream& out, std::ostream& err) : out_(out), err_(err) {}

  std::ostream& out() { return out_; }

  // Opens a step with its heading.
  void Step(const char* heading) { out_ << "\n" << ++step_ << ". " << heading << "\n"; }

  // Records a failure of the current step unless `ok`. Returns `ok`.
  bool Expect(bool ok, const std::string& what) {
    if (!ok) {
      err_ << "kordll demo: step " << step_ << ": " << what << "\n";
      failed_ = true;
    }
    return ok;
  }

  bool failed() const { return failed_; }

 private:
  std::ostream& out_;
  std::ostream& err_;
  int step_ = 0;
  bool failed_ = false;
};

using DemoStepFn = void (*)(Walk& walk);

struct DemoStep {
  int order;
  DemoStepFn run;
};

// All steps, sorted by their order.
std::vector<DemoStep>& DemoSteps();

struct DemoStepRegistration {
  DemoStepRegistration(int order, DemoStepFn run);
};

}  // namespace kordll_tool

#endif  // KORDLL_TOOLS_DEMOWALK_H_
