#pragma once

#include "StatResourceType.h"
#include "VnExport.h"

namespace Vn {

// The statistic kinds of the system. initialize registers them in this order, each with a list
// of its value class, and keeps the ids here; nothing outside depends on their numbers.
class VN_EXPORT StatTypes {
public:
    static void initialize();
    static void finalize();

    static StatResourceType PROCESS_CPU_USAGE_ID;
    static StatResourceType UI_THREAD_CPU_USAGE_ID;
    static StatResourceType PX_THREAD_POOL_CPU_USAGE_ID;
    static StatResourceType DROPPED_FRAMES_ID;
    static StatResourceType PROCESSED_DROPPED_FRAMES_ID;
    static StatResourceType PROCESSED_LATE_FRAMES_ID;
    static StatResourceType WAITING_REQUESTS_ID;
    static StatResourceType RUNNING_WORKERS_ID;
    static StatResourceType BLOCKED_WORKERS_ID;
    static StatResourceType EXTERNAL_PX_REQUESTS_ID;
    static StatResourceType EXTERNAL_PX_WAITS_ID;
    static StatResourceType WAITING_EVENTS_ID;
    static StatResourceType PROCESSED_EVENTS_ID;
    static StatResourceType NB_REQUESTS_PROCESSING_ID;
    static StatResourceType DRAW_INTERVAL_ID;
    static StatResourceType SWAP_BUFFERS_SCALAR_ID;
    static StatResourceType UST_PER_MSC_SCALAR_ID;
    static StatResourceType UST_MSC_PHASE_SCALAR_ID;
    static StatResourceType NB_TOTAL_SCAN_LINES_SCALAR_ID;
    static StatResourceType PLAYER_REQUESTS_EXECUTION_ID;
    static StatResourceType PLAYER_TEXTURE_CONVERT_ID;
    static StatResourceType PLAYER_TEXTURE_LOAD_ID;
    static StatResourceType TILE_READ_SCALAR_ID;
    static StatResourceType TILE_WRITE_SCALAR_ID;
    static StatResourceType FILE_IMPORT_SCALAR_ID;
    static StatResourceType TILE_READ_INTERVAL_ID;
    static StatResourceType TILE_WRITE_INTERVAL_ID;
    static StatResourceType FILE_IMPORT_INTERVAL_ID;
    static StatResourceType SLOW_VIDEO_INTERVAL_ID;
    static StatResourceType TARGET_TIME_ID;
    static StatResourceType UI_REDRAW_INTERVAL_ID;
    static StatResourceType SWAP_INTERVAL_ID;
    static StatResourceType STAT_DRAW_INTERVAL_ID;
    static StatResourceType STAT_NB_CONCURRENT_READS_ID;
    static StatResourceType MB_READ_ID;
    static StatResourceType MB_WRITE_ID;
    static StatResourceType MB_SWAPPED_IN_ID;
    static StatResourceType MB_SWAPPED_OUT_ID;
    static StatResourceType VIRTUAL_MEM_USAGE_ID;

    static StatResourceType getProcessCPUUsageId() noexcept { return PROCESS_CPU_USAGE_ID; }
    static StatResourceType getUIThreadCPUUsageId() noexcept { return UI_THREAD_CPU_USAGE_ID; }
    static StatResourceType getPxThreadPoolCPUUsageId() noexcept {
        return PX_THREAD_POOL_CPU_USAGE_ID;
    }
    static StatResourceType getDroppedFramesId() noexcept { return DROPPED_FRAMES_ID; }
    static StatResourceType getProcessedDroppedFramesId() noexcept {
        return PROCESSED_DROPPED_FRAMES_ID;
    }
    static StatResourceType getProcessedLateFramesId() noexcept { return PROCESSED_LATE_FRAMES_ID; }
    static StatResourceType getWaitingRequestsId() noexcept { return WAITING_REQUESTS_ID; }
    static StatResourceType getRunningWorkersId() noexcept { return RUNNING_WORKERS_ID; }
    static StatResourceType getBlockedWorkersId() noexcept { return BLOCKED_WORKERS_ID; }
    static StatResourceType getExternalPxRequestsId() noexcept { return EXTERNAL_PX_REQUESTS_ID; }
    static StatResourceType getExternalPxWaitsId() noexcept { return EXTERNAL_PX_WAITS_ID; }
    static StatResourceType getWaitingEventsId() noexcept { return WAITING_EVENTS_ID; }
    static StatResourceType getProcessedEventsId() noexcept { return PROCESSED_EVENTS_ID; }
    static StatResourceType getNbRequestsProcessingId() noexcept {
        return NB_REQUESTS_PROCESSING_ID;
    }
    static StatResourceType getDrawIntervalId() noexcept { return DRAW_INTERVAL_ID; }
    static StatResourceType getSwapBuffersScalarId() noexcept { return SWAP_BUFFERS_SCALAR_ID; }
    static StatResourceType getUSTPerMSCScalarId() noexcept { return UST_PER_MSC_SCALAR_ID; }
    static StatResourceType getUSTMSCPhaseScalarId() noexcept { return UST_MSC_PHASE_SCALAR_ID; }
    static StatResourceType getNbTotalScanLinesScalarId() noexcept {
        return NB_TOTAL_SCAN_LINES_SCALAR_ID;
    }
    static StatResourceType getPlayerRequestsExecutionId() noexcept {
        return PLAYER_REQUESTS_EXECUTION_ID;
    }
    static StatResourceType getPlayerTextureConvertId() noexcept {
        return PLAYER_TEXTURE_CONVERT_ID;
    }
    static StatResourceType getPlayerTextureLoadId() noexcept { return PLAYER_TEXTURE_LOAD_ID; }
    static StatResourceType getTileReadScalarId() noexcept { return TILE_READ_SCALAR_ID; }
    static StatResourceType getTileWriteScalarId() noexcept { return TILE_WRITE_SCALAR_ID; }
    static StatResourceType getFileImportScalarId() noexcept { return FILE_IMPORT_SCALAR_ID; }
    static StatResourceType getTileReadIntervalId() noexcept { return TILE_READ_INTERVAL_ID; }
    static StatResourceType getTileWriteIntervalId() noexcept { return TILE_WRITE_INTERVAL_ID; }
    static StatResourceType getFileImportIntervalId() noexcept { return FILE_IMPORT_INTERVAL_ID; }
    static StatResourceType getSlowVideoIntervalId() noexcept { return SLOW_VIDEO_INTERVAL_ID; }
    static StatResourceType getTargetTimeId() noexcept { return TARGET_TIME_ID; }
    static StatResourceType getUiRedrawIntervalId() noexcept { return UI_REDRAW_INTERVAL_ID; }
    static StatResourceType getSwapIntervalId() noexcept { return SWAP_INTERVAL_ID; }
    static StatResourceType getStatDrawIntervalId() noexcept { return STAT_DRAW_INTERVAL_ID; }
    static StatResourceType getNbConcurrentReadsId() noexcept {
        return STAT_NB_CONCURRENT_READS_ID;
    }
    static StatResourceType getMbReadId() noexcept { return MB_READ_ID; }
    static StatResourceType getMbWriteId() noexcept { return MB_WRITE_ID; }
    static StatResourceType getMbSwappedInId() noexcept { return MB_SWAPPED_IN_ID; }
    static StatResourceType getMbSwappedOutId() noexcept { return MB_SWAPPED_OUT_ID; }
    static StatResourceType getVirtualMemUsageId() noexcept { return VIRTUAL_MEM_USAGE_ID; }
};

} // namespace Vn
