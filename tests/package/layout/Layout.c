/* The generated structures as the C compiler lays them out. */
#include "Members.h"
#include "Plant.h"
#include "system.h"

#define NAMED(name) name
#define MEMBER_SIZE(type, member) sizeof(((type *)0)->member)
#include "Members.inc"

struct Members members_in_c(void) {
  return kMembers;
}
