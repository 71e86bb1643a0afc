// The border between code that may throw and the published operations, which do not.
#pragma once

#include <exception>

#include "quillanest/platform/dataaccess/ComError.h"

namespace quillanest {

// The result of work(), or `neutral` when it runs out of memory or of another resource of the system. An error of the
// data-access layer passes: it is the one exception that clients see.
template <class Result, class Work>
[[nodiscard]] Result neutral_on_failure(Result neutral, Work work) {
  try {
    return work();
  } catch (const _com_error &) {
    throw;
  } catch (const std::exception &) {
    return neutral;
  }
}

}  // namespace quillanest
