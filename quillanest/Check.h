// Checking a schema file: quillanest::check_schema().
#pragma once

#include "quillanest/kernel/Check.h"
