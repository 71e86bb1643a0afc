#include "quillanest/sql/OdbcLink.h"

#include "quillanest/platform/Odbc.h"

namespace quillanest {
namespace {

constexpr SQLULEN kLoginSeconds = 2;

}  // namespace

OdbcLink::~OdbcLink() {
  if (connected) SQLDisconnect(connection.get());
}

bool OdbcLink::connect(const std::string &connection_string) {
  environment = OdbcHandle(OdbcHandle::Kind::kEnvironment, OdbcHandle());
  if (!environment) return false;
  SQLSetEnvAttr(environment.get(), SQL_ATTR_ODBC_VERSION, odbc_attribute(SQL_OV_ODBC3), 0);
  connection = OdbcHandle(OdbcHandle::Kind::kConnection, environment);
  if (!connection) return false;
  const SQLHANDLE handle = connection.get();
  SQLSetConnectAttr(handle, SQL_ATTR_LOGIN_TIMEOUT, odbc_attribute(kLoginSeconds), 0);
  SQLSetConnectAttr(handle, SQL_ATTR_ACCESS_MODE, odbc_attribute(SQL_MODE_READ_WRITE), 0);
  connected = succeeded(SQLDriverConnect(handle, nullptr, odbc_text(connection_string), SQL_NTS, nullptr, 0, nullptr,
                                         SQL_DRIVER_NOPROMPT));
  // Before the connect some drivers forget it; with success and a remark it is set all the same.
  if (connected) SQLSetConnectAttr(handle, SQL_ATTR_TXN_ISOLATION, odbc_attribute(SQL_TXN_SERIALIZABLE), 0);
  return connected;
}

}  // namespace quillanest
