#include "tools/DemoWalk.h"

#include <algorithm>

namespace kordll_tool {

std::vector<DemoStep>& DemoSteps() {
  static std::vector<DemoStep> steps;
  return steps;
}

DemoStepRegistration::DemoStepRegistration(int order, DemoStepFn run) {
  auto& steps = DemoSteps();
  steps.push_back(DemoStep{order, run});
  std::stable_sort(steps.begin(), steps.end(),
                   [](const DemoStep& a, const DemoStep& b) { return a.order < b.order; });
}

}  // namespace kordll_tool
