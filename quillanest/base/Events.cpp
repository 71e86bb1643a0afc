#include "quillanest/base/Events.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "quillanest/base/Report.h"

namespace quillanest {
namespace {

// Handler and context change together and are read without a lock, which a fork could leave held: each setting goes to
// the next of some places, and a reader that is overtaken by as many settings while it reads two words is none.
struct Handler {
  std::atomic<EventHandler> function = nullptr;
  std::atomic<void *> context = nullptr;
};
constexpr std::size_t kPlaces = 64;
constinit std::array<Handler, kPlaces> g_handlers;
std::atomic<std::size_t> g_settings = 0;
std::atomic<const Handler *> g_handler = nullptr;  // null: none

// What one thread has met.
struct Failures {
  std::atomic<std::uint64_t> owner = 0;  // the ticket of the thread
  int others = 0;                        // of the severity of the first one, after it
  bool is_error = false;
  FixedText<1000> first;  // empty: nothing
  FixedText<1024> shown;
};

// Memory of a thread's own may have to be allocated at its first use, and a program ends where that fails. So each
// thread keeps a few words, and the texts are in places for the threads that were the last to fail.
constexpr std::size_t kThreads = 256;
constinit std::array<Failures, kThreads> g_failures;
std::atomic<std::uint64_t> g_tickets = 0;

struct Mine {
  std::uint64_t ticket = 0;  // its place is this number modulo kThreads
  int depth = 0;             // operations under way, one inside the other
  bool is_handling = false;  // inside the handler
};
[[gnu::tls_model("initial-exec")]] thread_local constinit Mine t_mine;

// This thread's texts; null if it has none, or 256 other threads have failed since.
Failures *failures() noexcept {
  if (t_mine.ticket == 0) return nullptr;
  Failures &mine = g_failures[t_mine.ticket % kThreads];
  return mine.owner.load(std::memory_order_acquire) == t_mine.ticket ? &mine : nullptr;
}

Failures &claimed_failures() noexcept {
  if (Failures *mine = failures()) return *mine;
  t_mine.ticket = g_tickets.fetch_add(1, std::memory_order_relaxed) + 1;
  Failures &mine = g_failures[t_mine.ticket % kThreads];
  mine.owner.store(t_mine.ticket, std::memory_order_release);
  mine.first.clear();
  return mine;
}

void add_place(auto &text, const Place &place) noexcept {
  if (place.name.empty()) return;
  text.add(place.name);
  for (const int number : {place.line, place.column}) {
    if (number <= 0) break;
    text.add(":");
    text.add(number);
  }
  text.add(": ");
}

void remember(Severity severity, const char *code, const Place &place, const Sentence &sentence) noexcept {
  if (severity == Severity::kNote) return;
  Failures &mine = claimed_failures();
  const bool is_error = severity == Severity::kError;
  const bool has_one = !mine.first.view().empty();
  if (has_one && (mine.is_error || !is_error)) {
    mine.others += mine.is_error == is_error ? 1 : 0;
    return;
  }
  mine.is_error = is_error;
  mine.others = 0;
  mine.first.clear();
  add_place(mine.first, place);
  mine.first.add(sentence.view());
  mine.first.add(" [");
  mine.first.add(std::string_view(code));
  mine.first.add("]");
}

void hand_over(Severity severity, const char *code, const Place &place, const Sentence &sentence) noexcept {
  const Handler *handler = g_handler.load(std::memory_order_acquire);
  if (handler == nullptr) return;
  const EventHandler function = handler->function.load(std::memory_order_relaxed);
  void *context = handler->context.load(std::memory_order_relaxed);
  FixedText<400> name;
  name.add(place.name);
  const Event event{sizeof(Event), severity, code, sentence.c_str(), name.c_str(), place.line, place.column};
  t_mine.is_handling = true;
  try {
    function(event, context);
  } catch (...) {
    // The handler's own failure changes no result.
  }
  t_mine.is_handling = false;
}

}  // namespace

void set_event_handler(EventHandler handler, void *context) noexcept {
  if (handler == nullptr) return g_handler.store(nullptr, std::memory_order_release);
  Handler &place = g_handlers[g_settings.fetch_add(1, std::memory_order_relaxed) % kPlaces];
  place.function.store(handler, std::memory_order_relaxed);
  place.context.store(context, std::memory_order_relaxed);
  g_handler.store(&place, std::memory_order_release);
}

const char *last_failure() noexcept {
  Failures *mine = failures();
  if (mine == nullptr || mine->first.view().empty()) return "";
  mine->shown.clear();
  mine->shown.add(mine->first.view());
  if (mine->others > 0) {
    mine->shown.add(", and ");
    mine->shown.add(mine->others);
    mine->shown.add(" more");
  }
  return mine->shown.c_str();
}

void report(Severity severity, const char *code, const Place &place, const Sentence &sentence, To to) noexcept {
  if (t_mine.is_handling) return;
  remember(severity, code, place, sentence);
  if (to == To::kHandler) hand_over(severity, code, place, sentence);
}

Operation::Operation() noexcept {
  if (t_mine.depth++ > 0 || t_mine.is_handling) return;
  if (Failures *mine = failures()) mine->first.clear();
}

Operation::~Operation() { --t_mine.depth; }

bool Operation::explain(bool result, const char *code, const Place &place, std::string_view sentence) noexcept {
  if (!result && !has_reported_error()) report_error(code, place, sentence);
  return result;
}

bool has_reported_error() noexcept {
  const Failures *mine = failures();
  return mine != nullptr && mine->is_error && !mine->first.view().empty();
}

}  // namespace quillanest
