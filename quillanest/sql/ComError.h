// The error object of the relational data-access layer.
//
//   try {
//     manager.LoadAllCustomizedDB(0);
//   } catch (const _com_error &error) {
//     report(error.what());              // a column value does not convert to its field's type
//   }
//
// It is the only exception that leaves the library: a load from a relational store, at start-up too, throws it if a
// column value does not convert to its field's type. No other operation throws it.
#pragma once

#include <cstdint>
#include <exception>
#include <string>

#include "quillanest/System.h"

class QUILLANEST_API _com_error : public std::exception {
 public:
  // `code` is a negative result code, `description` a text for users; it never holds a password.
  explicit _com_error(std::int32_t code, std::string description = {});
  _com_error(const _com_error &) = default;
  _com_error &operator=(const _com_error &) = default;
  ~_com_error() override;

  // The result code; never 0.
  [[nodiscard]] std::int32_t Error() const noexcept;

  // The description, or a text for the code if there is none; valid as long as this object.
  [[nodiscard]] const char *ErrorMessage() const noexcept;

  // The same text.
  [[nodiscard]] const char *what() const noexcept override;

 private:
  std::int32_t code_;
  std::string description_;
};
