// The whole exported interface of the library in one include.
#pragma once

#include "quillanest/kernel/RtDataBase.h"
#include "quillanest/kernel/RtField.h"
#include "quillanest/kernel/RtTable.h"
#include "quillanest/kernel/RtdbManager.h"
#include "quillanest/platform/MessageBox.h"
#include "quillanest/platform/SystemTime.h"
#include "quillanest/platform/dataaccess/ComError.h"
#include "quillanest/shm/ImageLayout.h"
#include "quillanest/shm/MutexEx.h"
#include "quillanest/shm/ShareMemory.h"
#include "quillanest/shm/Utility.h"
