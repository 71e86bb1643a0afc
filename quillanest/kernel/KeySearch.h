// Finding a key in the record area of a table.
#pragma once

#include <cstdint>

#include "quillanest/kernel/TableView.h"

namespace quillanest {

// The position of a key in the record area, or the position at which it would be inserted.
struct KeyPlace {
  bool found;
  std::int32_t position;
};

// The position of a key in an area of consecutive keys: its distance from the first one. -1 if the key is not there, if
// a neighbour has the same key (halving might return that one), or if the descriptor looks damaged. Makes no calls, so
// that callers stay leaf functions.
[[nodiscard]] inline std::int32_t dense_position(const TableView &view, std::uint32_t key) noexcept {
  const std::int32_t count = load_shared(view.attr->RecordCount);
  const KeyArea area = view.keys();
  if (count <= 0 || !view.holds(count) || !area.has_whole_keys()) return -1;
  const std::uint32_t guess = key - area.key_at(0);
  if (guess >= static_cast<std::uint32_t>(count) || area.key_at(guess) != key || !view.has_order()) return -1;
  return area.is_only_one(key, guess, count) ? static_cast<std::int32_t>(guess) : -1;
}

// The place of a key that has no dense_position() among the first `count` records. `ascending`: whether their keys are.
[[nodiscard]] KeyPlace search_key(KeyArea area, std::uint32_t key, std::int32_t count, bool ascending) noexcept;

// The place of a key.
//
// The answer is that of plain halving, always; an area that is noted as out of order is halved. On the others halving
// costs a cache miss for nearly every step, so other positions are tried first: the one that consecutive keys would
// give, then those that evenly spread keys would give. What is found there is returned only if its neighbours have
// other keys, because halving could meet another one of several equal keys first. The insertion point of an absent key
// is unique. If a client put the area out of order, the search still ends and stays in bounds, but what it finds is
// unspecified.
[[nodiscard]] inline KeyPlace find_key(const TableView &view, std::uint32_t key) noexcept {
  const std::int32_t position = dense_position(view, key);
  return position >= 0 ? KeyPlace{true, position} : search_key(view.keys(), key, view.count(), view.has_order());
}

// The record with that key: at `hint` if it is there, else by search. Not found: the insertion point.
[[nodiscard]] inline KeyPlace find_key_near(const TableView &view, std::uint32_t key, std::int32_t hint) noexcept {
  const std::byte *at_hint = view.at(hint);
  if (at_hint != nullptr && view.key_of(at_hint) == key) return {true, hint};
  return find_key(view, key);
}

}  // namespace quillanest
