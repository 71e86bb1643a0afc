// The sources whose drivers hang: which of them may be tried again, and when.
//
// A source is known by a digest of its connection string, so that no password stays in memory. The table lasts as long
// as the process. A child of fork() starts without hanging calls, because the threads that hang are its parent's.
// Threads: all members may run on any thread.
#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <mutex>

namespace quillanest {

class OdbcSources {
 public:
  using Source = std::size_t;

  // Raises std::bad_alloc if it cannot be made.
  [[nodiscard]] static OdbcSources &instance();
  OdbcSources();
  OdbcSources(const OdbcSources &) = delete;
  OdbcSources &operator=(const OdbcSources &) = delete;

  // Whether a source may be tried: while only a few calls of it hang, and otherwise once a minute.
  [[nodiscard]] bool allows(Source source);
  // Whether it was not asked for this source in the last minute.
  [[nodiscard]] bool is_news(Source source) noexcept;
  // Counts a call that its caller has given up, until it comes back. Raises std::bad_alloc.
  void hangs(Source source);
  void came_back(Source source) noexcept;
  // The source has accepted a connection: calls that still hang no longer hold up other attempts.
  void answered(Source source) noexcept;

  // Makes psqlodbc read texts as UTF-8, unless the user has chosen another encoding.
  void settle_text_encoding() noexcept;

 private:
  struct Calls {
    int hanging = 0;
    bool answers = false;
    std::chrono::steady_clock::time_point last;
    std::chrono::steady_clock::time_point told;
  };

  std::mutex mutex_;
  std::map<Source, Calls> calls_;
  bool encoding_is_settled_ = false;
};

}  // namespace quillanest
