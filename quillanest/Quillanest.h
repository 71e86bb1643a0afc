// The whole exported interface of the library in one include. Start here:
//
//   CRtdbManager manager;                                            // reads conf/fix_Rtdb.ini
//   if (!manager.RtdbManagerInit(false, "stations.schema")) return;  // builds the image, loads the system database
//   CRtTable stations;                                               // a handle of one table
//   if (manager.GetSystemTable(stations, "Station") == 0) return;
//   const char *record = stations.FindIDExclusive(17);               // the record with key 17, or null
//   if (record != nullptr) std::memcpy(&pressure, record + 20, 8);   // packed bytes at known offsets
//   manager.GetSystemDB()->SaveData(0);                              // to text files or a relational store
//
// kernel/RtdbManager.h starts, finds databases, logs users in, loads and saves; kernel/RtDataBase.h finds tables;
// kernel/RtTable.h finds, reads and edits records; kernel/RtField.h describes a field. examples/hello is a whole
// program.
#pragma once

#include "quillanest/Version.h"
#include "quillanest/base/Events.h"
#include "quillanest/base/MessageBox.h"
#include "quillanest/kernel/Check.h"
#include "quillanest/kernel/RtDataBase.h"
#include "quillanest/kernel/RtField.h"
#include "quillanest/kernel/RtTable.h"
#include "quillanest/kernel/RtdbManager.h"
#include "quillanest/platform/SystemTime.h"
#include "quillanest/shm/ImageLayout.h"
#include "quillanest/shm/MutexEx.h"
#include "quillanest/shm/ShareMemory.h"
#include "quillanest/shm/Utility.h"
#include "quillanest/sql/ComError.h"
