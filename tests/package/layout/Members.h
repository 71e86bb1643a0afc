/* Where the generated structures have their members, as the C and the C++ compiler see it. */
#ifndef LAYOUT_MEMBERS_H
#define LAYOUT_MEMBERS_H

#include <stddef.h>

/* A member, or with an index of -1 the whole structure, by the numbers of the generated headers. */
struct Member {
  const char *name;
  unsigned int database;
  unsigned int table;
  int index;
  size_t offset;
  size_t size;
};

struct Members {
  const struct Member *members;
  size_t count;
};

/* All members before the first FLOAT or DOUBLE of a table, and the structures without these two types. */
/* clang-format off */
#define FOR_EACH_MEMBER(S, M) \
  S(system, Every) M(system, Every, ID) M(system, Every, Letter) M(system, Every, Small) M(system, Every, Octet) \
  M(system, Every, Word) M(system, Every, Number) M(system, Every, Text) M(system, Every, Long) \
  M(system, Every, Secret) M(system, Every, Count) M(system, Every, Flag) M(system, Every, Since) \
  M(system, Every, Last) \
  S(system, Odd) M(system, Odd, ID) M(system, Odd, Numbers) M(system, Odd, Words) M(system, Odd, Letters) \
  M(system, Odd, Counts) \
  M(Plant, Point, ID) M(Plant, Point, Name)
/* clang-format on */

#ifdef __cplusplus
extern "C" {
#endif
struct Members members_in_c(void);
#ifdef __cplusplus
}
#endif

#endif
