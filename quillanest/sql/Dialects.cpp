#include "quillanest/sql/Dialects.h"

#include <array>

#include "quillanest/base/Text.h"
#include "quillanest/platform/Odbc.h"

namespace quillanest {
namespace {

constexpr Dialect kStandard;

constexpr std::array kDialects{
    Dialect{
        .type = DB_TYPE_SQLSERVER,
        .engine = EngineKind::kOdbc,
        .provider = "SQLOLEDB",
        .provider_words = "Provider=SQLOLEDB.1;Persist Security Info=False;",
        .catalogue_word = "Initial Catalog",
        .driver = kFreeTdsDriver,
        .options = "TDS_Version=7.4;ClientCharset=UTF-8",
        .server_key = "Server",
        .default_port = "1433",
        .catalogue_key = "Database",
        .server = "SQL Server",
        .undo = Undo::kByServerIfItStaysOpen,
    },
    Dialect{
        .type = DB_TYPE_JET,
        .engine = EngineKind::kSqlite,
        .provider = "Microsoft.Jet.OLEDB",
        .provider_words = "Provider=Microsoft.Jet.OLEDB.4.0;Persist Security Info=False;",
        .date_start = "#",
        .date_end = "#",
        .empty_text = " ",
    },
    Dialect{
        .type = DB_TYPE_ORACLE,
        .engine = EngineKind::kOdbc,
        .provider = "OraOLEDB.Oracle",
        .provider_words = "Provider=OraOLEDB.Oracle.1;Persist Security Info=False;",
        .driver = "{Oracle}",
        .server_key = "DBQ",
        .date_start = "to_date('",
        .date_end = "','YYYY-MM-DD HH24:MI:SS')",
    },
    Dialect{
        .type = DB_TYPE_SYBASE,
        .engine = EngineKind::kOdbc,
        .provider = "Sybase.ASEOLEDBProvider",
        .provider_words = "Provider=Sybase.ASEOLEDBProvider.2;Persist Security Info=False;",
        .catalogue_word = "Initial Catalog",
        .driver = kFreeTdsDriver,
        .options = "TDS_Version=5.0;ClientCharset=UTF-8",
        .server_key = "Server",
        .default_port = "5000",
        .catalogue_key = "Database",
        .server = "Adaptive Server",
        .undo = Undo::kByServerIfItStaysOpen,
    },
    Dialect{
        .type = DB_TYPE_POSTGRESQL,
        .engine = EngineKind::kOdbc,
        .provider = "PostgreSQL OLE DB Provider",
        .provider_words = "Provider=PostgreSQL OLE DB Provider;",
        .catalogue_word = "location",
        .driver = kPostgresqlDriver,
        // Protocol 7.4-0: the driver leaves the undoing of failed statements to us (psqlodbc 13.02).
        .options = "BoolsAsChar=0;Protocol=7.4-0",
        .server_key = "Server",
        .default_port = "5432",
        .catalogue_key = "dbname",
        // These end the wait for a server that the network has lost after some 30 seconds.
        .libpq = "tcp_user_timeout=30000 keepalives_idle=15 keepalives_interval=5",
        .server = "PostgreSQL",
        .undo = Undo::kBySavepoint,
    },
};

}  // namespace

const Dialect &dialect_of_type(int type) noexcept {
  for (const Dialect &dialect : kDialects) {
    if (dialect.type == type) return dialect;
  }
  return kStandard;
}

const Dialect *dialect_of_provider(std::string_view name) noexcept {
  for (const Dialect &dialect : kDialects) {
    if (equal_ignoring_case(name.substr(0, dialect.provider.size()), dialect.provider)) return &dialect;
  }
  return nullptr;
}

Undo undo_of_server(std::string_view name) noexcept {
  for (const Dialect &dialect : kDialects) {
    if (dialect.server.empty()) continue;
    // A server that takes savepoints is known by its whole name, the others come with their makers' names.
    const bool is_it = dialect.undo == Undo::kBySavepoint ? name == dialect.server
                                                          : name.find(dialect.server) != std::string_view::npos;
    if (is_it) return dialect.undo;
  }
  return kStandard.undo;
}

}  // namespace quillanest
