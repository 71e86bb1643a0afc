// A handle of ODBC, and the small change of its calls.
//
// Handles are addresses and results are short numbers in ODBC's own declarations, which this header does without.
// Lifetime: a handle is freed with its object and must not outlive the one it was made from. Threads: one object
// belongs to one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace quillanest {

// The result code of a statement that failed.
inline constexpr auto kStatementFailed = static_cast<std::int32_t>(0x80040E14);

class OdbcHandle {
 public:
  enum class Kind : short { kEnvironment = 1, kConnection = 2, kStatement = 3 };

  OdbcHandle() = default;               // none
  OdbcHandle(Kind kind, void *parent);  // none when the driver manager refuses; environments have no parent
  OdbcHandle(OdbcHandle &&other) noexcept;
  OdbcHandle &operator=(OdbcHandle &&other) noexcept;
  OdbcHandle(const OdbcHandle &) = delete;
  OdbcHandle &operator=(const OdbcHandle &) = delete;
  ~OdbcHandle();

  [[nodiscard]] void *get() const noexcept { return handle_; }
  explicit operator bool() const noexcept { return handle_ != nullptr; }

  // The message of the last failure on this handle; empty without one.
  [[nodiscard]] std::string diagnosis() const;
  // Raises it as _com_error of kStatementFailed.
  [[noreturn]] void raise() const;

 private:
  Kind kind_ = Kind::kEnvironment;
  void *handle_ = nullptr;
};

// Whether a result says success, with or without a remark.
[[nodiscard]] constexpr bool succeeded(short result) noexcept { return result == 0 || result == 1; }

// A text as ODBC takes it: its declarations lack const.
[[nodiscard]] unsigned char *odbc_text(const std::string &text) noexcept;

// The value of an attribute: a number in the shape of an address.
[[nodiscard]] void *odbc_attribute(std::size_t value) noexcept;

}  // namespace quillanest
