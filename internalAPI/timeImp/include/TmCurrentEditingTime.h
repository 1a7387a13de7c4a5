#pragma once

#include "Cb.h"
#include "DtTime.h"
#include "TmTimeClient.h"
#include "VnExport.h"

namespace Vn {

// The application's current editing time: the one client of the master time coordinator that
// passes on, to whoever subscribes, that the time moved (with the new time) and that play
// started. Made and destroyed by the timeImp package. Subscribing null or twice is ignored; a
// handler removed during a dispatch is not called afterwards in it, one added during a dispatch
// is first called by the next. Handlers may outlive the instance. Interface thread only.
class VN_EXPORT TmCurrentEditingTime : public TmTimeClient {
public:
    ~TmCurrentEditingTime() override;

    // Makes the instance and has it follow the master coordinator.
    static void initialize();
    static void finalize();
    static bool isInitialized() noexcept { return s_instance != nullptr; }
    static TmCurrentEditingTime& getInstance();

    // Const, so that a subscriber needs only a const reference.
    void addTimeUpdatedCallback(CbHandler<DtTime const>* handler) const;
    void removeTimeUpdatedCallback(CbHandler<DtTime const>* handler) const;
    void addPlayInitiatedCallback(CbHandler<CbEmptyType>* handler) const;
    void removePlayInitiatedCallback(CbHandler<CbEmptyType>* handler) const;

protected:
    void timeUpdated() override;
    void playInitiated() override;

private:
    TmCurrentEditingTime();

    mutable CbDispatcher<DtTime const> _timeUpdated;
    mutable CbDispatcher<CbEmptyType> _playInitiated;
    static TmCurrentEditingTime* s_instance;
};

} // namespace Vn
