#pragma once

#include "Cb.h"
#include "LkCounter.h"
#include "OPtr.h"
#include "PxNode.h"
#include "RCBase.h"
#include "Vector.h"
#include "VnExport.h"

namespace Vn {

class ExBase;
template <class T>
class SamplingRequest;

// Samples an animated value node over a time range on a worker, and tells its users on the event
// thread when the samples are ready, so that nobody waits. Held through RCShdPtr; everything but
// the sampling itself belongs to the event thread. Instances: int, double, bool.
template <class T>
class VN_EXPORT PxNodeEvaluator : public RCBase<LkCounter<int>> {
public:
    PxNodeEvaluator();
    ~PxNodeEvaluator() override;

    // Starts sampling `node` (a PxAnimValueProtocol<T>) at minTime and every (maxTime - minTime)
    // / nbSamples seconds up to maxTime. False, and nothing else, while a sampling is in flight.
    // Raises for a node of another kind, for nbSamples below 1 or above 2^20 and for a range
    // that is empty or too narrow to step through.
    bool evaluate(PxWeakHndl<PxNode const> const& node, double minTime, double maxTime,
                  int nbSamples);
    bool isEvaluating() const;
    // While sampling these wait for the samples of the sampling in flight; after a failed one
    // they raise its failure until the next evaluate or reset.
    Vector<T> const& getValues() const;
    double const& getMinTime() const;
    double const& getMaxTime() const;
    // Drops the sampling in flight and the samples.
    void reset();
    void addValuesReadyCallback(CbHandler<CbEmptyType>* handler);
    void removeValuesReadyCallback(CbHandler<CbEmptyType>* handler);

private:
    void valuesReady(Vector<T> const& values);
    void releaseRequest();
    void raiseFailure() const;

    Vector<T> _values;
    double _minTime = 0.0;
    double _maxTime = 0.0;
    SamplingRequest<T>* _request = nullptr;
    CbMethod<PxNodeEvaluator<T>, Vector<T> const> _valuesReadyCb;
    CbDispatcher<CbEmptyType> _callbacks;
    OPtr<ExBase> _failure;
};

} // namespace Vn
