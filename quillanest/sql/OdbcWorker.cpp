#include "quillanest/sql/OdbcWorker.h"

#include <atomic>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <new>

#include "quillanest/platform/Thread.h"
#include "quillanest/sql/ComError.h"
#include "quillanest/sql/OdbcSources.h"
#include "quillanest/sql/Provider.h"
#include "quillanest/sql/Refusals.h"

namespace quillanest {
namespace {

constexpr std::chrono::milliseconds kConnectPatience{2100};  // of a whole attempt; the driver has 2 seconds
// Of one call. Longer than the time limit of a statement, so that the server refuses first.
constexpr std::chrono::milliseconds kCallPatience{35'000};
std::atomic<std::chrono::milliseconds> g_call_patience{kCallPatience};

}  // namespace

void set_driver_patience(std::chrono::milliseconds patience) noexcept { g_call_patience = patience; }

// What the thread and its caller share.
struct OdbcWorker::Shared {
  enum class Phase { kIdle, kCalling, kEnding, kEnded, kGivenUp };

  explicit Shared(std::size_t the_source) : source(the_source) {}

  // Waits until a phase is over; false if the driver is silent for too long.
  bool wait_through(Phase during, std::unique_lock<std::mutex> &lock, std::chrono::milliseconds patience) {
    const auto over = [&] { return phase != during; };
    while (!changed.wait_until(lock, pulse.last() + patience, over)) {
      if (pulse.last() + patience <= OdbcPulse::Clock::now()) return false;
    }
    return true;
  }
  void enter(Phase next, std::unique_lock<std::mutex> &lock) {
    phase = next;
    lock.unlock();
    changed.notify_all();
    lock.lock();
  }

  const std::size_t source;
  OdbcPulse pulse;
  std::mutex mutex;  // of what follows
  std::condition_variable changed;
  Phase phase = Phase::kIdle;
  Call call;
  std::exception_ptr error;
  bool is_counted = false;  // among the source's hanging calls
};

// Makes one call and returns the error that it raised, null if none.
std::exception_ptr OdbcWorker::make(const Call &call, OdbcLink &link, OdbcPulse &pulse) noexcept {
  try {
    call(link);
    if (link.connected) link.connection.note_calls(pulse);
    return nullptr;
  } catch (...) {
    return std::current_exception();
  }
}

// Makes calls until the connection ends or a call is given up.
void OdbcWorker::make_calls(Shared &shared, std::unique_lock<std::mutex> &lock, OdbcLink &link) noexcept {
  using Phase = Shared::Phase;
  for (;;) {
    shared.changed.wait(lock, [&] { return shared.phase != Phase::kIdle; });
    if (shared.phase != Phase::kCalling) return;
    Call call = std::exchange(shared.call, nullptr);
    lock.unlock();
    std::exception_ptr error = make(call, link, shared.pulse);
    call = nullptr;
    lock.lock();
    if (shared.phase == Phase::kGivenUp) return;
    shared.error = std::move(error);
    shared.enter(Phase::kIdle, lock);
  }
}

void OdbcWorker::serve(const std::shared_ptr<Shared> &shared) noexcept {
  using Phase = Shared::Phase;
  std::unique_lock lock(shared->mutex);
  {
    OdbcLink link;
    make_calls(*shared, lock, link);
    lock.unlock();  // while the link disconnects
  }
  lock.lock();
  if (shared->is_counted) OdbcSources::instance().came_back(shared->source);
  if (shared->phase == Phase::kEnding) shared->enter(Phase::kEnded, lock);
}

OdbcWorker::OdbcWorker(std::size_t source) : shared_(std::make_shared<Shared>(source)) {
  thread_ = start_quiet_thread([shared = shared_] { serve(shared); });
}

std::unique_ptr<OdbcWorker> OdbcWorker::connect(const std::string &connection_string) {
  OdbcSources &sources = OdbcSources::instance();
  const OdbcSources::Source source = std::hash<std::string>{}(connection_string);
  if (!sources.allows(source)) {
    throw _com_error(sources.is_news(source) ? kSourceHangs : kSourceStillHangs,
                     "earlier calls of its driver hang, so it is tried only once a minute");
  }
  sources.settle_text_encoding();
  auto worker = std::make_unique<OdbcWorker>(source);
  const auto diagnosis = std::make_shared<std::optional<std::string>>();  // nothing: connected
  worker->perform(
      [diagnosis, connection_string](OdbcLink &link) {
        if (!link.connect(connection_string)) *diagnosis = link.connection.diagnosis();
      },
      kConnectPatience);
  if (*diagnosis) {
    const Reason reason = reason_of(without_passwords(**diagnosis, connection_string));
    throw _com_error(kConnectFailed, reason.c_str());
  }
  sources.answered(source);
  return worker;
}

OdbcWorker::~OdbcWorker() {
  if (!thread_.joinable()) return;  // given up
  std::unique_lock lock(shared_->mutex);
  shared_->pulse.note();
  shared_->enter(Shared::Phase::kEnding, lock);
  if (!shared_->wait_through(Shared::Phase::kEnding, lock, g_call_patience)) {
    give_up();
    return;
  }
  lock.unlock();
  thread_.join();
}

void OdbcWorker::perform(Call call) { perform(std::move(call), g_call_patience); }

void OdbcWorker::perform(Call call, std::chrono::milliseconds patience) {
  if (refuses_) throw _com_error(kStatementFailed, "the connection is given up");
  std::unique_lock lock(shared_->mutex);
  shared_->call = std::move(call);
  shared_->pulse.note();
  shared_->enter(Shared::Phase::kCalling, lock);
  if (!shared_->wait_through(Shared::Phase::kCalling, lock, patience)) {
    give_up();
    throw _com_error(kStatementFailed, "the server does not answer");
  }
  if (shared_->error) std::rethrow_exception(std::exchange(shared_->error, nullptr));
}

// The mutex must be held.
void OdbcWorker::give_up() noexcept {
  refuses_ = true;
  shared_->phase = Shared::Phase::kGivenUp;
  thread_.detach();
  try {
    OdbcSources::instance().hangs(shared_->source);
    shared_->is_counted = true;
  } catch (const std::bad_alloc &) {
    // Not counted, because memory is short. Destructors give up too, so this must not raise.
  }
}

}  // namespace quillanest
