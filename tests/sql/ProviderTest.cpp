#include <gtest/gtest.h>

#include "quillanest/sql/Provider.h"

namespace quillanest {
namespace {

const struct {
  const char *text;
  EngineKind engine;
  const char *target;
} kStrings[] = {
    {"Provider=SQLOLEDB.1;Persist Security Info=False;User ID=sa;Password=pw;Data Source=SRV1;Initial Catalog=RTDB",
     EngineKind::kOdbc,
     "Driver=libtdsodbc.so;TDS_Version=7.4;ClientCharset=UTF-8;Server=SRV1;Port=1433;Database=RTDB;UID=sa;PWD=pw"},
    {"Provider=SQLOLEDB.1;Persist Security Info=False;User ID=sa;Password=pw;Data Source=SRV1\\PLANT;Initial "
     "Catalog=",
     EngineKind::kOdbc, "Driver=libtdsodbc.so;TDS_Version=7.4;ClientCharset=UTF-8;Server=SRV1\\PLANT;UID=sa;PWD=pw"},
    {"Provider=Microsoft.Jet.OLEDB.4.0;Persist Security Info=False;User ID=;Password=;Data Source=/data/plant.db",
     EngineKind::kSqlite, "/data/plant.db"},
    {"Provider=OraOLEDB.Oracle.1;Persist Security Info=False;User ID=u;Password=p;Data Source=host:1521/name",
     EngineKind::kOdbc, "Driver={Oracle};DBQ=host:1521/name;UID=u;PWD=p"},
    {"Provider=Sybase.ASEOLEDBProvider.2;Persist Security Info=False;User ID=u;Password=p;Data Source=h,5001;Initial "
     "Catalog=c",
     EngineKind::kOdbc,
     "Driver=libtdsodbc.so;TDS_Version=5.0;ClientCharset=UTF-8;Server=h;Port=5001;Database=c;UID=u;PWD=p"},
    {"Provider=PostgreSQL OLE DB Provider;User ID=u'\\;Password= p}%+=;Data Source=h:5433;location={db",
     EngineKind::kOdbc,
     "Driver=psqlodbcw.so;BoolsAsChar=0;Protocol=7.4-0;Server=h;Port=5433;pqopt=tcp_user_timeout=30000 "
     "keepalives_idle=15 keepalives_interval=5 dbname='%7Bdb' user='u\\'\\\\';PWD= p%7D%25%2B="},
    {" provider = postgresql ole db provider ;data source=h", EngineKind::kOdbc,
     "Driver=psqlodbcw.so;BoolsAsChar=0;Protocol=7.4-0;Server=h;Port=5432;pqopt=tcp_user_timeout=30000 "
     "keepalives_idle=15 keepalives_interval=5"},
    {"Provider=SQLOLEDB.1;User ID={u};Password= p}%+{=;Data Source=h", EngineKind::kOdbc,
     "Driver=libtdsodbc.so;TDS_Version=7.4;ClientCharset=UTF-8;Server=h;Port=1433;UID={{u}}};PWD= p}%+{="},
    {"Driver=Anything;Provider=SQLOLEDB.1;x", EngineKind::kOdbc, "Driver=Anything;Provider=SQLOLEDB.1;x"},
    {"dsn=mine", EngineKind::kOdbc, "dsn=mine"},
    {"Provider=SQLOLEDB.1;User ID=;Password=;Data Source=;Initial Catalog=", EngineKind::kNone, ""},
    {"Provider=Microsoft.Jet.OLEDB.4.0;Data Source= ", EngineKind::kNone, ""},
    {"Provider=Unknown;Data Source=h", EngineKind::kNone, ""},
    {"Data Source=h", EngineKind::kNone, ""},
    {"", EngineKind::kNone, ""},
    {";;=;x", EngineKind::kNone, ""},
};

// Catches: a value that is lost, or quoted in another way than its driver reads it.
TEST(Provider, TranslatesConnectionStrings) {
  for (const auto &row : kStrings) {
    SCOPED_TRACE(row.text);
    const EngineCall call = engine_call(row.text);
    EXPECT_EQ(call.engine, row.engine);
    EXPECT_EQ(call.target, row.target);
  }
}

// Catches: a port that stays in the name, or a part of a name that is taken for one.
TEST(Provider, SplitsServerAddresses) {
  const struct {
    const char *source, *host, *port;
  } rows[] = {{"host", "host", ""},
              {"host:5432", "host", "5432"},
              {"host,1433", "host", "1433"},
              {"10.0.0.1:7", "10.0.0.1", "7"},
              {"host:", "host:", ""},
              {"host:name", "host:name", ""},
              {"::1", "::1", ""},
              {"fe80::1:2", "fe80::1:2", ""},
              {"[::1]:5432", "::1", "5432"},
              {"[::1]", "::1", ""},
              {"::1,1433", "::1", "1433"},
              {"tcp:host,1433", "tcp:host", "1433"},
              {"A\\B,1433", "A\\B", "1433"},
              {"", "", ""}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.source);
    EXPECT_EQ(server_address(row.source).host, row.host);
    EXPECT_EQ(server_address(row.source).port, row.port);
  }
}

}  // namespace
}  // namespace quillanest
