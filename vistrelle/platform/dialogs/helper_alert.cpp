#include "vistrelle/platform/dialogs/alert_state.h"

namespace vistrelle::platform {

std::unique_ptr<AlertPresenter> presentByHelper(const AlertContent& /*content*/,
                                                std::shared_ptr<AlertState> /*state*/) {
  return nullptr;
}

}  // namespace vistrelle::platform
