#include "StatThreadPoolCPUUsage.h"
#include "Assertions.h"
#include "MtThreadMgr.h"
#include "MtThreadPool.h"
#include "OPtr.h"
#include "StatMgr.h"
#include "StatResVector.h"
#include "StatValueImp.h"

namespace Vn {

namespace {
constexpr int kPerBlock = StatThreadPoolCPUUsage::kThreadsPerBlock;
} // namespace

class StatThreadPoolCPUUsage::Imp : public StatValueImp {
public:
    struct Block {
        static void* operator new(std::size_t size) { return StatMemPool::alloc(size); }
        static void operator delete(void* block, std::size_t size) noexcept {
            StatMemPool::free(block, size);
        }
        MtThreadTimes::Split _splits[kPerBlock];
    };

    Imp() noexcept = default;
    Imp(Imp const& o) : StatValueImp(o), _nbThreads(o._nbThreads) {
        for (OPtr<Block> const& b : o._blocks)
            _blocks.push_back(OPtr<Block>(new Block(*b.get())));
    }
    Imp* clone() const override { return new Imp(*this); }

    void resize(int nbThreads) {
        std::size_t needed = static_cast<std::size_t>((nbThreads + kPerBlock - 1) / kPerBlock);
        while (_blocks.size() > needed)
            _blocks.pop_back();
        while (_blocks.size() < needed)
            _blocks.push_back(OPtr<Block>(new Block));
        _nbThreads = nbThreads;
    }
    MtThreadTimes::Split& at(int index) noexcept {
        Block* block = _blocks[static_cast<std::size_t>(index / kPerBlock)].get();
        return block->_splits[index % kPerBlock];
    }

    int _nbThreads = 0;
    StatResVector<OPtr<Block>> _blocks;
};

StatThreadPoolCPUUsage::StatThreadPoolCPUUsage() noexcept = default;
StatThreadPoolCPUUsage::StatThreadPoolCPUUsage(StatThreadPoolCPUUsage const& o) noexcept = default;
StatThreadPoolCPUUsage::StatThreadPoolCPUUsage(StatThreadPoolCPUUsage&& o) noexcept = default;
StatThreadPoolCPUUsage&
StatThreadPoolCPUUsage::operator=(StatThreadPoolCPUUsage const& o) = default;
StatThreadPoolCPUUsage& StatThreadPoolCPUUsage::operator=(StatThreadPoolCPUUsage&& o) = default;
StatThreadPoolCPUUsage::~StatThreadPoolCPUUsage() = default;

void StatThreadPoolCPUUsage::timeSplit(MtThreadPool const& pool) {
    int n = pool.getNbThreads();
    VN_ASSERT(n >= 1);
    Imp& imp = statWritable(_imp);
    imp.resize(n);
    MtThreadMgr const& mgr = MtThreadMgr::getInstance();
    for (int i = 0; i < n; ++i)
        imp.at(i) = MtThreadTimes::timeSplit(mgr.findThread(pool.getThreadId(i)));
}

int StatThreadPoolCPUUsage::getNbThreads() const noexcept {
    return _imp ? _imp.get()->_nbThreads : 0;
}

MtThreadTimes::Split StatThreadPoolCPUUsage::getTimeSplit(int index) const {
    VN_ASSERT(index >= 0 && index < getNbThreads());
    return _imp.get()->at(index);
}

void StatThreadPoolCPUUsage::timeSplit(MtThreadPool const& pool, StatResourceType type) {
    timeSplit(pool);
    recordStat(type);
}

void StatThreadPoolCPUUsage::recordStat(StatResourceType type) const {
    statRecord(StatMgr::getContainer(type), *this);
}

} // namespace Vn
