// Who is logged in, and the rights.
#include <algorithm>
#include <iterator>

#include "quillanest/kernel/RtdbManager.h"

void CRtdbManager::UserLogout() {
  for (_rtdb_attr *attr : {&in_force(), &attr_}) {
    attr->SysUserID = 0;
    attr->SysUserName[0] = '\0';
    std::fill(std::begin(attr->Rights), std::end(attr->Rights), 0U);
  }
}
