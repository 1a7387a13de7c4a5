#include "StatTypes.h"
#include "StatInterval.h"
#include "StatListFactory.h"
#include "StatProcessCPUUsage.h"
#include "StatResourceRegistry.h"
#include "StatScalar.h"
#include "StatThreadCPUUsage.h"
#include "StatThreadPoolCPUUsage.h"
#include "StatTimeStamp.h"

namespace Vn {

StatResourceType StatTypes::PROCESS_CPU_USAGE_ID;
StatResourceType StatTypes::UI_THREAD_CPU_USAGE_ID;
StatResourceType StatTypes::PX_THREAD_POOL_CPU_USAGE_ID;
StatResourceType StatTypes::DROPPED_FRAMES_ID;
StatResourceType StatTypes::PROCESSED_DROPPED_FRAMES_ID;
StatResourceType StatTypes::PROCESSED_LATE_FRAMES_ID;
StatResourceType StatTypes::WAITING_REQUESTS_ID;
StatResourceType StatTypes::RUNNING_WORKERS_ID;
StatResourceType StatTypes::BLOCKED_WORKERS_ID;
StatResourceType StatTypes::EXTERNAL_PX_REQUESTS_ID;
StatResourceType StatTypes::EXTERNAL_PX_WAITS_ID;
StatResourceType StatTypes::WAITING_EVENTS_ID;
StatResourceType StatTypes::PROCESSED_EVENTS_ID;
StatResourceType StatTypes::NB_REQUESTS_PROCESSING_ID;
StatResourceType StatTypes::DRAW_INTERVAL_ID;
StatResourceType StatTypes::SWAP_BUFFERS_SCALAR_ID;
StatResourceType StatTypes::UST_PER_MSC_SCALAR_ID;
StatResourceType StatTypes::UST_MSC_PHASE_SCALAR_ID;
StatResourceType StatTypes::NB_TOTAL_SCAN_LINES_SCALAR_ID;
StatResourceType StatTypes::PLAYER_REQUESTS_EXECUTION_ID;
StatResourceType StatTypes::PLAYER_TEXTURE_CONVERT_ID;
StatResourceType StatTypes::PLAYER_TEXTURE_LOAD_ID;
StatResourceType StatTypes::TILE_READ_SCALAR_ID;
StatResourceType StatTypes::TILE_WRITE_SCALAR_ID;
StatResourceType StatTypes::FILE_IMPORT_SCALAR_ID;
StatResourceType StatTypes::TILE_READ_INTERVAL_ID;
StatResourceType StatTypes::TILE_WRITE_INTERVAL_ID;
StatResourceType StatTypes::FILE_IMPORT_INTERVAL_ID;
StatResourceType StatTypes::SLOW_VIDEO_INTERVAL_ID;
StatResourceType StatTypes::TARGET_TIME_ID;
StatResourceType StatTypes::UI_REDRAW_INTERVAL_ID;
StatResourceType StatTypes::SWAP_INTERVAL_ID;
StatResourceType StatTypes::STAT_DRAW_INTERVAL_ID;
StatResourceType StatTypes::STAT_NB_CONCURRENT_READS_ID;
StatResourceType StatTypes::MB_READ_ID;
StatResourceType StatTypes::MB_WRITE_ID;
StatResourceType StatTypes::MB_SWAPPED_IN_ID;
StatResourceType StatTypes::MB_SWAPPED_OUT_ID;
StatResourceType StatTypes::VIRTUAL_MEM_USAGE_ID;

namespace {
struct Kind {
    char const* _name;
    OPtrRet<StatContainerFactory> (*_makeFactory)();
    StatResourceType* _id;
};

Kind const kKinds[] = {
    {"ProcessCPUUsageResourceType", &StatListFactory<StatProcessCPUUsage>::create,
     &StatTypes::PROCESS_CPU_USAGE_ID},
    {"UiThreadCPUUsageResourceType", &StatListFactory<StatThreadCPUUsage>::create,
     &StatTypes::UI_THREAD_CPU_USAGE_ID},
    {"PxThreadPoolCPUUsageResourceType", &StatListFactory<StatThreadPoolCPUUsage>::create,
     &StatTypes::PX_THREAD_POOL_CPU_USAGE_ID},
    {"DroppedFramesScalarType", &StatListFactory<StatScalar>::create,
     &StatTypes::DROPPED_FRAMES_ID},
    {"ProcessedDroppedFramesScalarType", &StatListFactory<StatScalar>::create,
     &StatTypes::PROCESSED_DROPPED_FRAMES_ID},
    {"ProcessedLateFramesScalarType", &StatListFactory<StatScalar>::create,
     &StatTypes::PROCESSED_LATE_FRAMES_ID},
    {"WaitingRequestsScalarType", &StatListFactory<StatScalar>::create,
     &StatTypes::WAITING_REQUESTS_ID},
    {"RunningWorkersScalarType", &StatListFactory<StatScalar>::create,
     &StatTypes::RUNNING_WORKERS_ID},
    {"BlockedWorkersScalarType", &StatListFactory<StatScalar>::create,
     &StatTypes::BLOCKED_WORKERS_ID},
    {"ExternalPxRequestsScalarType", &StatListFactory<StatScalar>::create,
     &StatTypes::EXTERNAL_PX_REQUESTS_ID},
    {"ExternalPxWaitsScalarType", &StatListFactory<StatScalar>::create,
     &StatTypes::EXTERNAL_PX_WAITS_ID},
    {"WaitingEventsScalarType", &StatListFactory<StatScalar>::create,
     &StatTypes::WAITING_EVENTS_ID},
    {"ProcessedEventsScalarType", &StatListFactory<StatScalar>::create,
     &StatTypes::PROCESSED_EVENTS_ID},
    {"NbRequestsProcessingScalarType", &StatListFactory<StatScalar>::create,
     &StatTypes::NB_REQUESTS_PROCESSING_ID},
    {"DrawIntervalType", &StatListFactory<StatInterval>::create, &StatTypes::DRAW_INTERVAL_ID},
    {"SwapBuffersScalarType", &StatListFactory<StatScalar>::create,
     &StatTypes::SWAP_BUFFERS_SCALAR_ID},
    {"USTPerMSCScalarType", &StatListFactory<StatScalar>::create,
     &StatTypes::UST_PER_MSC_SCALAR_ID},
    {"USTMSCPhaseScalarType", &StatListFactory<StatScalar>::create,
     &StatTypes::UST_MSC_PHASE_SCALAR_ID},
    {"NbTotalScanLinesType", &StatListFactory<StatScalar>::create,
     &StatTypes::NB_TOTAL_SCAN_LINES_SCALAR_ID},
    {"PlayerRequestsExecutionIntervalType", &StatListFactory<StatInterval>::create,
     &StatTypes::PLAYER_REQUESTS_EXECUTION_ID},
    {"PlayerTextureConvertIntervalType", &StatListFactory<StatInterval>::create,
     &StatTypes::PLAYER_TEXTURE_CONVERT_ID},
    {"PlayerTextureLoadIntervalType", &StatListFactory<StatInterval>::create,
     &StatTypes::PLAYER_TEXTURE_LOAD_ID},
    {"TileReadScalarType", &StatListFactory<StatScalar>::create, &StatTypes::TILE_READ_SCALAR_ID},
    {"TileWriteScalarType", &StatListFactory<StatScalar>::create, &StatTypes::TILE_WRITE_SCALAR_ID},
    {"FileImportScalarType", &StatListFactory<StatScalar>::create,
     &StatTypes::FILE_IMPORT_SCALAR_ID},
    {"TileReadIntervalType", &StatListFactory<StatInterval>::create,
     &StatTypes::TILE_READ_INTERVAL_ID},
    {"TileWriteIntervalType", &StatListFactory<StatInterval>::create,
     &StatTypes::TILE_WRITE_INTERVAL_ID},
    {"FileImportIntervalType", &StatListFactory<StatInterval>::create,
     &StatTypes::FILE_IMPORT_INTERVAL_ID},
    {"SlowVideoIntervalType", &StatListFactory<StatInterval>::create,
     &StatTypes::SLOW_VIDEO_INTERVAL_ID},
    {"TargetTimeStampType", &StatListFactory<StatTimeStamp>::create, &StatTypes::TARGET_TIME_ID},
    {"UiRedrawIntervalType", &StatListFactory<StatInterval>::create,
     &StatTypes::UI_REDRAW_INTERVAL_ID},
    {"SwapIntervalType", &StatListFactory<StatInterval>::create, &StatTypes::SWAP_INTERVAL_ID},
    {"StatDrawIntervalType", &StatListFactory<StatInterval>::create,
     &StatTypes::STAT_DRAW_INTERVAL_ID},
    {"NbConcurrentReadsId", &StatListFactory<StatScalar>::create,
     &StatTypes::STAT_NB_CONCURRENT_READS_ID},
    {"MbReadType", &StatListFactory<StatScalar>::create, &StatTypes::MB_READ_ID},
    {"MbWriteType", &StatListFactory<StatScalar>::create, &StatTypes::MB_WRITE_ID},
    {"MbSwappedInType", &StatListFactory<StatScalar>::create, &StatTypes::MB_SWAPPED_IN_ID},
    {"MbSwappedOutType", &StatListFactory<StatScalar>::create, &StatTypes::MB_SWAPPED_OUT_ID},
    {"VirtualMemUsageType", &StatListFactory<StatScalar>::create, &StatTypes::VIRTUAL_MEM_USAGE_ID},
};
} // namespace

void StatTypes::initialize() {
    for (Kind const& k : kKinds)
        *k._id = StatResourceRegistry::registerResourceType(k._name, k._makeFactory());
}

// The ids stay as they are: they name the same kinds after the next start.
void StatTypes::finalize() {}

} // namespace Vn
