// The event handler of QUILLANEST_EXPLAIN, set when the library is loaded.
#include <cstdio>
#include <string_view>

#include "quillanest/base/Events.h"
#include "quillanest/base/Loading.h"
#include "quillanest/base/Report.h"
#include "quillanest/platform/Path.h"
#include "quillanest/platform/Process.h"
#include "quillanest/platform/TextFile.h"

namespace quillanest {
namespace {

// The file that events are appended to; empty for the standard error stream.
constinit FixedText<400> g_file;

constexpr const char *kNames[] = {"note", "warning", "error"};

// One line, written at once, so that those of several programs do not mix.
void explain(const Event &event, void *) {
  FixedText<1200> line;
  line.add("quillanest: ");
  line.add(std::string_view(kNames[static_cast<int>(event.severity)]));
  line.add(": ");
  if (event.place[0] != '\0') {
    line.add(std::string_view(event.place));
    for (const int number : {event.line, event.column}) {
      if (number <= 0) break;
      line.add(":");
      line.add(number);
    }
    line.add(": ");
  }
  line.add(std::string_view(event.text));
  line.add(" [");
  line.add(std::string_view(event.code));
  line.add("]\n");
  if (g_file.view().empty()) {
    (void)std::fwrite(line.view().data(), 1, line.view().size(), stderr);
  } else {
    append_to_file(g_file.c_str(), line.view());
  }
}

[[gnu::constructor(kWhenLoaded)]] void begin_to_explain() {
  const char *wanted = trusted_environment("QUILLANEST_EXPLAIN");
  if (wanted == nullptr) return;
  const std::string_view name = wanted;
  if (name != "stderr") {
    if (!is_absolute(name)) {
      (void)std::fputs("quillanest: QUILLANEST_EXPLAIN is neither \"stderr\" nor an absolute path\n", stderr);
      return;
    }
    g_file.add(name);
    if (g_file.view().size() < name.size()) return;  // a cut name would be that of another file
  }
  set_event_handler(explain, nullptr);
}

}  // namespace
}  // namespace quillanest
