#include "kordll/control/TidrelManager.h"

namespace kordll {

TidrelManager::TidrelManager() = default;

TidrelManager::~TidrelManager() = default;

}  // namespace kordll
