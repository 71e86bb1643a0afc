// Why an operation failed, or only seemed to succeed: events, and the last failure of a thread.
//
//   quillanest::set_event_handler([](const quillanest::Event &event, void *) {
//     std::fprintf(stderr, "%s:%d: %s [%s]\n", event.place, event.line, event.text, event.code);
//   }, nullptr);
//   if (!manager.RtdbManagerInit(false, "plant.schema")) std::puts(quillanest::last_failure());
//
// Results stay what they are; events come beside them. Without a handler nothing is printed. An operator gets the same
// without a program's help: with the environment variable QUILLANEST_EXPLAIN set to "stderr" or to the absolute path of
// a file, each event is appended there as a line. docs/events.md has all codes with cause and cure.
#pragma once

#include <cstddef>

#include "quillanest/System.h"

namespace quillanest {

enum class Severity : int {
  kNote,     // worth knowing, nothing is lost
  kWarning,  // the result is that of a success, and something is missing all the same
  kError     // the operation fails
};

// What happened. Addresses are valid during the call of the handler. No text holds a password, a connection string or a
// value of a record.
struct Event {
  std::size_t size;  // of this structure as the library knows it: later versions may add members
  Severity severity;
  const char *code;   // "schema.type": stable
  const char *text;   // one sentence without a line end, cut after 500 bytes
  const char *place;  // a file, "database.table", "main" or "backup"; empty if there is none, never null
  int line;           // of a file, from 1; 0 if there is none
  int column;         // in bytes, from 1; 0 if there is none
};

// Called on the thread whose operation met the event, without any lock of the library held. What it throws is
// discarded; it must not end its thread. It may call the library; events of such a call are not reported.
using EventHandler = void (*)(const Event &event, void *context);

// Events go to `handler` from now on, with `context`; null, the default, reports none. Any thread may call it; an event
// that is under way on another thread may still go to the former handler.
QUILLANEST_API void set_event_handler(EventHandler handler, void *context) noexcept;

// What the last start, load, save, commit, login or header of the calling thread failed with: the first event of
// severity kError, else the first kWarning, as "place:line:column: text [code]", with ", and N more" if there were
// others. Empty if there was none. The text lasts until the thread's next such operation.
QUILLANEST_API const char *last_failure() noexcept;

}  // namespace quillanest
