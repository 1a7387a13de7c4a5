#include "StatResourceRegistry.h"
#include "ExBase.h"
#include "StatEx.h"
#include "StatInterval.h"
#include "StatList.h"
#include "StatListFactory.h"
#include "StatProcessCPUUsage.h"
#include "StatScalar.h"
#include "StatStarted.h"
#include "StatThreadCPUUsage.h"
#include "StatThreadPoolCPUUsage.h"
#include "StatTimeStamp.h"
#include "StatTypes.h"

#include <string>

using namespace Vn;

namespace {
using StatRegistry = StatStarted;

// Whether the kind's factory makes lists of T.
template <class T>
bool makesListOf(StatResourceType type) {
    OPtr<StatContainerBase> c = StatResourceRegistry::getContainerFactory(type)->createContainer();
    return dynamic_cast<StatList<T>*>(c.get()) != nullptr;
}
} // namespace

TEST_F(StatRegistry, KindsAreNumberedInTheOrderTheyAreRegistered) {
    ASSERT_EQ(StatResourceRegistry::getNbResources(), 39);
    struct {
        char const* _name;
        int _id;
        StatResourceType _field;
        StatResourceType _getter;
    } const some[] = {
        {"ProcessCPUUsageResourceType", 0, StatTypes::PROCESS_CPU_USAGE_ID,
         StatTypes::getProcessCPUUsageId()},
        {"PxThreadPoolCPUUsageResourceType", 2, StatTypes::PX_THREAD_POOL_CPU_USAGE_ID,
         StatTypes::getPxThreadPoolCPUUsageId()},
        {"ExternalPxWaitsScalarType", 10, StatTypes::EXTERNAL_PX_WAITS_ID,
         StatTypes::getExternalPxWaitsId()},
        {"DrawIntervalType", 14, StatTypes::DRAW_INTERVAL_ID, StatTypes::getDrawIntervalId()},
        {"TargetTimeStampType", 29, StatTypes::TARGET_TIME_ID, StatTypes::getTargetTimeId()},
        {"NbConcurrentReadsId", 33, StatTypes::STAT_NB_CONCURRENT_READS_ID,
         StatTypes::getNbConcurrentReadsId()},
        {"VirtualMemUsageType", 38, StatTypes::VIRTUAL_MEM_USAGE_ID,
         StatTypes::getVirtualMemUsageId()},
    };
    for (auto const& k : some) {
        StatResourceType t = StatResourceRegistry::getResourceType(k._name);
        EXPECT_EQ(t.getId(), k._id) << k._name;
        EXPECT_EQ(t, k._field) << k._name;
        EXPECT_EQ(t, k._getter) << k._name;
        EXPECT_EQ(StatResourceRegistry::getTypeName(t), k._name);
    }

    // Each kind's containers hold samples of its value class.
    EXPECT_TRUE(makesListOf<StatProcessCPUUsage>(StatTypes::getProcessCPUUsageId()));
    EXPECT_TRUE(makesListOf<StatThreadCPUUsage>(StatTypes::getUIThreadCPUUsageId()));
    EXPECT_TRUE(makesListOf<StatThreadPoolCPUUsage>(StatTypes::getPxThreadPoolCPUUsageId()));
    EXPECT_TRUE(makesListOf<StatScalar>(StatTypes::getWaitingRequestsId()));
    EXPECT_TRUE(makesListOf<StatInterval>(StatTypes::getDrawIntervalId()));
    EXPECT_TRUE(makesListOf<StatTimeStamp>(StatTypes::getTargetTimeId()));
    EXPECT_FALSE(makesListOf<StatScalar>(StatTypes::getDrawIntervalId()));
}

TEST_F(StatRegistry, ATakenNameIsRefusedAndChangesNothing) {
    StatResourceType draw = StatTypes::getDrawIntervalId();
    StatContainerFactory* factory = StatResourceRegistry::getContainerFactory(draw).get();
    try {
        StatResourceRegistry::registerResourceType("DrawIntervalType",
                                                   StatListFactory<StatScalar>::create());
        FAIL() << "a taken name was registered";
    } catch (StatExExist const& e) {
        EXPECT_EQ(e.getReason(), "The resource name DrawIntervalType is already registered.");
    }
    EXPECT_EQ(StatResourceRegistry::getNbResources(), 39);
    EXPECT_EQ(StatResourceRegistry::getResourceType("DrawIntervalType"), draw);
    EXPECT_EQ(StatResourceRegistry::getContainerFactory(draw).get(), factory);
    EXPECT_THROW(StatResourceRegistry::registerResourceType("NoFactory", nullptr),
                 ExAssertionFailed);
    EXPECT_EQ(StatResourceRegistry::getNbResources(), 39);
}

TEST_F(StatRegistry, AnUnknownNameIsReportedByName) {
    try {
        StatResourceRegistry::getResourceType("FramesPerFortnight");
        FAIL() << "an unknown name was found";
    } catch (StatExNotFound const& e) {
        EXPECT_EQ(e.getReason(), "FramesPerFortnight is not a registered resource name.");
        // A viewer may catch every failure of the statistics at once.
        OPtr<ExBase> copy = e.clone();
        EXPECT_THROW(copy->raise(), StatExNotFound);
        EXPECT_THROW(copy->raise(), StatEx);
    }
    EXPECT_EQ(StatResourceRegistry::getNbResources(), 39);
    // Names are cut to the message buffer rather than overrun it.
    std::string longName(3000, 'x');
    try {
        StatResourceRegistry::getResourceType(longName);
        FAIL();
    } catch (StatExNotFound const& e) {
        EXPECT_EQ(e.getReason().size(), 1023u);
        EXPECT_EQ(e.getReason().substr(0, 10), "xxxxxxxxxx");
    }
}

TEST_F(StatRegistry, ADefaultTypeIsInvalidAndNamesNoKind) {
    StatResourceType none;
    EXPECT_FALSE(none.isValid());
    EXPECT_EQ(none.getId(), -1);
    EXPECT_TRUE(StatTypes::getProcessCPUUsageId().isValid());
    EXPECT_NE(none, StatTypes::getProcessCPUUsageId());
    EXPECT_THROW(StatResourceRegistry::getTypeName(none), ExAssertionFailed);
    EXPECT_THROW(StatResourceRegistry::getContainerFactory(none), ExAssertionFailed);
}

TEST_F(StatRegistry, AKindAddedLaterTakesTheNextIdUntilTheNextStart) {
    StatResourceType late = StatResourceRegistry::registerResourceType(
        "LateKind", StatListFactory<StatScalar>::create());
    EXPECT_EQ(late.getId(), 39);
    EXPECT_EQ(StatResourceRegistry::getNbResources(), 40);
    EXPECT_EQ(StatResourceRegistry::getResourceType("LateKind"), late);

    // A restart forgets it and gives the built-in kinds the same ids again.
    InInitMgr::getInstance().finalize();
    EXPECT_FALSE(StatResourceRegistry::isInitialized());
    InInitMgr::getInstance().initialize();
    EXPECT_EQ(StatResourceRegistry::getNbResources(), 39);
    EXPECT_THROW(StatResourceRegistry::getResourceType("LateKind"), StatExNotFound);
    EXPECT_EQ(StatResourceRegistry::getResourceType("DrawIntervalType").getId(), 14);
    EXPECT_EQ(StatTypes::getDrawIntervalId().getId(), 14);
}
