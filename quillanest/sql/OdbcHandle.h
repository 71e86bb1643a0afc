// An RAII ODBC handle. ODBC's declarations are not included: handles are declared void *, results short.
//
// Lifetime: a handle is freed with its object and must not outlive the one it was made from, nor its pulse. Threads:
// one object belongs to one thread at a time; a pulse belongs to all.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

namespace quillanest {

// The result codes of a connect and of a statement that failed.
inline constexpr auto kConnectFailed = static_cast<std::int32_t>(0x80004005);
// Those of a source that is not tried, because earlier calls of its driver hang: the first time in a minute, and then.
inline constexpr auto kSourceHangs = static_cast<std::int32_t>(0x80004004);
inline constexpr auto kSourceStillHangs = static_cast<std::int32_t>(0x80004007);
inline constexpr auto kStatementFailed = static_cast<std::int32_t>(0x80040E14);

// The time of the last call of a driver.
class OdbcPulse {
 public:
  using Clock = std::chrono::steady_clock;
  void note() noexcept { last_.store(Clock::now(), std::memory_order_relaxed); }
  [[nodiscard]] Clock::time_point last() const noexcept { return last_.load(std::memory_order_relaxed); }

 private:
  std::atomic<Clock::time_point> last_{Clock::time_point()};
};

class OdbcHandle {
 public:
  enum class Kind : short { kEnvironment = 1, kConnection = 2, kStatement = 3 };

  OdbcHandle() = default;  // empty
  // Empty if the driver manager refuses. The parent of an environment is an empty handle. The pulse is the parent's.
  OdbcHandle(Kind kind, const OdbcHandle &parent);
  OdbcHandle(OdbcHandle &&other) noexcept;
  OdbcHandle &operator=(OdbcHandle &&other) noexcept;
  OdbcHandle(const OdbcHandle &) = delete;
  OdbcHandle &operator=(const OdbcHandle &) = delete;
  ~OdbcHandle();

  // The handle, for one call; the pulse notes the time.
  [[nodiscard]] void *get() const noexcept;
  explicit operator bool() const noexcept { return handle_ != nullptr; }

  // From now on calls with this handle, and with those made from it, are noted.
  void note_calls(OdbcPulse &pulse) noexcept { pulse_ = &pulse; }

  // The message of the last failure on this handle; empty without one.
  [[nodiscard]] std::string diagnosis() const;
  // Raises it as _com_error of kStatementFailed.
  [[noreturn]] void raise() const;

 private:
  Kind kind_ = Kind::kEnvironment;
  void *handle_ = nullptr;
  OdbcPulse *pulse_ = nullptr;
};

// Whether a result reports success, with or without a remark.
[[nodiscard]] constexpr bool succeeded(short result) noexcept { return result == 0 || result == 1; }

// A text as ODBC takes it: its declarations lack const.
[[nodiscard]] unsigned char *odbc_text(const std::string &text) noexcept;

// The value of an attribute: a number in the shape of an address.
[[nodiscard]] void *odbc_attribute(std::size_t value) noexcept;

}  // namespace quillanest
