// The thread that calls the driver of one connection, with a time limit for every call.
//
// Drivers promise little about time: FreeTDS 1.3 ignores the login time-out with protocol 5.0, and the statement
// time-out of psqlodbc 13.02 is kept by the server, which may be silent. So every call of a driver is made by a thread
// of the connection's own. A call that does not return in time is given up: its thread cleans up by itself if the call
// ever returns, and while a few calls of a source hang, the source is tried only once a minute.
#pragma once

#include <chrono>
#include <cstddef>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>

#include "quillanest/sql/OdbcLink.h"

namespace quillanest {

// Sets how long one call of a driver may take, 35 seconds by default, for all connections. For tests.
void set_driver_patience(std::chrono::milliseconds patience) noexcept;

// Lifetime: the connection ends with the object, and so does the thread unless it was given up. Threads: one object
// belongs to one thread. The thread inside blocks all signals of the program.
class OdbcWorker {
 public:
  // Connects. Raises _com_error, with the driver's own first line and without passwords, if the server refuses or
  // cannot be reached, if it is silent for about two seconds, or if too many calls of this source hang already. Raises
  // std::system_error if no thread can be started, and std::bad_alloc.
  [[nodiscard]] static std::unique_ptr<OdbcWorker> connect(const std::string &connection_string);

  explicit OdbcWorker(std::size_t source);  // not connected
  ~OdbcWorker();
  OdbcWorker(const OdbcWorker &) = delete;
  OdbcWorker &operator=(const OdbcWorker &) = delete;

  // Runs task(OdbcLink &) on the thread; returns what it returns and raises what it raises. Raises _com_error if a call
  // of the driver takes too long; from then on every run() does so at once. A task must own what it uses, because one
  // that is given up goes on.
  template <class Task>
  auto run(Task task) {
    using Result = std::invoke_result_t<Task &, OdbcLink &>;
    const auto result = std::make_shared<std::optional<Result>>();
    perform([result, task = std::move(task)](OdbcLink &link) { result->emplace(task(link)); });
    return std::move(result->value());
  }

  // From now on run() raises at once.
  void refuse() noexcept { refuses_ = true; }

 private:
  struct Shared;
  using Call = std::function<void(OdbcLink &)>;

  void perform(Call call);
  void perform(Call call, std::chrono::milliseconds patience);
  void give_up() noexcept;
  static std::exception_ptr make(const Call &call, OdbcLink &link, OdbcPulse &pulse) noexcept;
  static void make_calls(Shared &shared, std::unique_lock<std::mutex> &lock, OdbcLink &link) noexcept;
  static void serve(const std::shared_ptr<Shared> &shared) noexcept;

  std::shared_ptr<Shared> shared_;
  std::thread thread_;
  bool refuses_ = false;
};

}  // namespace quillanest
