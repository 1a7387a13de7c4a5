#include "PxNodeEvaluator.h"

#include "Assertions.h"
#include "EvCallbackEvents.h"
#include "EvEventManager.h"
#include "ExBase.h"
#include "PxGraphLog.h"
#include "PxRequest.h"
#include "PxRequestMgr.h"
#include "PxTimeContext.h"
#include "PxValueProtocol.h"

#include <cmath>
#include <limits>
#include <sstream>
#include <typeinfo>
#include <utility>

namespace Vn {

// Samples one node on a worker; its samples travel to the evaluator by an event.
template <class T>
class SamplingRequest final : public PxRequest {
public:
    SamplingRequest(RCShdPtr<PxNodeEvaluator<T>> evaluator,
                    PxUPtr<PxAnimValueProtocol<T> const> const& node,
                    PxNodePtr<PxNode const> keepAlive, double minTime, double maxTime,
                    int nbSamples, CbHandler<Vector<T> const>* valuesReadyCb)
        : _evaluator(std::move(evaluator)), _node(node), _minTime(minTime), _maxTime(maxTime),
          _nbSamples(nbSamples), _valuesReadyCb(valuesReadyCb), _keepAlive(std::move(keepAlive)) {
        // clang-format off
        VN_ASSERT(valuesReadyCb != 0);
        VN_ASSERT(_maxTime >= _minTime);
        // clang-format on
    }

    // A reset cancels the request: the loop looks at that now and then, so that a long
    // sampling stops soon after.
    void performExecute() override {
        PxRequestMgr const& mgr = PxRequestMgr::getInstance();
        double const step = (_maxTime - _minTime) / _nbSamples;
        unsigned n = 0;
        for (double t = _minTime; t <= _maxTime; t += step) {
            if (n++ % 64 == 0)
                mgr.checkCancelled();
            _values.push_back(_node->getValue(PxTimeContext(t)).getValue());
        }
    }

    // Runs for a failed request too: the evaluator learns of the failure from the event.
    void postExecute() override {
        try {
            EvEventManager::getInstance().postEvent(OPtr<EvRequestEvent>(
                new EvObjectRequestCb<PxNodeEvaluator<T>, Vector<T> const, RCShdPtr>(
                    _evaluator, _values, _valuesReadyCb)));
        } catch (ExBase const& e) {
            VN_LOG_GROUP(PxGraph, 0,
                         "The samples of a node evaluator were lost: " << e.getDetailedReason());
        } catch (std::exception const& e) {
            VN_LOG_GROUP(PxGraph, 0, "The samples of a node evaluator were lost: " << e.what());
        }
    }

    void performCleanUp() override { _values.clear(); }

    RCShdPtr<PxNodeEvaluator<T>> _evaluator;
    PxUPtr<PxAnimValueProtocol<T> const> _node;
    double _minTime;
    double _maxTime;
    std::int32_t _nbSamples;
    Vector<T> _values;
    CbHandler<Vector<T> const>* _valuesReadyCb;
    // The node's memory, not its place in the graph: a node dropped while it is sampled is
    // still read safely.
    PxNodePtr<PxNode const> _keepAlive;
};

namespace {

// More samples than a curve display could ever show: a caller asking for more is mistaken.
constexpr int kMaxSamples = 1 << 20;

[[noreturn]] void badArgument(char const* file, int line, std::string const& text) {
    throw MsgException<ExBase>(file, line, "PxNodeEvaluator::evaluate: " + text);
}

// Rejects what would make the sampling loop end never, or not in the number of steps asked.
void checkRange(double minTime, double maxTime, int nbSamples) {
    if (nbSamples <= 0)
        badArgument(__FILE__, __LINE__,
                    "nbSamples must be at least 1, not " + std::to_string(nbSamples));
    if (nbSamples > kMaxSamples)
        badArgument(__FILE__, __LINE__,
                    "nbSamples must be at most " + std::to_string(kMaxSamples) + ", not " +
                        std::to_string(nbSamples));
    if (!std::isfinite(minTime) || !std::isfinite(maxTime) || !(maxTime > minTime)) {
        std::ostringstream s;
        s << "the time range [" << minTime << ", " << maxTime
          << "] is empty; maxTime must be greater than minTime";
        badArgument(__FILE__, __LINE__, s.str());
    }
    // Each step must move the time at the largest magnitude the loop meets.
    double const step = (maxTime - minTime) / nbSamples;
    double const magnitude = std::max(std::fabs(minTime), std::fabs(maxTime));
    double const ulp =
        std::nextafter(magnitude, std::numeric_limits<double>::infinity()) - magnitude;
    if (!(step >= ulp)) {
        std::ostringstream s;
        s << "the time range [" << minTime << ", " << maxTime << "] is too narrow for " << nbSamples
          << " samples";
        badArgument(__FILE__, __LINE__, s.str());
    }
}

} // namespace

template <class T>
PxNodeEvaluator<T>::PxNodeEvaluator() : _valuesReadyCb(this, &PxNodeEvaluator::valuesReady) {}

template <class T>
PxNodeEvaluator<T>::~PxNodeEvaluator() {
    if (_request) {
        try {
            releaseRequest();
        } catch (...) {
            // A destructor lets nothing out; the request is gone either way.
        }
    }
}

template <class T>
bool PxNodeEvaluator<T>::evaluate(PxWeakHndl<PxNode const> const& node, double minTime,
                                  double maxTime, int nbSamples) {
    if (_request)
        return false;
    checkRange(minTime, maxTime, nbSamples);
    // The request holds the evaluator: an evaluator no RCShdPtr holds would die with it.
    VN_ASSERT(getRefCount() > 0);

    PxStrongHndl<PxNode const> strong = node.lock();
    PxUPtr<PxAnimValueProtocol<T> const> typed;
    if (strong) {
        auto const* p = dynamic_cast<PxAnimValueProtocol<T> const*>(strong.get());
        if (!p) {
            PxNode const& actual = *strong.get();
            RCExUtil::throwExCastFailed(typeid(actual).name(),
                                        typeid(PxAnimValueProtocol<T>).name());
        }
        typed = PxUPtr<PxAnimValueProtocol<T> const>::unchecked(p);
    }

    PxRequestMgr& mgr = PxRequestMgr::getInstance();
    auto* request = new SamplingRequest<T>(RCShdPtr<PxNodeEvaluator<T>>(this), typed,
                                           PxNodePtr<PxNode const>(strong), minTime, maxTime,
                                           nbSamples, &_valuesReadyCb);
    try {
        mgr.executeRequest(request, false);
    } catch (...) {
        mgr.releaseRequest(request);
        throw;
    }
    _failure.reset();
    _request = request;
    return true;
}

template <class T>
bool PxNodeEvaluator<T>::isEvaluating() const {
    return _request != nullptr;
}

template <class T>
void PxNodeEvaluator<T>::raiseFailure() const {
    if (_failure)
        _failure->raise();
}

template <class T>
Vector<T> const& PxNodeEvaluator<T>::getValues() const {
    if (_request) {
        PxRequestMgr::getInstance().waitRequest(_request);
        return _request->_values;
    }
    raiseFailure();
    return _values;
}

template <class T>
double const& PxNodeEvaluator<T>::getMinTime() const {
    if (_request) {
        PxRequestMgr::getInstance().waitRequest(_request);
        return _request->_minTime;
    }
    raiseFailure();
    return _minTime;
}

template <class T>
double const& PxNodeEvaluator<T>::getMaxTime() const {
    if (_request) {
        PxRequestMgr::getInstance().waitRequest(_request);
        return _request->_maxTime;
    }
    raiseFailure();
    return _maxTime;
}

template <class T>
void PxNodeEvaluator<T>::releaseRequest() {
    PxRequestMgr& mgr = PxRequestMgr::getInstance();
    SamplingRequest<T>* request = std::exchange(_request, nullptr);
    mgr.cancelRequest(request);
    mgr.releaseRequest(request);
}

template <class T>
void PxNodeEvaluator<T>::reset() {
    if (_request)
        releaseRequest();
    _values.clear();
    _failure.reset();
}

template <class T>
void PxNodeEvaluator<T>::addValuesReadyCallback(CbHandler<CbEmptyType>* handler) {
    _callbacks.addHandler(handler);
}

template <class T>
void PxNodeEvaluator<T>::removeValuesReadyCallback(CbHandler<CbEmptyType>* handler) {
    _callbacks.removeHandler(handler);
}

template <class T>
void PxNodeEvaluator<T>::valuesReady(Vector<T> const& values) {
    if (!_request)
        return; // reset came first: the samples are dropped
    PxRequestMgr& mgr = PxRequestMgr::getInstance();
    try {
        mgr.waitRequest(_request);
        _minTime = _request->_minTime;
        mgr.waitRequest(_request);
        _maxTime = _request->_maxTime;
    } catch (...) {
        // The failure stays with the evaluator, not with the request: the request, and with it
        // its hold on the evaluator, goes now.
        _failure = ExWrapper::cloneCurrent();
        _values.clear();
        releaseRequest();
        _callbacks.call();
        throw;
    }
    _values = values;
    releaseRequest();
    _callbacks.call();
}

template class PxNodeEvaluator<int>;
template class PxNodeEvaluator<double>;
template class PxNodeEvaluator<bool>;

} // namespace Vn
