#pragma once

#include "LgLog.h"

// The engine's log group, "PxGraph" of major group "Pp"; it exists while procImp is started.
VN_LG_DECLARE_GROUP(PxGraph)
