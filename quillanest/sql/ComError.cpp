#include "quillanest/sql/ComError.h"

#include <utility>

_com_error::_com_error(std::int32_t code, std::string description)
    : code_(code != 0 ? code : -1), description_(std::move(description)) {
  if (description_.empty()) description_ = "data access error " + std::to_string(code_);
}

_com_error::~_com_error() = default;

std::int32_t _com_error::Error() const noexcept { return code_; }

const char *_com_error::ErrorMessage() const noexcept { return description_.c_str(); }

const char *_com_error::what() const noexcept { return description_.c_str(); }
