#include "PiValueInterface.h"

#include "ExBase.h"
#include "PxNode.h"
#include "PxQueryRequest.h"

#include <cmath>
#include <limits>
#include <utility>
#include <vector>

namespace Vn {

PiAnimInterface::~PiAnimInterface() = default;
PiAnimInterface::ChangeFunctor::~ChangeFunctor() = default;

namespace {

struct PendingChange {
    std::unique_ptr<PiAnimInterface::ChangeFunctor> functor;
    PxValidityInterval interval;
};

// Runs a batch of held-back changes, each followed by one wave unless the change started its own.
class ChangeBatchRequest final : public PxMutationRequest {
public:
    explicit ChangeBatchRequest(std::vector<PendingChange> batch) : _batch(std::move(batch)) {}
    void performExecute() override {
        for (PendingChange& c : _batch) {
            PxNode const* node = c.functor->getNode();
            if (!node || node->getStrongCount() == 0)
                continue; // let go before the batch ran
            int const before = PxNode::getInvalidationId();
            c.functor->run();
            if (PxNode::getInvalidationId() == before)
                node->invalidate(c.interval, -2);
        }
    }

private:
    std::vector<PendingChange> _batch;
};

// The interface thread's open scopes and what they hold.
thread_local int tScopes = 0;
thread_local std::vector<PendingChange> tPending;

void sendBatch(std::vector<PendingChange> batch) {
    if (!batch.empty())
        PxMutationRequest::submit(new ChangeBatchRequest(std::move(batch)));
}

} // namespace

PiAnimInterface::AccumulateChanges::AccumulateChanges() noexcept {
    ++tScopes;
}

PiAnimInterface::AccumulateChanges::~AccumulateChanges() {
    if (--tScopes > 0)
        return;
    std::vector<PendingChange> batch;
    batch.swap(tPending);
    try {
        sendBatch(std::move(batch));
    } catch (ExBase const& e) {
        ExStdout::printAtomically("Held-back value changes were lost: " + e.getDetailedReason());
    } catch (std::exception const& e) {
        ExStdout::printAtomically(std::string("Held-back value changes were lost: ") + e.what());
    }
}

bool PiAnimInterface::isAccumulatingChanges() noexcept {
    return tScopes > 0;
}

void PiAnimInterface::addChangeFunctor(std::unique_ptr<ChangeFunctor> functor,
                                       PxValidityInterval const& interval) {
    if (!functor)
        RCExUtil::throwExNullPtr(typeid(ChangeFunctor).name());
    if (tScopes > 0) {
        tPending.push_back({std::move(functor), interval});
        return;
    }
    std::vector<PendingChange> one;
    one.push_back({std::move(functor), interval});
    sendBatch(std::move(one));
}

template <class T>
double PiAnimValueInterface<T>::toDouble(T const& value) {
    if constexpr (std::is_same_v<T, std::string>)
        VN_THROW_MSG(ExBase, "a text value does not animate");
    else
        return static_cast<double>(value);
}

template <class T>
T PiAnimValueInterface<T>::fromDouble(double value) {
    if constexpr (std::is_same_v<T, std::string>) {
        VN_THROW_MSG(ExBase, "a text value does not animate");
    } else if constexpr (std::is_same_v<T, bool>) {
        return value >= 0.5;
    } else if constexpr (std::is_same_v<T, int>) {
        // Rounded to the nearest, and held within int.
        double const r = std::nearbyint(value);
        if (!(r > std::numeric_limits<int>::min()))
            return std::numeric_limits<int>::min();
        if (!(r < std::numeric_limits<int>::max()))
            return std::numeric_limits<int>::max();
        return static_cast<int>(r);
    } else {
        return value;
    }
}

template class PiValueInterface<bool>;
template class PiValueInterface<int>;
template class PiValueInterface<double>;
template class PiValueInterface<std::string>;
template class PiValueInterface<DtTime>;
template class PiAnimValueInterface<bool>;
template class PiAnimValueInterface<int>;
template class PiAnimValueInterface<double>;
template class PiAnimValueInterface<std::string>;

} // namespace Vn
