#pragma once

#include "Cb.h"
#include "OPtr.h"
#include "VnExport.h"

namespace Vn {

// How the application runs, and news of its database opening and closing. The application
// gives an object for each of the two interfaces at its start; until then every operation
// here raises InSingletonEx::ExNotInitialized.
class VN_EXPORT PiAppLogic {
public:
    class VN_EXPORT StandaloneInterface {
    public:
        virtual ~StandaloneInterface();
        virtual bool isStandalone() const = 0;

        static void initialize(OPtr<StandaloneInterface> instance);
        static void finalize();
        static StandaloneInterface& getInstance();
        static bool isInitialized();
    };

    class VN_EXPORT DatabaseInterface {
    public:
        virtual ~DatabaseInterface();
        virtual void addOpenDbCb(CbHandler<CbEmptyType>* handler) = 0;
        virtual void removeOpenDbCb(CbHandler<CbEmptyType>* handler) = 0;
        virtual void addCloseDbCb(CbHandler<CbEmptyType>* handler) = 0;
        virtual void removeCloseDbCb(CbHandler<CbEmptyType>* handler) = 0;

        static void initialize(OPtr<DatabaseInterface> instance);
        static void finalize();
        static DatabaseInterface& getInstance();
        static bool isInitialized();
    };

    static bool isStandalone();
    static void addOpenDbCb(CbHandler<CbEmptyType>* handler);
    static void removeOpenDbCb(CbHandler<CbEmptyType>* handler);
    static void addCloseDbCb(CbHandler<CbEmptyType>* handler);
    static void removeCloseDbCb(CbHandler<CbEmptyType>* handler);
};

} // namespace Vn
