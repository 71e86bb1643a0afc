#include "quillanest/sql/Refusals.h"

namespace quillanest {

Reason reason_of(std::string_view driver_text, std::string_view values) noexcept {
  Reason reason;
  std::string_view rest = driver_text.substr(0, driver_text.find_first_of("\r\n"));
  if (rest.ends_with(';')) rest.remove_suffix(1);
  while (!rest.empty()) {
    const std::size_t open = rest.find_first_of("\"'");
    const std::size_t close = open == std::string_view::npos ? open : rest.find(rest[open], open + 1);
    if (close == std::string_view::npos) break;
    const std::string_view quoted = rest.substr(open + 1, close - open - 1);
    reason.add(rest.substr(0, open + 1));
    reason.add(!quoted.empty() && values.find(quoted) != std::string_view::npos ? std::string_view("...") : quoted);
    reason.add(rest.substr(close, 1));
    rest.remove_prefix(close + 1);
  }
  reason.add(rest);
  if (reason.view().empty()) reason.add("no reason is given");
  return reason;
}

}  // namespace quillanest
