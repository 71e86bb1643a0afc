#include "quillanest/sql/Connection.h"

#include "quillanest/sql/ComError.h"
#include "quillanest/sql/Engines.h"
#include "quillanest/sql/Provider.h"

namespace quillanest {

std::unique_ptr<Connection> Connection::open(const std::string &connection_string) {
  constexpr auto kNotFound = static_cast<std::int32_t>(0x800A0E7A);
  const EngineCall call = engine_call(connection_string);
  switch (call.engine) {
    case EngineKind::kSqlite:
      return open_sqlite(call.target);
    case EngineKind::kOdbc:
      return open_odbc(call.target);
    case EngineKind::kNone:
      break;
  }
  throw _com_error(kNotFound, "no provider or no data source");
}

}  // namespace quillanest
