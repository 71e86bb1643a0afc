#include "quillanest/sql/OdbcSources.h"

#include <memory>
#include <new>

#include "quillanest/base/Neutral.h"
#include "quillanest/platform/Process.h"

namespace quillanest {
namespace {

constexpr int kMostHanging = 3;
constexpr std::chrono::seconds kPause{60};

// Made while the library is loaded: a child that was forked while another thread makes it would never have one.
[[maybe_unused]] const bool g_made = neutral_on_failure(false, [] {
  (void)OdbcSources::instance();
  return true;
});

}  // namespace

OdbcSources &OdbcSources::instance() {
  static OdbcSources &table = *std::make_unique<OdbcSources>().release();  // hanging calls may outlive main
  return table;
}

OdbcSources::OdbcSources() {
  const auto in_child = [] {
    instance().calls_.clear();
    instance().mutex_.unlock();
  };
  if (!at_fork([] { instance().mutex_.lock(); }, [] { instance().mutex_.unlock(); }, in_child)) throw std::bad_alloc();
}

bool OdbcSources::allows(Source source) {
  const std::lock_guard lock(mutex_);
  const auto found = calls_.find(source);
  if (found == calls_.end() || found->second.hanging < kMostHanging || found->second.answers) return true;
  const auto now = std::chrono::steady_clock::now();
  if (now - found->second.last < kPause) return false;
  found->second.last = now;
  return true;
}

bool OdbcSources::is_news(Source source) noexcept {
  const std::lock_guard lock(mutex_);
  const auto found = calls_.find(source);
  const auto now = std::chrono::steady_clock::now();
  if (found == calls_.end()) return false;
  const auto told = found->second.told;
  if (told != decltype(told)() && now - told < kPause) return false;
  found->second.told = now;
  return true;
}

void OdbcSources::hangs(Source source) {
  const std::lock_guard lock(mutex_);
  Calls &calls = calls_[source];
  ++calls.hanging;
  calls.answers = false;
  calls.last = std::chrono::steady_clock::now();
}

void OdbcSources::came_back(Source source) noexcept {
  const std::lock_guard lock(mutex_);
  const auto found = calls_.find(source);
  if (found != calls_.end() && --found->second.hanging == 0) calls_.erase(found);
}

void OdbcSources::answered(Source source) noexcept {
  const std::lock_guard lock(mutex_);
  const auto found = calls_.find(source);
  if (found != calls_.end()) found->second.answers = true;
}

// psqlodbc 13.02 would otherwise take the encoding of texts from the process locale.
void OdbcSources::settle_text_encoding() noexcept {
  const std::lock_guard lock(mutex_);
  if (!encoding_is_settled_) encoding_is_settled_ = set_environment_default("PGCLIENTENCODING", "UTF8");
}

}  // namespace quillanest
