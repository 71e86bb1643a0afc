#include "quillanest/sql/OdbcHandle.h"

#include <array>
#include <utility>

#include "quillanest/platform/Odbc.h"
#include "quillanest/sql/ComError.h"

namespace quillanest {
namespace {

static_assert(SQL_SUCCESS == 0 && SQL_SUCCESS_WITH_INFO == 1);
static_assert(static_cast<int>(OdbcHandle::Kind::kEnvironment) == SQL_HANDLE_ENV);
static_assert(static_cast<int>(OdbcHandle::Kind::kConnection) == SQL_HANDLE_DBC);
static_assert(static_cast<int>(OdbcHandle::Kind::kStatement) == SQL_HANDLE_STMT);

}  // namespace

OdbcHandle::OdbcHandle(Kind kind, const OdbcHandle &parent) : kind_(kind), pulse_(parent.pulse_) {
  if (!succeeded(SQLAllocHandle(static_cast<SQLSMALLINT>(kind), parent.get(), &handle_))) handle_ = nullptr;
}

OdbcHandle::OdbcHandle(OdbcHandle &&other) noexcept
    : kind_(other.kind_), handle_(std::exchange(other.handle_, nullptr)), pulse_(other.pulse_) {}

OdbcHandle &OdbcHandle::operator=(OdbcHandle &&other) noexcept {
  std::swap(kind_, other.kind_);
  std::swap(handle_, other.handle_);
  std::swap(pulse_, other.pulse_);
  return *this;
}

OdbcHandle::~OdbcHandle() {
  if (handle_ != nullptr) SQLFreeHandle(static_cast<SQLSMALLINT>(kind_), get());
}

void *OdbcHandle::get() const noexcept {
  if (pulse_ != nullptr) pulse_->note();
  return handle_;
}

std::string OdbcHandle::diagnosis() const {
  std::array<SQLCHAR, 6> state{};
  std::array<SQLCHAR, 512> text{};
  SQLINTEGER native = 0;
  SQLSMALLINT length = 0;
  const SQLRETURN result = SQLGetDiagRec(static_cast<SQLSMALLINT>(kind_), handle_, 1, state.data(), &native,
                                         text.data(), text.size(), &length);
  if (!succeeded(result)) return {};
  return reinterpret_cast<const char *>(text.data());
}

void OdbcHandle::raise() const { throw _com_error(kStatementFailed, diagnosis()); }

unsigned char *odbc_text(const std::string &text) noexcept {
  return reinterpret_cast<SQLCHAR *>(const_cast<char *>(text.c_str()));
}

void *odbc_attribute(std::size_t value) noexcept { return reinterpret_cast<SQLPOINTER>(value); }

}  // namespace quillanest
