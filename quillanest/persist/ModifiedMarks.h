// The "bModified" marks that a save clears, remembered so that a save that fails can set them again.
//
// Lifetime: refers to the view and the descriptor it was made with.
#pragma once

#include <cstdint>
#include <vector>

#include "quillanest/kernel/KeySearch.h"
#include "quillanest/kernel/VersionFields.h"

namespace quillanest {

class ModifiedMarks {
 public:
  // `field`: the descriptor of "bModified". Null for a table without this field; then all members do nothing.
  ModifiedMarks(const TableView &view, const _field_attr *field) : view_(view), field_(field) {}

  void remember(std::int32_t position) {
    if (field_ == nullptr) return;
    std::byte *record = view_.record(position);
    const std::int32_t mark = version_value(view_, record, *field_);
    if (mark != 0) marks_.push_back({view_.key_of(record), position, mark});
  }

  void clear(std::byte *record) const {
    if (field_ != nullptr) set_version_value(view_, record, *field_, 0);
  }

  // Sets the remembered marks again. A record may have moved or gone since then, so its key is looked up.
  void restore() const {
    for (const Mark &mark : marks_) {
      const KeyPlace place = find_key_near(view_, mark.key, mark.position);
      if (place.found) set_version_value(view_, view_.record(place.position), *field_, mark.value);
    }
  }

 private:
  struct Mark {
    std::uint32_t key;
    std::int32_t position;
    std::int32_t value;
  };

  const TableView &view_;
  const _field_attr *field_;
  std::vector<Mark> marks_;
};

}  // namespace quillanest
