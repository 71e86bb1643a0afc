// Every attempt to connect runs on a thread of its own with its own handles: FreeTDS 1.3 ignores the login time-out
// with protocol 5.0 and would wait for a silent server for ever. An attempt that is not back in time is abandoned and
// cleans up after itself when the driver lets it; while a few attempts at one source hang, no further one is made.
#include "quillanest/platform/posix/OdbcLink.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <sql.h>
#include <sqlext.h>
#include <stdlib.h>
#include <thread>
#include <utility>

namespace quillanest {
namespace {

constexpr SQLULEN kLoginSeconds = 2;
constexpr std::chrono::milliseconds kPatience{2100};
constexpr int kMostAbandoned = 3;
constexpr std::chrono::seconds kPause{60};

// Runs on the attempt's own thread. A link that is not connected is a failure.
OdbcLink connect(const std::string &text) {
  OdbcLink link;
  link.environment = OdbcHandle(OdbcHandle::Kind::kEnvironment, nullptr);
  if (!link.environment) return link;
  SQLSetEnvAttr(link.environment.get(), SQL_ATTR_ODBC_VERSION, odbc_attribute(SQL_OV_ODBC3), 0);
  link.connection = OdbcHandle(OdbcHandle::Kind::kConnection, link.environment.get());
  if (!link.connection) return link;
  const SQLHANDLE handle = link.connection.get();
  SQLSetConnectAttr(handle, SQL_ATTR_LOGIN_TIMEOUT, odbc_attribute(kLoginSeconds), 0);
  SQLSetConnectAttr(handle, SQL_ATTR_ACCESS_MODE, odbc_attribute(SQL_MODE_READ_WRITE), 0);
  link.connected =
      succeeded(SQLDriverConnect(handle, nullptr, odbc_text(text), SQL_NTS, nullptr, 0, nullptr, SQL_DRIVER_NOPROMPT));
  // Before the connect some drivers forget it; with success and a remark it is set all the same.
  if (link.connected) SQLSetConnectAttr(handle, SQL_ATTR_TXN_ISOLATION, odbc_attribute(SQL_TXN_SERIALIZABLE), 0);
  return link;
}

// What an attempt's thread and the caller that waits for it share.
struct Attempt {
  std::mutex mutex;
  std::condition_variable done;
  std::optional<OdbcLink> link;
  bool abandoned = false;
};

// Attempts that hang, by source. A source is known by a digest, so that no password stays behind.
class AbandonedAttempts {
 public:
  using Source = std::size_t;

  static AbandonedAttempts &instance() {
    static AbandonedAttempts &table = *std::make_unique<AbandonedAttempts>().release();  // attempts may outlive main
    return table;
  }

  // Whether another attempt may be made: while only a few hang, and otherwise once a minute.
  [[nodiscard]] bool allows(Source source) {
    const std::lock_guard lock(mutex_);
    const auto found = attempts_.find(source);
    if (found == attempts_.end() || found->second.hanging < kMostAbandoned || found->second.answers) return true;
    const auto now = std::chrono::steady_clock::now();
    if (now - found->second.last < kPause) return false;
    found->second.last = now;
    return true;
  }

  // Counts an attempt that its caller has given up, until end() is called for it.
  void begin(Source source) {
    const std::lock_guard lock(mutex_);
    Attempts &attempts = attempts_[source];
    ++attempts.hanging;
    attempts.answers = false;
    attempts.last = std::chrono::steady_clock::now();
  }

  // The source has answered: older attempts that still hang hold no other up.
  void answered(Source source) noexcept {
    const std::lock_guard lock(mutex_);
    const auto found = attempts_.find(source);
    if (found != attempts_.end()) found->second.answers = true;
  }

  void end(Source source) noexcept {
    const std::lock_guard lock(mutex_);
    const auto found = attempts_.find(source);
    if (found != attempts_.end() && --found->second.hanging == 0) attempts_.erase(found);
  }

 private:
  struct Attempts {
    int hanging = 0;
    bool answers = false;
    std::chrono::steady_clock::time_point last;
  };

  std::mutex mutex_;
  std::map<Source, Attempts> attempts_;
};

// Runs on the attempt's own thread, which nobody may be waiting for any more.
void run_attempt(const std::shared_ptr<Attempt> &attempt, const std::string &text) {
  OdbcLink link = connect(text);
  {
    const std::lock_guard lock(attempt->mutex);
    if (attempt->abandoned) {
      AbandonedAttempts::instance().end(std::hash<std::string>{}(text));
    } else {
      attempt->link.emplace(std::move(link));
    }
  }
  attempt->done.notify_one();
}

// psqlodbc 13.02 would otherwise take the encoding of texts from the process locale.
void settle_text_encoding() {
  static const int settled = setenv("PGCLIENTENCODING", "UTF8", 0);  // one that the user has set stays
  (void)settled;
}

}  // namespace

OdbcLink::OdbcLink(OdbcLink &&other) noexcept
    : environment(std::move(other.environment)),
      connection(std::move(other.connection)),
      connected(std::exchange(other.connected, false)) {}

OdbcLink::~OdbcLink() {
  if (connected) SQLDisconnect(connection.get());
}

std::optional<OdbcLink> connect_in_time(const std::string &connection_string) {
  const AbandonedAttempts::Source source = std::hash<std::string>{}(connection_string);
  const auto attempt = std::make_shared<Attempt>();
  if (!AbandonedAttempts::instance().allows(source)) return std::nullopt;
  settle_text_encoding();
  std::thread([attempt, connection_string] { run_attempt(attempt, connection_string); }).detach();
  std::unique_lock lock(attempt->mutex);
  if (attempt->done.wait_for(lock, kPatience, [&] { return attempt->link.has_value(); })) {
    if (attempt->link->connected) AbandonedAttempts::instance().answered(source);
    return std::move(attempt->link);
  }
  AbandonedAttempts::instance().begin(source);
  attempt->abandoned = true;
  return std::nullopt;
}

}  // namespace quillanest
