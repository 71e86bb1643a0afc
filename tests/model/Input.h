// Values taken from the front of a fuzzer's bytes.
//
// After the last byte every number is 0 and every text empty, so each input means something.
// Lifetime: refers to the bytes, which must outlive the object. Threads: one object belongs to one thread.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <span>
#include <string>
#include <type_traits>
#include <utility>

namespace quillanest::model {

// A call with a weight, for Input::make_one_of.
template <std::size_t kWeight, class Call>
struct Weighted {
  Call call;
  void operator()() { call(); }
};
template <std::size_t kWeight, class Call>
Weighted<kWeight, Call> times(Call call) {
  return {std::move(call)};
}
template <class Call>
inline constexpr std::size_t weight_of = 1;
template <std::size_t kWeight, class Call>
inline constexpr std::size_t weight_of<Weighted<kWeight, Call>> = kWeight;

class Input {
 public:
  Input(const std::uint8_t *bytes, std::size_t size) : rest_(bytes, size) {}

  [[nodiscard]] bool empty() const noexcept { return rest_.empty(); }

  // A number of any value.
  template <class T>
  T number() {
    T value{};
    const std::size_t size = std::min(sizeof value, rest_.size());
    if (size > 0) std::memcpy(&value, rest_.data(), size);
    rest_ = rest_.subspan(size);
    return value;
  }

  // A number below `count`, which is 1 to 65536.
  std::size_t choice(std::size_t count) {
    return (count <= 256 ? number<std::uint8_t>() : number<std::uint16_t>()) % count;
  }
  bool flag() { return choice(2) != 0; }

  // Makes one of the calls. One that is wrapped in times() is as likely as that many others.
  template <class... Calls>
  void make_one_of(Calls... calls) {
    std::size_t chosen = choice((weight_of<Calls> + ...));
    const auto make = [&](auto &call) {
      const bool is_chosen = chosen < weight_of<std::decay_t<decltype(call)>>;
      if (is_chosen) call();
      chosen -= weight_of<std::decay_t<decltype(call)>>;
      return is_chosen;
    };
    (void)(make(calls) || ...);
  }

  template <class Values>
  auto pick(const Values &values) {
    return values[choice(std::size(values))];
  }

  // A number that is small, at an edge of the range, or anything.
  std::int32_t wild() {
    constexpr std::int32_t kEdges[] = {-2147483647 - 1, -65536,    -129,      -128, -2, -1, 0, 1, 2, 3, 4095,
                                       65536,           100000000, 2147483647};
    switch (choice(4)) {
      case 0:
        return pick(kEdges);
      case 1:
        return number<std::int32_t>();
      case 2:
        return number<std::int16_t>();
      default:
        return number<std::int8_t>();
    }
  }

  // The next bytes, at most `size` of them, as values of their own.
  Input part(std::size_t size) {
    Input taken = *this;
    taken.rest_ = rest_.first(std::min(size, rest_.size()));
    rest_ = rest_.subspan(taken.rest_.size());
    return taken;
  }

  // At most `most` characters, of any value.
  std::string text(std::size_t most) { return take(choice(most + 1)); }

  // The same of exactly `size` characters, with zeros in place of those that the input lacks.
  std::string bytes(std::size_t size) {
    std::string taken = take(size);
    taken.resize(size);
    return taken;
  }

  // All that is left.
  std::string rest() { return take(rest_.size()); }

 private:
  std::string take(std::size_t size) {
    const auto taken = rest_.first(std::min(size, rest_.size()));
    rest_ = rest_.subspan(taken.size());
    return {taken.begin(), taken.end()};
  }

  std::span<const std::uint8_t> rest_;
};

}  // namespace quillanest::model
